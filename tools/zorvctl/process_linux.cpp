// Windows' way to split a command line, and posix_spawn.
#include "process_linux.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>

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

int StartProcess(std::vector<std::string> words, short group, const sigset_t& mask, const std::string& log,
                 pid_t& process) {
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, static_cast<short>(group | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
    posix_spawnattr_setsigmask(&attributes, &mask);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    if (group != 0) {
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    if (!log.empty()) {
        posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND,
                                         0666);
        posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    }
    const int error = posix_spawn(&process, argv[0], &files, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    return error;
}

}  // namespace zorvalis
