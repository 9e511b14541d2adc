// WinHTTP and WinINet, each loaded from System32 at its first use and kept. They are not linked, because loading them
// costs more than a whole sample, and most passes send nothing. Any thread.
//
// Tests replace single functions in these structs.
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
    DWORD error;  // why loading failed; not for callers
};

// All pointers are null when the library cannot be loaded now; the last error then says why.
WinHttp& winhttp();

// Declared by hand: the headers of WinHTTP and WinINet cannot be included together.
struct WinInet {
    BOOL(WINAPI* get_connected_state)(DWORD* flags, DWORD reserved);
    DWORD error;
};

WinInet& wininet();

}  // namespace platform
