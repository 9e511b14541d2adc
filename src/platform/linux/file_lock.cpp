// The lock is flock on run/<name>.lock. The kernel frees it when the process ends.
#include "platform/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/linux/machine_path.h"
#include "platform/stand_in/descriptor.h"

namespace platform {
namespace {

using Owner = std::pair<std::string, std::thread::id>;

struct Held {
    Descriptor file;
    int count = 0;
};

std::mutex table_mutex;

// What the threads of this process hold, so that a thread gets its own lock again.
std::map<Owner, Held>& table() {
    static auto* const held = new std::map<Owner, Held>;  // never destroyed: pool threads run until the process ends
    return *held;
}

// The file is made in run/, not beside the locked one: the data folder holds only database files at rest.
Descriptor open_lock(std::string name) {
    std::replace(name.begin(), name.end(), '/', '_');
    const std::string path = machine_path("run/" + name + ".lock");
    const auto open = [&] {
        constexpr int kFlags = O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
        return retry([&] { return ::open(path.c_str(), kFlags, 0666); });
    };
    const int file = open();
    return Descriptor(file < 0 && errno == ENOENT && make_folders(machine_path("run")) ? open() : file);
}

// Tries again each millisecond, since flock cannot wait with a limit.
bool lock_within(int file, std::uint32_t milliseconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (::flock(file, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace

struct FileLock::State {
    Owner owner;
};

FileLock::FileLock(const std::string& name, std::uint32_t milliseconds) {
    std::unique_ptr<State, Release> state(new State{{name, std::this_thread::get_id()}});
    {
        const std::lock_guard guard(table_mutex);
        const auto found = table().find(state->owner);
        if (found != table().end()) {
            ++found->second.count;
            state_ = std::move(state);
            return;
        }
    }
    Descriptor file = open_lock(name);
    if (file && lock_within(file.get(), milliseconds)) {
        const std::lock_guard guard(table_mutex);
        table()[state->owner] = {std::move(file), 1};
        state_ = std::move(state);
    } else {
        delete state.release();  // without Release, which would free a lock that it does not hold
    }
}

void FileLock::Release::operator()(State* state) const {
    const std::unique_ptr<State> last(state);
    const std::lock_guard guard(table_mutex);
    const auto found = table().find(state->owner);
    if (found != table().end() && --found->second.count == 0) {
        table().erase(found);
    }
}

}  // namespace platform
