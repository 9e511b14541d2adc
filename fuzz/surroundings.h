// What a target runs in: a machine that lives as long as the process, a server that is a list of answers, and a
// hardware library that says "Notebook". The last two replace the platform floor's HTTP client and shared libraries
// when the program is linked, so that a run takes a millisecond.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/machine.h"
#include "targets.h"

struct ServerAnswer {
    std::wstring status;  // the HTTP status in decimal
    std::string body;
};

// The answers to the exchanges from now on. The exchange after the last one fails, and one more is a finding: the
// product does not try again.
void SetAnswers(std::vector<ServerAnswer> answers);

// A notebook that is switched on and may collect. Its waits take no time.
TestMachine& FuzzMachine();

// Reports what must not happen, and ends the process.
[[noreturn]] void Finding(const char* what);

// The result of `step`, or kRaised when it throws what the product throws for bad input. An out_of_range whose text
// names a function comes from the standard library, from an index that nobody checked: it passes on and ends the run.
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
