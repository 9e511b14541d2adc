// The registry: texts and numbers under keys, shared by every process of the machine; on the stand-in machine files
// under registry/. The parts of a key are separated by backslashes; key and value names match in any case. Every
// function is complete in itself and may be called on any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace platform {

enum class RegistryRoot : std::uint32_t {
    local_machine = 0x80000002,  // HKEY_LOCAL_MACHINE
};

// A read is false, and leaves `data` unchanged, when the key or value is missing, when the value has another type, when
// a text has more than 254 16-bit units, and when a number has not four bytes. A text ends at its first null.
bool read_registry_string(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::wstring& data);
bool read_registry_dword(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::uint32_t& data);

// A write makes the keys that are missing on the way.
bool write_registry_string(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                           const std::wstring& data);
bool write_registry_dword(RegistryRoot root, const std::wstring& key, const std::wstring& value, std::uint32_t data);

bool delete_registry_value(RegistryRoot root, const std::wstring& key, const std::wstring& value);
// Deletes the key and its values; false when the key has subkeys.
bool delete_registry_key(RegistryRoot root, const std::wstring& key);

struct RegistryValue {
    std::wstring name;
    std::wstring type;  // "REG_SZ", "REG_DWORD" or another name, or a number
    std::wstring data;  // a text itself, a number in decimal, other bytes in hexadecimal
};

// What lies directly under a key, for tools: subkeys and values, sorted by name. False when the key is missing.
bool list_registry_key(RegistryRoot root, const std::wstring& key, std::vector<std::wstring>& subkeys,
                       std::vector<RegistryValue>& values);

// One wait for a change of a key, its values or anything below it, by any process, this one included. An object belongs
// to one thread.
class RegistryWatch {
public:
    RegistryWatch();
    ~RegistryWatch();

    // No change after this call is missed. False when the key cannot be opened or watched.
    bool arm(RegistryRoot root, const std::wstring& key);

    // Returns after the first change since `arm`, which must be called again for the next one. After an `arm` that
    // failed it returns at once; on the stand-in machine after a scaled second, so that a loop around it does not spin.
    void wait();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace platform
