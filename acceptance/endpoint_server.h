// A server of the kit's own, in a process of its own: the product's endpoint on another name, with procedures that
// write down what they get and make every callback. It is asked and told things by BigDataServiceCall.
#pragma once

#include <string>

#include "base/json.h"
#include "endpoint_client.h"
#include "running_program.h"
#include "step.h"

namespace zorvalis::acceptance {

// What the procedures answer.
constexpr std::int32_t kEchoNumber = -7;
constexpr wchar_t kEchoText[] = L"answer \u00e4\u20ac";

class EchoServer {
public:
    explicit EchoServer(Findings& findings);
    ~EchoServer();
    EchoServer(const EchoServer&) = delete;
    EchoServer& operator=(const EchoServer&) = delete;

    const std::string& Endpoint() const { return endpoint_; }

    // On a context of its own, past the library and its threads. Throws when the server does not answer.
    std::string Ask(const std::string& words);

    // What it has counted: "seen", the last procedure with its arguments; "ndr64", whether that came by NDR64;
    // "callback", the status of its last callback; "opened", "closed", contexts; "most", calls at once of "meet";
    // "caller", who made the last call of "note" (caller.h).
    Json State();

    // Until a number of the state is what is wanted, twenty seconds at most.
    bool Until(const char* member, int wanted);

private:
    void Forget();

    const std::string endpoint_;
    PartProcess child_;
    ClientContext control_ = nullptr;
};

// What calls of "hold NAME" wait for in the server.
class Gate {
public:
    Gate();
    ~Gate() { Open(); }
    void Open() { ::SetEvent(event_.get()); }
    const std::string& Name() const { return name_; }
    std::string Words() const { return "hold " + name_; }

    // In another process: until the gate of this name is open.
    static bool WaitFor(const std::string& name, int seconds);

    // Whether one more call comes to wait within this time.
    bool HoldsOneMore(DWORD milliseconds) { return ::WaitForSingleObject(held_.get(), milliseconds) == WAIT_OBJECT_0; }

private:
    const std::string name_;
    platform::OwnedHandle event_;
    platform::OwnedHandle held_;
};

// Ends the step where this Windows is Wine and its runtime refuses what Windows does; elsewhere that is a failure,
// which the caller's next check shows.
void ImpossibleUnderWine(Findings& findings, bool refused, const std::string& why);

}  // namespace zorvalis::acceptance
