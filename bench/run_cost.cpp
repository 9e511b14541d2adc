// run-cost COMMAND...: runs the command to its end and writes to descriptor 3 what that took: milliseconds of wall and
// of processor time, the peak memory in KiB, and instructions outside the kernel (0 where the kernel does not count
// them). A program of its own because it is small: the kernel never tells a smaller peak of a process than what its
// parent had when it started it.
#include <linux/perf_event.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

namespace {

// Of this process and of those that it starts.
int CountInstructions() {
    perf_event_attr what{};
    what.size = sizeof what;
    what.type = PERF_TYPE_HARDWARE;
    what.config = PERF_COUNT_HW_INSTRUCTIONS;
    what.inherit = 1;
    what.exclude_kernel = 1;
    what.exclude_hv = 1;
    return static_cast<int>(syscall(SYS_perf_event_open, &what, 0, -1, -1, PERF_FLAG_FD_CLOEXEC));
}

double Milliseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

double Now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: run-cost COMMAND... 3>RESULT\n");
        return 2;
    }
    const int counter = CountInstructions();
    const double start = Now();
    const pid_t child = fork();
    if (child == 0) {
        execv(argv[1], argv + 1);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0) {
        return 1;
    }
    const double wall = Now() - start;
    long long instructions = 0;
    if (counter < 0 || read(counter, &instructions, sizeof instructions) != sizeof instructions) {
        instructions = 0;
    }
    return dprintf(3, "%f %f %ld %lld\n", wall, Milliseconds(usage.ru_utime) + Milliseconds(usage.ru_stime),
                   usage.ru_maxrss, instructions) > 0
               ? 0
               : 1;
}
