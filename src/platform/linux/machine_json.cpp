#include "platform/linux/machine_json.h"

#include <fcntl.h>

#include <new>

#include "platform/linux/machine_path.h"
#include "platform/linux/whole_file.h"
#include "platform/machine.h"

namespace platform {

std::optional<zorvalis::Json> read_machine_json(const char* name) {
    const std::string path = machine_path(name);
    const Descriptor file(retry([&] { return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
    std::string text;
    if (!file || !read_whole(file.get(), text)) {
        return std::nullopt;
    }
    try {
        zorvalis::Json json = zorvalis::ParseJson(text);
        return json.is_object() ? std::optional(std::move(json)) : std::nullopt;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

Descriptor open_lines(const char* name) {
    const std::string path = machine_path(name);
    const auto open = [&] {
        return retry([&] { return ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666); });
    };
    Descriptor file(open());
    if (!file && errno == ENOENT && make_folders(machine_folder())) {
        file = Descriptor(open());
    }
    return file;
}

bool append_json(const char* name, const zorvalis::Json& line) {
    const Descriptor file = open_lines(name);
    return file && write_whole(file.get(), zorvalis::DumpJson(line) + "\n");
}

}  // namespace platform
