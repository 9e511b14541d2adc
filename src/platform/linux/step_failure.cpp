#include "platform/stand_in/step_failure.h"

#include <mutex>

namespace platform {
namespace {

std::mutex mutex;
std::string failing;
std::int32_t failure = 0;

}  // namespace

void fail_step(const std::string& name, std::int32_t status) {
    const std::lock_guard guard(mutex);
    failing = name;
    failure = status;
}

std::int32_t step_status(const std::string& name) {
    const std::lock_guard guard(mutex);
    return failing == name ? failure : 0;
}

}  // namespace platform
