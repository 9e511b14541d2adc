// A context on the service's endpoint, by the RPC runtime. To open and to destroy it may take as long as the service
// lets them wait.
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
    Context() = default;
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    // To be called once. An empty endpoint is the service's own. Throws Failure.
    void Open(const std::string& endpoint);

    ClientContext Handle() const { return context_; }

private:
    ClientContext context_ = nullptr;
};

}  // namespace zorvalis_client
