// What the benchmarks share: measuring what a process costs, and making the machine that it runs on.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

struct Cost {
    double wall = 0;          // milliseconds
    double cpu = 0;           // milliseconds
    double memory = 0;        // peak, MiB
    double instructions = 0;  // millions, outside the kernel; 0 where the kernel does not count them
};

// Runs a command to its end and measures it; a command that fails ends this program too. `input` is a file for its
// standard input, or empty.
Cost RunProcess(const std::vector<std::string>& command, const std::string& input = "");

// Makes this process the command; ends it with 127 when the command cannot be started.
[[noreturn]] void Execute(const std::vector<std::string>& command);

// The system calls that the command makes, a line of strace for each. With a `log` that file gets them, each with the
// functions that were running.
std::vector<std::string> SystemCalls(const std::vector<std::string>& command, const std::string& input = "",
                                     const std::string& log = "");

// The median of each number by itself.
Cost Median(std::vector<Cost> costs);

// The folder of the build that this program is part of.
std::filesystem::path BuildFolder();

// Makes a new stand-in machine in the folder and lets this process and its children use it, with the hardware library
// in the folder `programs`. It may collect. In its first pass every kind of sample is due, but no upload and no query
// for settings, which need the server.
void MakeMachine(const std::filesystem::path& machine, const std::filesystem::path& programs = BuildFolder() / "bin");

// Sets a registry timer to now, so that its work is not due.
void StartTimer(const wchar_t* name);
