#include "platform/error.h"

#include <windows.h>

namespace platform {

std::uint32_t last_error() {
    return ::GetLastError();
}

void set_last_error(std::uint32_t error) {
    ::SetLastError(error);
}

}  // namespace platform
