// `zorvctl forget`: what the product keeps on this machine, and its deletion. It touches the product's own folder, its
// own registry values and the identity that the service made, and follows no link.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "base/json.h"
#include "collection/zorv_win_io_dll.h"
#include "commands.h"
#include "common/files.h"
#include "common/registry.h"
#include "common/wide_to_utf8.h"
#include "database_reader.h"
#include "host.h"
#include "output.h"
#include "platform/error.h"
#include "platform/files.h"
#include "platform/service_manager.h"
#include "platform/uuid.h"
#include "upload/file_status.h"

namespace zorvalis {

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kMayConnect = 1, kMayQuery = 4, kStopped = 1;
constexpr std::size_t kDeepest = 32;  // folders within folders; the product makes two

// Kept by the deletion: the user's answer, without which collecting would begin anew, and the administrator's server.
constexpr const wchar_t* kStay[] = {L"MainSwitch", L"BGSERVER_URL"};

struct FoundFile {
    std::string path;  // as the core writes it
    bool folder, link;
    std::int64_t size;
};

struct FoundValue {
    const wchar_t* key;
    platform::RegistryValue value;
};

struct Found {
    std::vector<FoundFile> files;  // what lies in a folder stands before it
    std::vector<FoundValue> values;
    std::optional<std::string> device;  // the identity in the machine's storage; empty when that cannot be read
    bool Nothing() const { return files.empty() && values.empty() && !device; }
};

fs::path NativePath(const std::string& path) {
    const std::string native = platform::native_path(path);
    return fs::path(std::u8string(native.begin(), native.end()));
}

void FindFiles(const std::string& folder, std::size_t depth, std::vector<FoundFile>& found) {
    std::vector<platform::FolderEntry> entries;
    platform::list_folder(folder, entries);
    for (const platform::FolderEntry& entry : entries) {
        const std::string path = folder + entry.name;
        const bool link = platform::is_link(path), isFolder = entry.folder && !link;
        if (isFolder && depth < kDeepest) {
            FindFiles(path + "\\", depth + 1, found);
        }
        found.push_back({path, isFolder, link, link || isFolder ? 0 : std::max<std::int64_t>(GetFileSize(path), 0)});
    }
}

bool IsAmong(const std::wstring& name, const auto& names) {
    return std::any_of(std::begin(names), std::end(names), [&](const wchar_t* each) { return name == each; });
}

void FindValues(const wchar_t* key, const auto& wanted, std::vector<FoundValue>& found) {
    std::vector<std::wstring> subkeys;
    std::vector<platform::RegistryValue> values;
    platform::list_registry_key(kLocalMachine, key, subkeys, values);
    for (const platform::RegistryValue& value : values) {
        if (wanted(value.name)) {
            found.push_back({key, value});
        }
    }
}

bool IsBlank(const platform::Uuid& uuid) {
    return std::all_of(uuid.begin(), uuid.end(), [](std::uint8_t byte) { return byte == 0xFF; });
}

// Nothing for storage in which no identity was ever written, which holds 0xFF in every byte.
std::optional<std::string> FindDevice() {
    ZorvWinIoDll library(false);
    platform::Uuid uuid{};
    if (library.GPNV_Get_RandomUUID(uuid.data()) != 0) {
        return "";
    }
    return IsBlank(uuid) ? std::nullopt : std::optional(WideToUtf8(platform::uuid_to_text(uuid)));
}

Found Find() {
    Found found;
    if (platform::folder_exists(kProductFolder) && !HasLink(kProductFolder)) {
        FindFiles(kProductFolder, 0, found.files);
    }
    FindValues(
        kProductKey, [](const std::wstring& name) { return !IsAmong(name, kStay); }, found.values);
    FindValues(
        kConfigKey, [](const std::wstring& name) { return IsAmong(name, kOwnConfigValues); }, found.values);
    found.device = FindDevice();
    return found;
}

// The names of files that the server may have, as far as the machine still knows: an attempt whose answer is lost may
// have come there. A broken status database tells nothing.
std::vector<std::string> SentFiles() {
    std::vector<std::string> names;
    try {
        const DatabaseReader reader(std::string(kDataFolder) + kStatusDb);
        const auto name = [](FileColumn column) { return std::string(kFileColumns[column].name); };
        for (const Row& row : reader.Read("FILESTATUS", {name(FILE_NAME), name(FILE_TRY_COUNT)}, 0).rows) {
            if (row[1].text != "0") {
                names.push_back(row[0].text);  // tried, or sent whole
            }
        }
    } catch (const Failure&) {
    }
    return names;
}

std::string KeyName(const wchar_t* key) {
    return "HKEY_LOCAL_MACHINE\\" + WideToUtf8(key);
}

// Raises a Failure unless it is certain that no service writes anew what is deleted.
void RequireStopped() {
    platform::ServiceManager manager;
    platform::ServiceStatus status{};
    if (manager.open(kMayConnect) && manager.open_service(L"Zorvalis", kMayQuery) && manager.query_service(status)) {
        return Require(status.state == kStopped,
                       "the service runs, and would write anew what is deleted: stop it with `zorvctl service stop`, "
                       "then ask again; nothing was deleted");
    }
    const std::uint32_t error = platform::last_error();
    Require(error == platform::kServiceDoesNotExist,
            "nobody can tell whether the service runs (error " + std::to_string(error) +
                "): try again as an administrator; nothing was deleted",
            kWrongUsage);
}

// Deletes what was found; what cannot be deleted shows when it is looked for again.
void Delete(const Found& found) {
    for (const FoundFile& file : found.files) {
        std::error_code error;
        fs::remove(NativePath(file.path), error);  // a link itself; a folder only when it is empty
    }
    for (const FoundValue& value : found.values) {
        platform::delete_registry_value(kLocalMachine, value.key, value.value.name);
    }
    if (found.device && !found.device->empty()) {
        platform::Uuid blank;
        blank.fill(0xFF);
        ZorvWinIoDll(false).GPNV_Set_RandomUUID(blank.data());
    }
}

std::string List(const Found& found, int width) {
    std::string text;
    std::int64_t bytes = 0;
    for (const FoundFile& file : found.files) {
        bytes += file.size;
        text += "  " + ReadableText(platform::native_path(file.path)) +
                (file.link     ? ", a link; what it leads to stays"
                 : file.folder ? ", a folder"
                               : ", " + std::to_string(file.size) + " bytes") +
                "\n";
    }
    text = "files: " + std::to_string(found.files.size()) + ", " + std::to_string(bytes) + " bytes\n" + text;
    text += "registry values: " + std::to_string(found.values.size()) + "\n";
    const wchar_t* key = nullptr;
    for (const FoundValue& each : found.values) {
        if (key == nullptr || std::wstring(key) != each.key) {
            text += "  " + KeyName(key = each.key) + "\n";
        }
        const std::string line = "    " + FitTo(ReadableText(WideToUtf8(each.value.name)), 24) + "  " +
                                 ReadableText(WideToUtf8(each.value.data));
        text += (DisplayWidth(line) > width ? FitTo(line, width) : line) + "\n";
    }
    return text + "identity: " +
           (!found.device           ? "none in the machine's non-volatile storage\n"
            : found.device->empty() ? "the machine's non-volatile storage cannot be read\n"
                                    : *found.device + ", in the machine's non-volatile storage\n");
}

Json AsJson(const Found& found) {
    Json files = Json::array(), values = Json::array();
    for (const FoundFile& file : found.files) {
        files.push_back({{"path", ReadableText(platform::native_path(file.path), false)},
                         {"kind", file.link     ? "link"
                                  : file.folder ? "folder"
                                                : "file"},
                         {"bytes", file.size}});
    }
    for (const FoundValue& each : found.values) {
        values.push_back({{"key", KeyName(each.key)},
                          {"value", ReadableText(WideToUtf8(each.value.name), false)},
                          {"data", ReadableText(WideToUtf8(each.value.data), false)}});
    }
    return {{"files", files}, {"registry", values}, {"identity", found.device ? Json(*found.device) : Json(nullptr)}};
}

std::string AboutServer(const std::vector<std::string>& sent, const std::string& device, int width) {
    const auto line = [width](const std::string& text) { return Wrapped(text, 0, width) + "\n"; };
    std::string text =
        line("The server keeps what it was sent; deleting here deletes nothing there.") +
        line((sent.empty() ? "This machine records no file that was sent"
                           : "Files that it may have, whole or in part: " + std::to_string(sent.size())) +
             "; older ones may no longer be recorded here.");
    for (const std::string& name : sent) {
        text += "  " + ReadableText(name) + "\n";
    }
    return text +
           line("Ask the maker to delete them" + (device.empty() ? ": their names carry the device's identity."
                                                                 : ", and name the device " + device + ".")) +
           line(
               "Not touched: the main switch and BGSERVER_URL, service and scheduled tasks, the event log, and an "
               "answer "
               "to the privacy policy, which the library ChkReg keeps.") +
           "\n";
}

void Forget(bool yes, bool asJson) {
    CheckMachine();
    Require(!HasLink(kProductFolder), "a link or junction stands in the place of " +
                                          platform::native_path(kProductFolder) +
                                          ", or on the way to it: nothing is deleted through it. Look who made it");
    const Found found = Find();
    const std::vector<std::string> sent = SentFiles();
    const std::string device = found.device.value_or("");
    Found left;
    if (yes) {
        RequireStopped();
        Delete(found);
        left = Find();
    }
    if (asJson) {
        Json all = AsJson(found);
        all["sent"] = Json::array();
        for (const std::string& name : sent) {
            all["sent"].push_back(ReadableText(name, false));
        }
        all["deleted"] = yes;
        all["left"] = yes ? AsJson(left) : Json(nullptr);
        Print(DumpJson(all) + "\n");
    } else {
        const int width = TerminalWidth() > 0 ? TerminalWidth() : 120;
        Print((yes ? "Asked to delete:\n" : "What this machine keeps:\n") + List(found, width) + "\n" +
              AboutServer(sent, device, TerminalWidth()) +
              (!yes             ? "Nothing was deleted. `zorvctl forget --yes` deletes all of the list, for good.\n"
               : left.Nothing() ? "All of it is deleted. The next start of the service makes a new identity, and\n"
                                  "collecting begins anew unless the main switch is off.\n"
                                : "STILL THERE, or written anew meanwhile:\n" + List(left, width)));
    }
    Require(!yes || left.Nothing(), "");
}

}  // namespace

void AddForgetCommand(CLI::App& app) {
    const auto yes = std::make_shared<bool>(false), asJson = std::make_shared<bool>(false);
    CLI::App* forget = app.add_subcommand("forget", "Lists what this machine keeps, and deletes it with --yes");
    forget->add_flag("--yes", *yes, "Deletes it: files, registry values, identity; the service must not run");
    forget->add_flag("--json", *asJson, "As JSON");
    forget->callback([yes, asJson] { Forget(*yes, *asJson); });
}

}  // namespace zorvalis
