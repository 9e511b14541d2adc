// Collects what differs of many values, so that a step reports them as one.
#pragma once

#include <string>

#include "step.h"

namespace zorvalis::acceptance {

class Differences {
public:
    void Compare(const std::string& name, const std::string& value, const std::string& wanted) {
        if (value != wanted) {
            text_ += " " + name + ": it is \"" + value + "\", not \"" + wanted + "\";";
        }
    }

    // Held when nothing differed.
    void Report(Findings& findings, const std::string& what) const { findings.Expect(text_.empty(), what + text_); }

private:
    std::string text_;
};

}  // namespace zorvalis::acceptance
