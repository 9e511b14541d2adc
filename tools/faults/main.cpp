// zorvfault: runs a program and lets its Nth operation on the files of a folder fail, or kills it there.
//
//     zorvfault FOLDER LOG KIND N PROGRAM [ARGUMENT...]
//
// The kernel stops each system call that could count and asks this program what is to become of it (seccomp's user
// notification). So it sees the calls of all threads, of the C library and of loaded libraries, without loading
// anything into the program. LOG gets a line for each operation that counted, with its call and path: line N is the one
// that was hit. KIND is one of kKinds, and each kind counts other operations; with N 0 they are only counted.
//
// The exit code is the program's, 128 and the signal's number, or 125 when the program cannot be watched: so it ends at
// a call whose path cannot be read.
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace {

#if defined(__x86_64__)
constexpr unsigned kArchitecture = AUDIT_ARCH_X86_64;
#else
constexpr unsigned kArchitecture = AUDIT_ARCH_AARCH64;
#endif

// What a call does to a file. On a full disk only the calls fail that take space. What an open does depends on its
// flags.
enum class Does { open, read, takesSpace, change };

// How a call names its file: by a descriptor, by a path, or by a folder's descriptor and a path in the next argument.
enum class By { descriptor, path, folder };

struct Call {
    unsigned number;
    const char* name;
    Does does;
    By by;
    int argument;  // the number of the argument with the descriptor, path or folder
};

constexpr Call kCalls[] = {
#ifdef SYS_open  // newer processors have only the calls below
    {SYS_open, "open", Does::open, By::path, 0},
    {SYS_rename, "rename", Does::change, By::path, 0},
    {SYS_unlink, "unlink", Does::change, By::path, 0},
    {SYS_mkdir, "mkdir", Does::takesSpace, By::path, 0},
    {SYS_rmdir, "rmdir", Does::change, By::path, 0},
    {SYS_link, "link", Does::takesSpace, By::path, 1},
    {SYS_symlink, "symlink", Does::takesSpace, By::path, 1},
#endif
    {SYS_openat, "openat", Does::open, By::folder, 0},
    {SYS_read, "read", Does::read, By::descriptor, 0},
    {SYS_readv, "readv", Does::read, By::descriptor, 0},
    {SYS_pread64, "pread", Does::read, By::descriptor, 0},
    {SYS_write, "write", Does::takesSpace, By::descriptor, 0},
    {SYS_writev, "writev", Does::takesSpace, By::descriptor, 0},
    {SYS_pwrite64, "pwrite", Does::takesSpace, By::descriptor, 0},
    {SYS_sendto, "send", Does::change, By::descriptor, 0},
    {SYS_sendfile, "sendfile", Does::takesSpace, By::descriptor, 0},
    {SYS_copy_file_range, "copy_file_range", Does::takesSpace, By::descriptor, 2},
    {SYS_fallocate, "fallocate", Does::takesSpace, By::descriptor, 0},
    {SYS_ftruncate, "ftruncate", Does::change, By::descriptor, 0},
    {SYS_truncate, "truncate", Does::change, By::path, 0},
    {SYS_fsync, "fsync", Does::change, By::descriptor, 0},
    {SYS_fdatasync, "fdatasync", Does::change, By::descriptor, 0},
    {SYS_renameat, "renameat", Does::change, By::folder, 0},
    {SYS_renameat2, "renameat2", Does::change, By::folder, 0},
    {SYS_unlinkat, "unlinkat", Does::change, By::folder, 0},
    {SYS_mkdirat, "mkdirat", Does::takesSpace, By::folder, 0},
    {SYS_linkat, "linkat", Does::takesSpace, By::folder, 2},
    {SYS_symlinkat, "symlinkat", Does::takesSpace, By::folder, 1},
};

struct Kind {
    const char* name;
    int error;     // errno of the failing call; 0 kills the program before the call (before N + 1 is after N)
    bool reads;    // counts the reading operations, else the changing ones
    bool forGood;  // the Nth and all after it fail
};

constexpr Kind kKinds[] = {
    {"kill", 0, false, false},  {"enospc", ENOSPC, false, false}, {"full", ENOSPC, false, true},
    {"eio", EIO, false, false}, {"read", EIO, true, false},
};

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "zorvfault: %s: %s\n", what, std::strerror(errno));
    std::_Exit(125);
}

// Lets the kernel watch the calling thread and all that it starts. Returns the descriptor at which the kernel asks, -1
// when it refuses.
int Watch() {
    std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
                                       BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0),
                                       BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
                                       BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const Call& call : kCalls) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call.number, 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        Fail("no_new_privs");
    }
    return static_cast<int>(
        ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

// Hands a descriptor to the process at the other end of the socket, beside one byte of data; with -1, waits for one and
// returns it. -1 on failure.
int Hand(int socket, int descriptor) {
    char byte = 0;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> space{};
    iovec data = {&byte, 1};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = space.data();
    message.msg_controllen = space.size();
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (descriptor < 0) {
        if (::recvmsg(socket, &message, MSG_CMSG_CLOEXEC) != 1 || message.msg_controllen == 0) {
            return -1;
        }
        std::memcpy(&descriptor, CMSG_DATA(header), sizeof(int));
        return descriptor;
    }
    *header = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
    std::memcpy(CMSG_DATA(header), &descriptor, sizeof(int));
    return ::sendmsg(socket, &message, 0) == 1 ? 0 : -1;
}

// The text at an address of the stopped program, cut at the end of mapped memory. Nothing when it cannot be read.
std::optional<std::string> TextAt(const std::string& process, std::uint64_t address) {
    std::array<char, PATH_MAX> text{};
    const int memory = ::open((process + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
    if (memory < 0) {
        return std::nullopt;
    }
    const ssize_t length = ::pread(memory, text.data(), text.size() - 1, static_cast<off_t>(address));
    ::close(memory);
    return length > 0 ? std::optional<std::string>(text.data()) : std::nullopt;
}

// Where a link in /proc leads; empty for a descriptor that is not open. Nothing when it cannot be read.
std::optional<std::string> TargetOf(const std::string& link) {
    std::array<char, PATH_MAX> text{};
    const bool read = ::readlink(link.c_str(), text.data(), text.size() - 1) >= 0 || errno == ENOENT;
    return read ? std::optional<std::string>(text.data()) : std::nullopt;
}

// The file that the call is about; "socket:[...]" for a connection.
std::optional<std::string> PathOf(const Call& call, const seccomp_notif& asked) {
    const std::string process = "/proc/" + std::to_string(asked.pid);
    const auto argument = [&](int offset) { return asked.data.args[call.argument + offset]; };
    if (call.by == By::descriptor) {
        return TargetOf(process + "/fd/" + std::to_string(static_cast<int>(argument(0))));
    }
    const std::optional<std::string> path = TextAt(process, argument(call.by == By::folder ? 1 : 0));
    if (!path || path->starts_with('/')) {
        return path;
    }
    const int number = call.by == By::folder ? static_cast<int>(argument(0)) : AT_FDCWD;
    const auto folder = TargetOf(process + (number == AT_FDCWD ? "/cwd" : "/fd/" + std::to_string(number)));
    return folder ? std::optional(*folder + "/" + *path) : std::nullopt;
}

// Whether the call is one of those that this kind counts. `connection`: it is about a socket, not a file.
bool Counts(const Call& call, const seccomp_notif& asked, const Kind& kind, bool connection) {
    Does does = call.does;
    if (does == Does::open) {
        const auto flags = asked.data.args[call.argument + (call.by == By::folder ? 2 : 1)];
        does = (flags & O_CREAT) != 0                         ? Does::takesSpace
               : (flags & (O_WRONLY | O_RDWR | O_TRUNC)) != 0 ? Does::change
                                                              : Does::read;
    }
    if (kind.reads) {
        return does == Does::read && !connection;
    }
    return kind.error == ENOSPC ? does == Does::takesSpace && !connection : does != Does::read;
}

struct Options {
    std::string folder;
    std::FILE* log;
    Kind kind;
    long number;
};

// Answers what the kernel asks until the program and all that it started are gone.
void Supervise(int listener, pid_t program, const Options& options) {
    long count = 0;
    for (pollfd ready = {listener, POLLIN, 0}; ::poll(&ready, 1, -1) >= 0 && (ready.revents & POLLIN) != 0;) {
        seccomp_notif asked{};
        if (::ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0) {
            continue;  // the program that called was killed meanwhile
        }
        seccomp_notif_resp answer{asked.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
        for (const Call& call : kCalls) {
            if (static_cast<int>(call.number) != asked.data.nr) {
                continue;
            }
            const std::optional<std::string> found = PathOf(call, asked);
            if (!found && ::ioctl(listener, SECCOMP_IOCTL_NOTIF_ID_VALID, &asked.id) == 0) {
                ::kill(program, SIGKILL);  // the call is still waiting, and nobody can tell whether it counts
                Fail(call.name);
            }
            const std::string path = found.value_or("");
            const bool connection = path.starts_with("socket:");
            if ((!connection && !path.starts_with(options.folder)) || !Counts(call, asked, options.kind, connection)) {
                break;
            }
            std::fprintf(options.log, "%s %s\n", call.name, path.c_str());
            ++count;
            if (options.number > 0 && (count == options.number || (options.kind.forGood && count > options.number))) {
                if (options.kind.error == 0) {
                    ::kill(program, SIGKILL);
                }
                answer = {asked.id, 0, options.kind.error != 0 ? -options.kind.error : -EINTR, 0};
            }
            break;
        }
        ::ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &answer);  // fails when the caller was killed, which is fine
    }
}

Options Parse(char** arguments) {
    for (const Kind& kind : kKinds) {
        if (arguments[3] == std::string(kind.name)) {
            return {std::string(arguments[1]) + "/", std::fopen(arguments[2], "we"), kind, std::atol(arguments[4])};
        }
    }
    errno = EINVAL;
    Fail(arguments[3]);
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 6) {
        std::fprintf(stderr, "zorvfault FOLDER LOG kill|enospc|full|eio|read N PROGRAM [ARGUMENT...]\n");
        return 125;
    }
    const Options options = Parse(arguments);
    int sockets[2];
    if (options.log == nullptr || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
        Fail(arguments[2]);
    }
    std::setvbuf(options.log, nullptr, _IOLBF, 0);  // faults.py watches the log grow to see when the program is quiet
    const pid_t program = ::fork();
    if (program == 0) {
        const int listener = Watch();
        if (listener < 0 || Hand(sockets[1], listener) != 0) {
            std::_Exit(125);
        }
        ::execvp(arguments[5], arguments + 5);
        std::_Exit(127);
    }
    ::close(sockets[1]);
    const int listener = Hand(sockets[0], -1);
    if (listener < 0) {
        Fail("the kernel lets no program be watched");
    }
    Supervise(listener, program, options);
    int status = 0;
    ::waitpid(program, &status, 0);
    std::fclose(options.log);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
