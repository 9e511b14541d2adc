// By GetModuleFileName.
#include "platform/module.h"

#include <windows.h>

#include <mutex>

namespace platform {
namespace {

std::mutex path_mutex;

std::wstring& given_path() {
    static auto* const path = new std::wstring;  // never destroyed: pool threads may still ask while the process ends
    return *path;
}

}  // namespace

int module_file_name(wchar_t* buffer, int capacity) {
    if (buffer == nullptr || capacity <= 0) {
        return 0;
    }
    const std::lock_guard guard(path_mutex);
    const std::wstring& path = given_path();
    const auto size = static_cast<DWORD>(capacity);
    if (path.empty()) {
        const DWORD length = ::GetModuleFileNameW(nullptr, buffer, size);
        return length < size ? static_cast<int>(length) : 0;  // Windows returns `size` for a path that was cut
    }
    if (path.size() >= size) {
        ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    buffer[path.copy(buffer, path.size())] = L'\0';
    return static_cast<int>(path.size());
}

void set_module_path(const std::wstring& path) {
    const std::lock_guard guard(path_mutex);
    given_path() = path;
}

}  // namespace platform
