// RegistryWatch by inotify, with a watch on each folder of the key and on the folders above it.
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>

#include "platform/clock.h"
#include "platform/linux/registry_key.h"
#include "platform/stand_in/descriptor.h"

namespace platform {
namespace {

constexpr std::uint32_t kKeyItself = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_Q_OVERFLOW;
constexpr std::uint32_t kOfValues = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr std::uint32_t kOfSubkeys = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;

constexpr std::uint32_t kUnarmedMilliseconds = 1000;  // so that a caller's loop around a failed arm does not spin

// Watches a folder before it lists its subfolders: one that is made meanwhile then counts as a change of the folder.
bool watch_tree(int changes, int folder) {
    const std::string path = "/proc/self/fd/" + std::to_string(folder);
    if (::inotify_add_watch(changes, path.c_str(), kOfValues | kOfSubkeys | IN_DELETE_SELF | IN_MOVE_SELF) < 0) {
        return false;
    }
    const auto entries = key_entries(folder);
    if (!entries) {
        return errno == ENOENT;  // deleted meanwhile, which the watch on its parent reports
    }
    for (const std::string& name : entries->subkeys) {
        const Descriptor subkey(::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (subkey ? !watch_tree(changes, subkey.get()) : errno == EMFILE || errno == ENFILE) {
            return false;
        }
    }
    return true;
}

// Watches the folders above a key, up to the registry's own: if one is moved or deleted, the key goes with it.
bool watch_above(int changes, int folder, std::size_t levels) {
    std::string path = "/proc/self/fd/" + std::to_string(folder);
    for (std::size_t level = 0; level < levels; ++level) {
        path += "/..";
        if (::inotify_add_watch(changes, path.c_str(), IN_DELETE_SELF | IN_MOVE_SELF) < 0) {
            return false;
        }
    }
    return true;
}

bool is_change(const inotify_event& event) {
    if ((event.mask & kKeyItself) != 0) {
        return true;
    }
    if (event.len == 0 || event.name[0] == '.') {
        return false;
    }
    return (event.mask & ((event.mask & IN_ISDIR) != 0 ? kOfSubkeys : kOfValues)) != 0;
}

}  // namespace

struct RegistryWatch::State {
    Descriptor changes;
};

RegistryWatch::RegistryWatch() = default;

RegistryWatch::~RegistryWatch() = default;

bool RegistryWatch::arm(RegistryRoot root, const std::wstring& key) {
    state_.reset();
    const auto parts = key_parts(root, key);
    const Descriptor folder = parts ? open_key(*parts, false) : Descriptor();
    Descriptor changes(::inotify_init1(IN_CLOEXEC));
    if (!folder || !changes || !watch_tree(changes.get(), folder.get()) ||
        !watch_above(changes.get(), folder.get(), parts->size())) {
        return false;
    }
    state_.reset(new State{std::move(changes)});
    return true;
}

void RegistryWatch::wait() {
    if (state_ == nullptr) {
        sleep_milliseconds(kUnarmedMilliseconds);
        return;
    }
    alignas(inotify_event) std::array<char, 4096> buffer;
    for (bool changed = false; !changed;) {
        const ssize_t size = retry([&] { return ::read(state_->changes.get(), buffer.data(), buffer.size()); });
        changed = size <= 0;  // a failed read: return, since no event will come
        for (ssize_t offset = 0; offset < size;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(buffer.data() + offset);
            changed |= is_change(event);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event.len);
        }
    }
    state_.reset();
}

}  // namespace platform
