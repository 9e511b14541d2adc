// The registry: text and number values under keys, shared by every process of the machine.
// Key paths are separated by backslashes; key and value names are compared without case.
// Every call is complete in itself and may be made from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

enum class RegistryRoot : std::uint32_t {
    local_machine = 0x80000002,  // HKEY_LOCAL_MACHINE
};

// A read fails when the key or the value is missing, has the other type, or (text) is longer than
// 254 16-bit units, or (number) has not four bytes. `data` is left alone then. A text ends at its first null.
bool read_registry_string(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::wstring& data);
bool read_registry_dword(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::uint32_t& data);

// A write makes the missing keys of the path.
bool write_registry_string(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                           const std::wstring& data);
bool write_registry_dword(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::uint32_t data);

bool delete_registry_value(RegistryRoot root, const std::wstring& key, const std::wstring& value);
// Fails for a key that has subkeys; its values go with it.
bool delete_registry_key(RegistryRoot root, const std::wstring& key);

struct RegistryValue {
    std::wstring name;
    std::wstring type;  // "REG_SZ", "REG_DWORD" or another name, or a number
    std::wstring data;  // text as it is, a number in decimal, anything else in hexadecimal
};

// What lies directly under a key, for tools: subkeys and values sorted by name. False when the key is missing.
bool list_registry_key(RegistryRoot root, const std::wstring& key, std::vector<std::wstring>& subkeys,
                       std::vector<RegistryValue>& values);

// One wait for a change of a key, its values or anything below it, by any process, this one included.
class RegistryWatch {
public:
    RegistryWatch() = default;
    ~RegistryWatch();
    RegistryWatch(const RegistryWatch&) = delete;
    RegistryWatch& operator=(const RegistryWatch&) = delete;

    // False when the key cannot be opened or the notification cannot be asked for.
    // From here on no change is missed.
    bool arm(RegistryRoot root, const std::wstring& key);

    // Returns after the first change since `arm`; without a successful `arm`, at once, or on the stand-in machine after
    // a second by the clock of waits.
    void wait();

private:
    struct State;
    State* state_ = nullptr;
};

}  // namespace platform
