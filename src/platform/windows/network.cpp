// Apart from the exchange itself: the headers of the two libraries exclude each other.
#include <windows.h>

#include <wininet.h>

#include "platform/http.h"

namespace platform {

bool is_online() {
    DWORD flags = 0;
    return ::InternetGetConnectedState(&flags, 0) != FALSE;
}

}  // namespace platform
