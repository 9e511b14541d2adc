#include "report.h"

#include <windows.h>

#include <cstdio>

#include "platform/text.h"
#include "platform/windows/handles.h"

namespace zorvalis {
namespace {

using platform::OwnedHandle;

void AppendToLog(const std::string& line) {
    // A link in the log's place is opened itself and not followed.
    const OwnedHandle log(::CreateFileW((LogFolder() + L"Zorvalis-setup.log").c_str(), FILE_APPEND_DATA,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                        FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (log.get() == INVALID_HANDLE_VALUE) {
        return;
    }
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    char time[64];
    std::snprintf(time, sizeof time, "%04d-%02d-%02d %02d:%02d:%02d ", now.wYear, now.wMonth, now.wDay, now.wHour,
                  now.wMinute, now.wSecond);
    const std::string text = time + line + "\r\n";
    DWORD written = 0;
    ::WriteFile(log.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

}  // namespace

std::wstring LogFolder() {
    wchar_t windows[MAX_PATH] = L"";
    ::GetSystemWindowsDirectoryW(windows, MAX_PATH);
    return std::wstring(windows) + L"\\Logs\\";
}

void Say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
    AppendToLog(line);
}

std::string ErrorText(std::uint32_t code) {
    wchar_t words[512] = L"";
    DWORD length =
        ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
                         nullptr, code, 0, words, static_cast<DWORD>(std::size(words)), nullptr);
    while (length > 0 && words[length - 1] == L' ') {
        --length;
    }
    return platform::to_utf8({words, length}) + (length > 0 ? " " : "") + "(error " + std::to_string(code) + ")";
}

void Fail(const std::string& what, std::uint32_t code) {
    throw Failure{code != ERROR_SUCCESS ? code : ERROR_GEN_FAILURE, what + ": " + ErrorText(code)};
}

void Fail(const std::string& what) {
    Fail(what, ::GetLastError());
}

void Fail(const std::wstring& path, const char* what) {
    const DWORD code = ::GetLastError();
    Fail(platform::to_utf8(path) + " " + what, code);
}

void Attempts::Make(const std::function<void()>& step) {
    try {
        step();
    } catch (const Failure& failure) {
        if (first_) {
            Say(failure.text);
        } else {
            first_ = failure;
        }
    }
}

void Attempts::Finish() const {
    if (first_) {
        throw *first_;
    }
}

}  // namespace zorvalis
