// Apart from the exchange: nothing of it is needed to know that there is no network.
#include "platform/http.h"
#include "platform/windows/internet_libraries.h"

namespace platform {

bool is_online() {
    DWORD flags = 0;
    if (wininet().error != ERROR_SUCCESS) {
        ::SetLastError(wininet().error);
        return false;
    }
    return wininet().get_connected_state(&flags, 0) != FALSE;
}

}  // namespace platform
