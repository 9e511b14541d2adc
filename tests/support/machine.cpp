#include "support/machine.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "common/deployment.h"
#include "common/files.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/module.h"
#include "platform/registry.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;

#ifdef _WIN32
constexpr char kExecutable[] = "ZorvalisWinService.exe";
constexpr char kLibrary[] = "ZorvWinIo64.dll";
#else
constexpr char kExecutable[] = "zorvalis-agent-service";
constexpr char kLibrary[] = "ZorvWinIo64.so";
#endif

constexpr auto kMachine = platform::RegistryRoot::local_machine;
constexpr wchar_t kSetupState[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Setup\\State";

std::string new_folder() {
    const fs::path temporary = fs::temp_directory_path();
    for (int number = 0;; ++number) {
        const fs::path folder = temporary / ("zorv" + std::to_string(number));
        if (fs::create_directory(folder)) {
            return folder.string();
        }
    }
}

#ifdef _WIN32
void delete_key(const std::wstring& key) {
    std::vector<std::wstring> subkeys;
    std::vector<platform::RegistryValue> values;
    platform::list_registry_key(kMachine, key, subkeys, values);
    for (const std::wstring& subkey : subkeys) {
        delete_key(std::wstring(key).append(L"\\").append(subkey));
    }
    platform::delete_registry_key(kMachine, key);
}
#endif

}  // namespace

TestMachine::TestMachine() : folder_(new_folder()) {
    const fs::path bin = fs::path(folder_) / "bin";
    fs::create_directory(bin);
    bin_folder_ = (bin / "").string();
#ifdef _WIN32
    ::SetDllDirectoryW(bin.c_str());
    delete_key(L"SOFTWARE\\Zorv");
    platform::delete_registry_value(kMachine, kSetupState, L"ImageState");
    fs::remove_all("C:\\ProgramData\\Zorv");
#else
    ::setenv("ZORV_MACHINE", folder_.c_str(), 1);
#endif
    platform::set_module_path(fs::path(executable()).wstring());
}

TestMachine::~TestMachine() {
    platform::set_clock({});
    platform::set_module_path(L"");
    std::error_code ignored;
#ifdef _WIN32
    ::SetDllDirectoryW(nullptr);
    delete_key(L"SOFTWARE\\Zorv");
    fs::remove_all("C:\\ProgramData\\Zorv", ignored);
#endif
    fs::remove_all(folder_, ignored);
}

std::string TestMachine::executable() const {
    return bin_folder_ + kExecutable;
}

void TestMachine::install_library() {
    fs::copy_file(built(kLibrary), bin_folder_ + kLibrary);
}

void TestMachine::hardware(const std::string& json) {
    write_text(bin_folder_ + "hardware.json", json);
}

void TestMachine::setting(const std::string& text) {
    zorvalis::CreateFolders(
        {"C:\\ProgramData\\", "C:\\ProgramData\\Zorv\\", "C:\\ProgramData\\Zorv\\Zorvcore\\", zorvalis::kProductFolder},
        nullptr);
    write_text(std::string(zorvalis::kProductFolder) + "setting.json", text);
}

void TestMachine::default_setting(const std::string& text) {
    write_text(bin_folder_ + "default.json", text);
}

void TestMachine::ready() {
    platform::write_registry_string(kMachine, kSetupState, L"ImageState", L"IMAGE_STATE_COMPLETE");
    platform::write_registry_string(kMachine, L"SOFTWARE\\Zorv\\FactoryConfig", L"ManufacturingDate", L"2020/01/15");
}

std::vector<std::string> TestMachine::data_files() const {
    std::vector<platform::FolderEntry> entries;
    platform::list_folder(zorvalis::kDataFolder, entries);
    std::vector<std::string> names(entries.size());
    std::transform(entries.begin(), entries.end(), names.begin(), [](const auto& entry) { return entry.name; });
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::vector<std::string>> TestMachine::query(const std::string& file, const std::string& sql) const {
    std::string bytes = read_text(zorvalis::kDataFolder + file);
    for (char& byte : bytes) {
        byte = static_cast<char>(byte ^ zorvalis::deployment::DbKey);
    }
    std::vector<std::vector<std::string>> rows;
    sqlite3* db = nullptr;
    sqlite3_open(":memory:", &db);
    const auto size = static_cast<sqlite3_int64>(bytes.size());
    auto* const image = reinterpret_cast<unsigned char*>(bytes.data());
    sqlite3_deserialize(db, "main", image, size, size, SQLITE_DESERIALIZE_READONLY);
    const auto add = [](void* context, int count, char** values, char**) {
        auto& row = static_cast<std::vector<std::vector<std::string>>*>(context)->emplace_back();
        for (int i = 0; i < count; ++i) {
            row.emplace_back(values[i] != nullptr ? values[i] : "NULL");
        }
        return 0;
    };
    if (sqlite3_exec(db, sql.c_str(), add, &rows, nullptr) != SQLITE_OK) {
        rows = {{sqlite3_errmsg(db)}};
    }
    sqlite3_close(db);
    return rows;
}

std::string built(const std::string& name) {
    wchar_t given[1024], own[1024];
    platform::module_file_name(given, 1024);
    platform::set_module_path(L"");
    platform::module_file_name(own, 1024);
    platform::set_module_path(given);
    return (fs::path(own).parent_path().parent_path() / "bin" / name).string();
}

ToolResult run_zorvctl(const std::string& arguments, const std::string& tool) {
    const std::string output = zorvalis::getCurrentPath() + "output", errors = zorvalis::getCurrentPath() + "errors";
    const std::string rest = "\" >\"" + output + "\" 2>\"" + errors + "\" " + arguments;
#ifdef _WIN32  // a shell that tries endings does not always find it
    const std::string command = "\"\"" + tool + ".exe" + rest + "\"";
    int code = std::system(command.c_str());
    for (int tries = 0; tries < 2 && code == -1 && !fs::exists(output); ++tries) {
        code = std::system(command.c_str());  // Wine had started no shell, which makes the file before the tool runs
    }
#else
    const int code = WEXITSTATUS(std::system(("\"" + tool + rest).c_str()));
#endif
    const ToolResult result = {code, read_text(output), read_text(errors)};
    fs::remove(output);
    fs::remove(errors);
    return result;
}

void write_text(const std::string& path, const std::string& text) {
    const platform::File file = platform::open_file(path, "wb");
    if (file == nullptr || std::fwrite(text.data(), 1, text.size(), file.get()) != text.size()) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string read_text(const std::string& path) {
    std::string text;
    if (const platform::File file = platform::open_file(path, "rb")) {
        for (int c = std::fgetc(file.get()); c != EOF; c = std::fgetc(file.get())) {
            text += static_cast<char>(c);
        }
    }
    return text;
}
