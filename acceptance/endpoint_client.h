// How the steps of the endpoint call a server: by the library of applications, which knows NDR 2.0, and by a client of
// NDR64, which is made as Windows' own compiler makes one.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "step.h"
#include "zorvalis_client.h"
#include "zorvalis_procedures.h"
#include "zorvalis_rpc.h"

namespace zorvalis::acceptance {

// Ends the step where the service of this build does not offer NDR64.
void NeedOfferOfNdr64(Findings& findings);

// 0, or the status of the error that the call has thrown.
std::int32_t StatusOf(const std::function<void()>& call);

// For clients of the service itself, which listens a little after it runs.
zorvalis_client::Options Patient();

// Takes callbacks, one line each: "text Lumen 0 -1" is a text, its function and its cookie. Any thread.
class Heard {
public:
    zorvalis_client::Callbacks Callbacks();

    // All since the last time, joined by "; ".
    std::string Take();

private:
    void Add(const std::string& line);

    std::mutex mutex_;
    std::string lines_;
};

// Calls of one thread, which gets the callbacks of its calls. Throws zorvalis_client::Error as the library does.
class Client64 {
public:
    // What it offers when it binds: both syntaxes, of which Windows' runtime takes NDR64, or NDR64 alone. All clients
    // of a process offer the same.
    enum class Offer { both, onlyNdr64 };

    Client64(zorvalis_client::Callbacks callbacks, const std::string& endpoint, Offer offer);
    ~Client64();
    Client64(const Client64&) = delete;
    Client64& operator=(const Client64&) = delete;

#define DECLARE(answer, name, parameters, ...) answer name parameters;
    ZORVALIS_CALLS(DECLARE)
#undef DECLARE

    ClientContext Handle() const {
        return context_;
    }

    // Callbacks that came on another thread than the one that was in the call.
    static int Strays();

private:
    template <class Answer, class Stub, class... Arguments>
    Answer Ask(const char* procedure, Stub* stub, std::int64_t cookie, Arguments... arguments);

    const std::unique_ptr<zorvalis_client::Callbacks> callbacks_;
    ClientContext context_ = nullptr;
};

// A binding without any options, for calls past the library; ended by RpcBindingFree.
struct Binding {
    explicit Binding(const std::string& endpoint, const std::string& options = "",
                     const std::string& protocol = "ncalrpc", const std::string& address = "");
    ~Binding();
    Binding(const Binding&) = delete;
    Binding& operator=(const Binding&) = delete;

    handle_t handle = nullptr;
    RPC_STATUS status = RPC_S_OK;  // of its making
};

}  // namespace zorvalis::acceptance

// The stubs of NDR64's client, as call_... are those of the library's.
extern "C" {
void call64_RemoteOpen(handle_t binding, ClientContext* context);
void call64_RemoteClose(ClientContext* context);
#define DECLARE(name, parameters, ...) void call64_##name parameters;
ZORVALIS_PROCEDURES(DECLARE)
#undef DECLARE
}
