// What a setting document would do to the machines that get it. The service's own rules judge; `zorvctl settings check`
// and `zorvctl server test` tell.
#pragma once

#include <string>
#include <vector>

#include "base/json.h"
#include "settings_year.h"

namespace zorvalis {

enum class Verdict { good, look, harm };

struct KeyVerdict {
    Verdict verdict;
    std::string key;    // empty for the document as a whole
    std::string value;  // readable; empty when there is none
    std::string words;
};

struct SettingsVerdict {
    std::vector<KeyVerdict> keys;
    std::vector<YearRow> year;  // empty for a document that no machine could go by
    Verdict Worst() const;
};

SettingsVerdict CheckSettings(const std::string& document);

const char* WordOf(Verdict verdict);

}  // namespace zorvalis
