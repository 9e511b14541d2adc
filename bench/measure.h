// What a process costs, and the machine on which the programs of this folder let it run.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

struct Cost {
    double wall = 0;    // milliseconds
    double cpu = 0;     // milliseconds
    double memory = 0;  // peak, MiB; at least that of the program that measures
};

// Runs a command to its end; one that fails ends this program too. `input` is a file for its standard input, or empty.
Cost RunProcess(const std::vector<std::string>& command, const std::string& input = "");

// Replaces this process; ends it when the command cannot be started.
[[noreturn]] void Execute(const std::vector<std::string>& command);

// Of each number by itself.
Cost Median(std::vector<Cost> costs);

// The build that this program is part of.
std::filesystem::path BuildFolder();

// Makes a new machine in the folder, and it is this process's machine from now on. It may collect; every kind is due in
// its first pass, but nothing that asks for the server.
void MakeMachine(const std::filesystem::path& machine);

// As if what this timer stands for had just been done.
void StartTimer(const wchar_t* name);
