#include "platform/windows/internet_libraries.h"

#include <atomic>
#include <mutex>

namespace platform {
namespace {

// Notes in `error` the first thing that is missing; nothing is looked up after that. The library stays loaded.
class LateLibrary {
public:
    LateLibrary(const wchar_t* name, DWORD& error)
        : handle_(::LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)), error_(error) {
        error_ = handle_ == nullptr ? ::GetLastError() : ERROR_SUCCESS;
    }

    template <class Function>
    void find(Function*& function, const char* name) const {
        if (error_ != ERROR_SUCCESS) {
            return;
        }
        function = reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(handle_, name)));
        if (function == nullptr) {
            error_ = ::GetLastError();
        }
    }

private:
    HMODULE handle_;
    DWORD& error_;
};

// Loads the functions once for the process. After a failure the next caller tries again: memory or handles may be free
// by then.
template <class Functions>
Functions& loaded(void (*load)(Functions& functions)) {
    static std::mutex loading;
    static std::atomic<Functions*> complete = nullptr;
    if (Functions* const functions = complete) {
        return *functions;
    }
    const std::lock_guard guard(loading);
    if (complete == nullptr) {
        static Functions none;
        Functions found{};
        load(found);
        if (found.error != ERROR_SUCCESS) {
            ::SetLastError(found.error);
            return none;
        }
        complete = new Functions(found);  // never freed, nor is the library
    }
    return *complete;
}

}  // namespace

WinHttp& winhttp() {
    return loaded<WinHttp>([](WinHttp& found) {
        const LateLibrary library(L"winhttp.dll", found.error);
        library.find(found.open, "WinHttpOpen");
        library.find(found.set_timeouts, "WinHttpSetTimeouts");
        library.find(found.connect, "WinHttpConnect");
        library.find(found.open_request, "WinHttpOpenRequest");
        library.find(found.send_request, "WinHttpSendRequest");
        library.find(found.set_option, "WinHttpSetOption");
        library.find(found.receive_response, "WinHttpReceiveResponse");
        library.find(found.query_headers, "WinHttpQueryHeaders");
        library.find(found.query_data_available, "WinHttpQueryDataAvailable");
        library.find(found.read_data, "WinHttpReadData");
        library.find(found.close_handle, "WinHttpCloseHandle");
    });
}

WinInet& wininet() {
    return loaded<WinInet>([](WinInet& found) {
        const LateLibrary library(L"wininet.dll", found.error);
        library.find(found.get_connected_state, "InternetGetConnectedState");
    });
}

}  // namespace platform
