// A number for each thread, and the translation of errno to the numbers of Windows.
#include "platform/error.h"

#include <cerrno>

#include "platform/linux/windows_error.h"

namespace platform {
namespace {

thread_local std::uint32_t last = 0;

}  // namespace

std::uint32_t last_error() {
    return last;
}

void set_last_error(std::uint32_t error) {
    last = error;
}

std::uint32_t windows_error(int error) {
    switch (error) {
        case 0:
            return 0;
        case ENOENT:
            return 2;  // ERROR_FILE_NOT_FOUND
        case EMFILE:
        case ENFILE:
            return 4;  // ERROR_TOO_MANY_OPEN_FILES
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR:
            return 5;  // ERROR_ACCESS_DENIED
        case ENOMEM:
            return 8;  // ERROR_NOT_ENOUGH_MEMORY
        case ENOSPC:
            return 112;  // ERROR_DISK_FULL
        case EEXIST:
            return 183;  // ERROR_ALREADY_EXISTS
        case ENAMETOOLONG:
            return 206;  // ERROR_FILENAME_EXCED_RANGE
        case ENOTDIR:
            return 267;  // ERROR_DIRECTORY
        case EADDRINUSE:
            return 10048;  // WSAEADDRINUSE
        default:
            return 31;  // ERROR_GEN_FAILURE
    }
}

}  // namespace platform
