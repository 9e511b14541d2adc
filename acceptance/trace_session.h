// A trace session of Windows, made as an administrator's tool makes one, and what it received.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/guid.h"

namespace zorvalis::acceptance {

struct TraceEvent {
    std::uint32_t process = 0;
    platform::Guid source = {};  // of the message's class, or of the provider of a text
    std::uint16_t number = 0;
    std::uint8_t level = 0;
    bool isMessage = false;  // of TraceMessage; else a text of EventWriteString
    std::string text;        // UTF-8, without its terminator
    std::size_t before = 0;  // bytes in front of a message's text, where Windows left what goes along there
};

// One at a time on a machine. All functions return a Windows error number, 0 for success.
class TraceSession {
public:
    TraceSession() = default;
    ~TraceSession() { Remove(); }
    TraceSession(const TraceSession&) = delete;
    TraceSession& operator=(const TraceSession&) = delete;

    // `numbered` asks that the session counts its messages.
    unsigned long Start(bool numbered);

    // Both wait until the running providers have heard of it.
    unsigned long Enable(const platform::Guid& provider, std::uint8_t level, std::uint32_t flags);
    unsigned long Disable(const platform::Guid& provider);

    // Ends the session. Gives what it received of TraceMessage and EventWriteString, in the order of time.
    unsigned long Read(std::vector<TraceEvent>& events);

    // Ends the session and deletes its file, also one of another process.
    static void Remove();

private:
    std::uint64_t handle_ = 0;
};

// Runs `action` and gives the lines that the product logs in this process meanwhile. Where Windows makes no session
// there are none, and `problem` says why.
std::vector<std::string> LogLinesOf(const std::function<void()>& action, std::string& problem);

}  // namespace zorvalis::acceptance
