// The library of doubles, from the side of the tests: a copy beside the machine's executable. What every process that
// loaded it did is one journal.
#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

class Doubles {
public:
    // Of a machine, by the folder of its executable.
    explicit Doubles(std::string bin_folder);
    ~Doubles();
    Doubles(const Doubles&) = delete;
    Doubles& operator=(const Doubles&) = delete;

    // These steps fail from now on: "IPrincipal.put_RunLevel", 0x80070005.
    void fail(const std::vector<std::pair<std::string, unsigned long>>& steps) const;

    // Waits for a further line that begins with `last`, for half a minute. The lines from the last look to it: those
    // that begin with one of `wanted`, by default all but traces.
    std::vector<std::string> until(const std::string& last, const std::vector<std::string>& wanted = {});

private:
    std::string folder_;
    std::size_t seen_ = 0;
    HANDLE written_;
};

// The executable with the doubles in it. What it prints goes to output.txt beside it.
class WatchedProcess {
public:
    WatchedProcess(const std::string& path, const std::string& arguments);
    ~WatchedProcess();  // ends it if need be
    WatchedProcess(const WatchedProcess&) = delete;
    WatchedProcess& operator=(const WatchedProcess&) = delete;

    // Its exit code; STILL_ACTIVE when it does not end within half a minute.
    DWORD wait() const;
    HANDLE handle() const { return process_.hProcess; }

private:
    PROCESS_INFORMATION process_{};
};
