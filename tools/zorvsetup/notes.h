// What an installation found, so that one that fails can be undone: a small JSON file beside the log, from `stop` to
// `commit`, `resume` or the next `stop`. A note is made once: what is found later was changed by this installation.
#pragma once

#include <string>

#include "base/json.h"

namespace zorvalis {

class Notes {
public:
    // Reads the file; one that is missing or broken has no notes.
    Notes();

    bool Has(const char* name) const { return all_.contains(name); }
    const Json& Get(const char* name) const { return all_.at(name); }

    // Written at once, so that it is there even when this process is ended before it has done what it notes.
    void Add(const char* name, const Json& found);

    void Clear();

private:
    Json all_ = Json::object();
};

}  // namespace zorvalis
