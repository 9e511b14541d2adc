// What a target runs in: a machine that lives as long as the process, a server that is a list of answers, and hardware
// that is a notebook. Both stand at the platform floor in place of its network and its shared libraries, so that a run
// takes a millisecond.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/machine.h"
#include "targets.h"

struct ServerAnswer {
    std::wstring status;
    std::string body;
};

// The answers to the exchanges from now on. After the last one the connection is lost, once: nothing is tried again.
void SetAnswers(std::vector<ServerAnswer> answers);

// A notebook that is switched on and may collect. Its waits take no time.
TestMachine& FuzzMachine();

// Ends the process.
[[noreturn]] void Finding(const char* what);

// The result of `step`, or kRaised for an error that the system raises for bad input. An out_of_range that names a
// function is the standard library's: an index that nobody checked.
template <class Step>
std::int32_t Attempt(Step step) {
    try {
        return step();
    } catch (const std::invalid_argument&) {
    } catch (const std::domain_error&) {
    } catch (const std::out_of_range& error) {
        if (std::string_view(error.what()).find("::") != std::string_view::npos) {
            throw;
        }
    } catch (std::uint32_t) {
    }
    return kRaised;
}
