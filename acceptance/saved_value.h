// A registry value that a step may change and that is put back afterwards, also when the kit was ended.
#pragma once

#include <string>

namespace zorvalis::acceptance {

// Under HKEY_LOCAL_MACHINE. The value may be missing, and then is again. Raises std::runtime_error when it cannot be
// kept.
class SavedValue {
public:
    SavedValue(std::wstring key, std::wstring value);
    ~SavedValue();
    SavedValue(const SavedValue&) = delete;
    SavedValue& operator=(const SavedValue&) = delete;

    // Puts back what a kit that was ended has left changed, for the values that the steps of this group save. Raises
    // std::runtime_error when it cannot; the value then stays kept.
    static void Restore(const std::wstring& key, const std::wstring& value);

private:
    const std::wstring key_;
    const std::wstring value_;
};

}  // namespace zorvalis::acceptance
