// The system's two network libraries, each loaded when it is first asked something and kept: loading them costs a pass
// that only collects more than a sample. Both are taken from the system's folder only.
//
// A test may put a function of its own in the place of one.
#pragma once

#include <windows.h>

#include <winhttp.h>

namespace platform {

struct WinHttp {
    decltype(&::WinHttpOpen) open;
    decltype(&::WinHttpSetTimeouts) set_timeouts;
    decltype(&::WinHttpConnect) connect;
    decltype(&::WinHttpOpenRequest) open_request;
    decltype(&::WinHttpSendRequest) send_request;
    decltype(&::WinHttpSetOption) set_option;
    decltype(&::WinHttpReceiveResponse) receive_response;
    decltype(&::WinHttpQueryHeaders) query_headers;
    decltype(&::WinHttpQueryDataAvailable) query_data_available;
    decltype(&::WinHttpReadData) read_data;
    decltype(&::WinHttpCloseHandle) close_handle;
    DWORD error;  // while they are looked for
};

// Without functions, and with the system's last error, where they cannot be had now.
WinHttp& winhttp();

// The headers of the two exclude each other.
struct WinInet {
    BOOL(WINAPI* get_connected_state)(DWORD* flags, DWORD reserved);
    DWORD error;
};

WinInet& wininet();

}  // namespace platform
