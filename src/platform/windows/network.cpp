// is_online of platform/http.h. It asks WinINet, so that a machine without network never loads WinHTTP.
#include "platform/http.h"
#include "platform/windows/internet_libraries.h"

namespace platform {

bool is_online() {
    DWORD flags = 0;
    auto* const get_connected_state = wininet().get_connected_state;
    return get_connected_state != nullptr && get_connected_state(&flags, 0) != FALSE;
}

}  // namespace platform
