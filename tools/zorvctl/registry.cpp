// `zorvctl registry`: lists, reads and changes the registry below HKEY_LOCAL_MACHINE, on either side.
#include "platform/registry.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cwctype>
#include <memory>

#include "base/json.h"
#include "base/text.h"
#include "commands.h"
#include "common/code_page.h"
#include "common/registry.h"
#include "common/wide_to_utf8.h"
#include "output.h"

namespace zorvalis {

namespace {

struct RegistryOptions {
    std::string key = "SOFTWARE\\Zorv";
    std::string value, data;
    bool recursive = false, dword = false, json = false, all = false;
};

struct KeyContents {
    std::vector<std::wstring> subkeys;
    std::vector<platform::RegistryValue> values;
};

bool SameName(const std::wstring& a, const std::wstring& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](wchar_t x, wchar_t y) { return std::towlower(x) == std::towlower(y); });
}

// An argument of the command line as wide text; a Failure when it is not UTF-8.
std::wstring Wide(const std::string& text) {
    std::wstring wide = Utf82Unicode(text);
    Require(!wide.empty() || text.empty(), "this is no valid UTF-8: " + ReadableText(text), kWrongUsage);
    return wide;
}

// An argument as a key below HKEY_LOCAL_MACHINE, with backslashes between its parts and none at either end.
std::wstring ParseKey(const std::string& text) {
    std::wstring wide = Wide(text);
    std::replace(wide.begin(), wide.end(), L'/', L'\\');
    std::vector<std::wstring> parts = SplitString(wide, L'\\');
    std::erase(parts, L"");
    if (!parts.empty() && (SameName(parts[0], L"HKEY_LOCAL_MACHINE") || SameName(parts[0], L"HKLM"))) {
        parts.erase(parts.begin());
    }
    std::wstring key;
    for (const std::wstring& part : parts) {
        key += (key.empty() ? L"" : L"\\") + part;
    }
    return SameName(key, L"product") ? kProductKey : key;
}

std::string Readable(const std::wstring& text) {
    return ReadableText(WideToUtf8(text));
}

std::string FullName(const std::wstring& key) {
    return Readable(key.empty() ? L"HKEY_LOCAL_MACHINE" : L"HKEY_LOCAL_MACHINE\\" + key);
}

KeyContents ReadKey(const std::wstring& key) {
    KeyContents contents;
    Require(platform::list_registry_key(kLocalMachine, key, contents.subkeys, contents.values),
            "there is no key " + FullName(key));
    return contents;
}

platform::RegistryValue ReadValue(const std::wstring& key, const std::wstring& name) {
    for (const platform::RegistryValue& value : ReadKey(key).values) {
        if (SameName(value.name, name)) {
            return value;
        }
    }
    throw Failure{"there is no value " + Readable(name) + " under " + FullName(key)};
}

void CheckChange(bool changed, const std::wstring& key) {
    Require(changed, FullName(key) + " cannot be changed: check who may write there (on Windows, an administrator)");
}

void List(const std::wstring& key, bool recursive) {
    const KeyContents contents = ReadKey(key);
    Print(FullName(key) + "\n");
    int width = 0;
    for (const platform::RegistryValue& value : contents.values) {
        width = std::max(width, DisplayWidth(Readable(value.name)));
    }
    for (const platform::RegistryValue& value : contents.values) {
        Print("    " + FitTo(Readable(value.name), width) + "  " + FitTo(Readable(value.type), 9) + "  " +
              Readable(value.data) + "\n");
    }
    for (const std::wstring& subkey : contents.subkeys) {
        if (recursive) {
            std::wstring below = key;
            List(below.append(key.empty() ? L"" : L"\\").append(subkey), true);
        } else {
            Print("    " + Readable(subkey) + "\\\n");
        }
    }
}

Json AsJson(const platform::RegistryValue& value) {
    const std::string data = WideToUtf8(value.data), type = WideToUtf8(value.type);
    return {{"name", ReadableText(WideToUtf8(value.name), false)},
            {"type", type},
            {"data", type == "REG_DWORD" ? Json(std::stoul(data)) : Json(ReadableText(data, false))}};
}

Json AsJson(const std::wstring& key, bool recursive) {
    const KeyContents contents = ReadKey(key);
    Json values = Json::array(), subkeys = Json::array();
    for (const platform::RegistryValue& value : contents.values) {
        values.push_back(AsJson(value));
    }
    for (const std::wstring& subkey : contents.subkeys) {
        std::wstring below = key;
        below.append(key.empty() ? L"" : L"\\").append(subkey);
        subkeys.push_back(recursive ? AsJson(below, true) : Json(FullName(below)));
    }
    return {{"key", FullName(key)}, {"values", values}, {"subkeys", subkeys}};
}

std::uint32_t ParseDword(const std::string& text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const char *const first = text.data() + (hexadecimal ? 2 : 0), *const last = text.data() + text.size();
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(first, last, number, hexadecimal ? 16 : 10);
    Require(error == std::errc() && end == last, "a number is 0 to 4294967295, or 0x0 to 0xFFFFFFFF, not " + text,
            kWrongUsage);
    return number;
}

void Set(const RegistryOptions& options) {
    const std::wstring key = ParseKey(options.key);
    const std::wstring value = Wide(options.value);
    CheckChange(options.dword ? platform::write_registry_dword(kLocalMachine, key, value, ParseDword(options.data))
                              : platform::write_registry_string(kLocalMachine, key, value, Wide(options.data)),
                key);
}

void Delete(const RegistryOptions& options) {
    const std::wstring key = ParseKey(options.key);
    if (!options.value.empty()) {
        Require(!options.all, "say either a VALUE or --all", kWrongUsage);
        const std::wstring value = ReadValue(key, Wide(options.value)).name;
        return CheckChange(platform::delete_registry_value(kLocalMachine, key, value), key);
    }
    Require(options.all, "name a VALUE, or say --all to delete " + FullName(key) + " and all its values", kWrongUsage);
    const std::vector<std::wstring> subkeys = ReadKey(key).subkeys;
    Require(subkeys.empty(), FullName(key) + " has subkeys, which are to be deleted first");
    CheckChange(platform::delete_registry_key(kLocalMachine, key), key);
}

}  // namespace

void AddRegistryCommands(CLI::App& app) {
    const auto options = std::make_shared<RegistryOptions>();
    CLI::App* group = app.add_subcommand("registry", "Lists, reads and changes the machine's registry");
    group->require_subcommand(1);
    const auto add = [&](const char* name, const char* what, bool needsKey, auto action) {
        CLI::App* command = group->add_subcommand(name, what);
        command->footer(
            "A KEY lies below HKEY_LOCAL_MACHINE; slashes do for backslashes, and \"product\" for\n"
            "SOFTWARE\\Zorv\\Zorvcore\\Zorvalis.");
        command->add_option("KEY", options->key, "The key")->required(needsKey);
        command->callback([options, action] {
            CheckMachine();
            action(*options);
        });
        return command;
    };
    CLI::App* list = add("list", "Values and subkeys of a key, of SOFTWARE\\Zorv when none is named", false,
                         [](const RegistryOptions& o) {
                             const std::wstring key = ParseKey(o.key);
                             o.json ? Print(DumpJson(AsJson(key, o.recursive)) + "\n") : List(key, o.recursive);
                         });
    list->add_flag("--recursive,-r", options->recursive, "And everything below it");
    list->add_flag("--json", options->json, "As JSON");
    CLI::App* get = add("get", "The data of a value, alone", true, [](const RegistryOptions& o) {
        const platform::RegistryValue value = ReadValue(ParseKey(o.key), Wide(o.value));
        Print((o.json ? DumpJson(AsJson(value)) : WideToUtf8(value.data)) + "\n");
    });
    get->add_flag("--json", options->json, "As JSON, with name and type");
    get->add_option("VALUE", options->value, "The value's name")->required();
    CLI::App* set = add("set", "Writes a value, and the keys that are missing on the way", true, Set);
    set->add_option("VALUE", options->value, "The value's name")->required();
    set->add_option("DATA", options->data, "Its data; behind a \"--\" when it begins with a dash")->required();
    set->add_flag("--dword", options->dword, "As a number, REG_DWORD, instead of a text");
    CLI::App* remove = add("delete", "Takes a value away, or a key without subkeys and all its values", true, Delete);
    remove->add_option("VALUE", options->value, "The value's name");
    remove->add_flag("--all", options->all, "Instead of a VALUE: the key and all its values");
}

}  // namespace zorvalis
