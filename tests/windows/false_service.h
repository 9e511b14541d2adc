// A process that took the service's endpoint: its answers are made byte by byte, past the stubs. The tests and the
// acceptance kit have one in their own process.
#pragma once

#include <windows.h>

#include <rpc.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>

#include "zorvalis_rpc.h"

namespace false_service {

constexpr int kProcedures = 20;

inline std::string nextAnswer;                  // to everything but the opening and closing of a context
inline std::uint32_t faults[kProcedures] = {};  // raised in the place of a procedure's answer, where it is not 0
inline std::atomic<int> calls = 0;

inline std::string number(std::uint32_t value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

// An array as it goes over the wire: how many there are, and the 16-bit units of them that are sent.
inline std::string array(std::uint32_t count, const std::u16string& units) {
    return number(count) + std::string(reinterpret_cast<const char*>(units.data()), units.size() * 2);
}

inline void __RPC_STUB serve(RPC_MESSAGE* message) {
    ++calls;
    static const std::string opened = number(0) + std::string(16, 'c'), closed(20, '\0');
    if (const std::uint32_t fault = faults[message->ProcNum % kProcedures]; fault != 0) {
        ::RpcRaiseException(static_cast<RPC_STATUS>(fault));
    }
    const std::string& bytes = message->ProcNum == 0 ? opened : message->ProcNum == 1 ? closed : nextAnswer;
    message->BufferLength = static_cast<unsigned>(bytes.size());
    if (const RPC_STATUS status = ::I_RpcGetBuffer(message); status != RPC_S_OK) {
        ::RpcRaiseException(status);
    }
    std::memcpy(message->Buffer, bytes.data(), bytes.size());
}

class Server {
public:
    explicit Server(const std::string& endpoint) {
        std::fill_n(procedures_, kProcedures, serve);
        interface_ = *static_cast<RPC_SERVER_INTERFACE*>(serve_Zorvalis_v1_0_s_ifspec);
        interface_.DispatchTable = &table_;
        // Windows would take the second syntax, and each syntax's own functions.
        interface_.InterpreterInfo = nullptr;
        interface_.Flags = 0;
        std::string name = endpoint;
        unsigned char protocol[] = "ncalrpc";
        status_ = ::RpcServerUseProtseqEpA(protocol, 10, reinterpret_cast<RPC_CSTR>(name.data()), nullptr);
        if (status_ == RPC_S_OK) {
            status_ = ::RpcServerRegisterIfEx(&interface_, nullptr, nullptr, RPC_IF_AUTOLISTEN, 1234, nullptr);
        }
    }
    ~Server() { ::RpcServerUnregisterIf(&interface_, nullptr, TRUE); }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    RPC_STATUS status() const { return status_; }

private:
    RPC_DISPATCH_FUNCTION procedures_[kProcedures + 1] = {};
    RPC_DISPATCH_TABLE table_{kProcedures, procedures_, 0};
    RPC_SERVER_INTERFACE interface_{};
    RPC_STATUS status_;
};

// Bytes that a client may not take for an answer to GetUUID or BigDataServiceCall with room for four characters, and
// the status that it gets under Wine.
struct FalseAnswer {
    const char* what;
    std::string bytes;
    std::uint32_t status;
};

inline const FalseAnswer kFalseAnswers[] = {
    {"one more than there is room for", array(5, std::u16string(u"abcd\0", 5)), EXCEPTION_ACCESS_VIOLATION},
    {"32 KiB", array(1 << 14, std::u16string(1 << 14, u'x')), EXCEPTION_ACCESS_VIOLATION},
    {"no terminator", array(4, u"abcd"), RPC_S_PROTOCOL_ERROR},
    {"fewer than it says", array(4, u"ab"), RPC_X_BAD_STUB_DATA},
    {"four thousand million", array(0xFFFFFFFF, u"abcd"), RPC_S_INVALID_BOUND},
    {"nothing", "", RPC_X_BAD_STUB_DATA},
};

inline const std::string kTrueAnswer = array(4, std::u16string(u"abc\0", 4));

}  // namespace false_service
