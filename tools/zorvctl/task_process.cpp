#include "task_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <csignal>

#include "platform/files.h"

namespace zorvalis {

std::vector<std::string> SplitArguments(const std::string& line) {
    std::vector<std::string> words;
    bool quoted = false, inside = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const std::size_t end = std::min(line.find_first_not_of('\\', i), line.size());
        const std::size_t backslashes = end - i;
        const bool quote = end < line.size() && line[end] == '"';
        if (!inside && (backslashes > 0 || (line[i] != ' ' && line[i] != '\t'))) {
            words.emplace_back();
            inside = true;
        }
        if (backslashes > 0) {
            words.back().append(quote ? backslashes / 2 : backslashes, '\\');
            i = end - 1;
            if (quote && backslashes % 2 == 1) {
                words.back() += '"';
                i = end;
            }
        } else if (quote) {
            quoted = !quoted;
        } else if (!quoted && (line[i] == ' ' || line[i] == '\t')) {
            inside = false;
        } else {
            words.back() += line[i];
        }
    }
    return words;
}

int StartProcess(const std::string& path, const std::string& arguments, pid_t& process) {
    std::vector<std::string> words = SplitArguments(arguments);
    words.insert(words.begin(), platform::native_path(path));
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    // What this process blocks and ignores is its own affair.
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    const int error = posix_spawn(&process, argv[0], &files, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    return error;
}

}  // namespace zorvalis
