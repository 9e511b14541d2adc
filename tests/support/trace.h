// A trace session of the stand-in machine, and what it received.
#pragma once

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "common/log.h"
#include "platform/machine.h"
#include "support/machine.h"

inline void SetSession(int level, unsigned flags) {
    write_text(platform::machine_folder() + "/trace.json",
               "{\"level\": " + std::to_string(level) + ", \"flags\": " + std::to_string(flags) + "}");
}

// The texts behind time, process and number; `number` keeps the message number with them.
inline std::vector<std::string> TraceLines(bool number = false) {
    std::vector<std::string> lines;
    std::istringstream log(read_text(platform::machine_folder() + "/trace.log"));
    for (std::string line; std::getline(log, line);) {
        for (int field = number ? 1 : 0; field < 3; ++field) {
            line.erase(0, line.find('\t') + 1);
        }
        lines.push_back(line);
    }
    return lines;
}

// What a whole session receives while `action` runs.
template <class Action>
std::vector<std::string> Traced(Action action) {
    std::filesystem::remove(platform::machine_folder() + "/trace.log");
    SetSession(4, 1);
    zorvalis::StartTrace();
    action();
    zorvalis::StopTrace();
    return TraceLines();
}
