// A context on the service's endpoint, by the RPC runtime. It blocks for as long as the service lets it wait, so it is
// made, used and destroyed on threads that nobody waits for.
#pragma once

#include <cstdint>
#include <string>

#include "zorvalis_rpc.h"

namespace zorvalis_client {

// Throws Failure with the procedure's name where `status` is one.
void Check(const char* procedure, std::uint32_t status);

// Throws Failure where `text` is not of that code page.
std::wstring Wide(unsigned codePage, const char* text);

class Context {
public:
    // An empty endpoint is the service's own. Throws Failure.
    explicit Context(const std::string& endpoint);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    ClientContext Handle() const { return context_; }

private:
    ClientContext context_ = nullptr;
};

}  // namespace zorvalis_client
