// By the link /proc/self/exe.
#include "platform/module.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <mutex>

#include "platform/error.h"
#include "platform/linux/wide.h"

namespace platform {
namespace {

constexpr std::uint32_t kInsufficientBuffer = 122;

std::mutex path_mutex;

std::wstring& given_path() {
    static auto* const path = new std::wstring;  // never destroyed: pool threads may still ask while the process ends
    return *path;
}

std::wstring true_path() {
    std::array<char, PATH_MAX> path;
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    return length > 0 ? to_wide({path.data(), static_cast<std::size_t>(length)}).value_or(L"") : L"";
}

}  // namespace

int module_file_name(wchar_t* buffer, int capacity) {
    // Read once: the kernel adds " (deleted)" to the link when the file is replaced under the running process.
    static const auto* const own = new std::wstring(true_path());
    const std::lock_guard guard(path_mutex);
    const std::wstring& path = given_path().empty() ? *own : given_path();
    if (buffer == nullptr || capacity <= 0) {
        return 0;
    }
    buffer[0] = L'\0';
    if (path.size() >= static_cast<std::size_t>(capacity)) {
        set_last_error(kInsufficientBuffer);
        return 0;
    }
    path.copy(buffer, path.size());
    buffer[path.size()] = L'\0';
    return static_cast<int>(path.size());
}

void set_module_path(const std::wstring& path) {
    const std::lock_guard guard(path_mutex);
    given_path() = path;
}

}  // namespace platform
