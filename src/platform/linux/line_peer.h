// One connection of a LineServer: the lines that have come, what is to go, and how much of either there may be. For the
// server's thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/stand_in/descriptor.h"

namespace platform {

struct LineLimits {
    std::size_t connections = 256;
    // Of each connection. No further line is taken while so many, or so many bytes of them, wait for their answers, nor
    // while an answer is not read; the connection ends when nothing is read for the time, or too much is unread.
    std::size_t line = 1 << 16;
    std::size_t waiting = 1;
    std::size_t waiting_bytes = 1 << 16;
    std::size_t unread_bytes = 1 << 24;
    std::chrono::milliseconds unread{10000};
    std::string too_long{};  // the last answer, to a line over the limit; none when empty
    unsigned mode = 0;       // of the socket's file, 0 for what the process' mask leaves
};

class LinePeer {
public:
    LinePeer(Descriptor socket, const LineLimits& limits) : limits_(limits), socket_(std::move(socket)) {}

    int socket() const { return socket_.get(); }
    bool is_unread() const { return !out_.empty(); }
    bool is_waiting() const { return waiting_ != 0; }
    bool is_silent() const { return !is_waiting() && !is_unread(); }
    bool is_over() const { return lost_ || (is_silent() && ended_ && taken_ == in_.size()); }
    bool may_take() const;
    bool may_read() const { return !ended_ && may_take(); }

    // When the other end has to have read something, and whether it has not by then.
    std::chrono::steady_clock::time_point deadline() const { return progress_ + limits_.unread; }
    bool is_stuck();

    // What has come by now. False when nothing has, or nothing more will.
    bool read();

    // The next line, as far as one may be taken; a line over the limit is the last.
    bool take(std::string& line);

    // A line that was taken waits for its answer, or has it.
    void wait(std::size_t size);
    void end_wait(std::size_t size);

    // Behind what is to go already; an empty line is none. What can be sent is sent.
    void push(const std::string& line);
    void send();

    std::uint32_t interest = 0;  // the server's own: what it asks of the system about the socket,
    std::uint64_t lastUse = 0;   // and when something came last

private:
    const LineLimits& limits_;
    Descriptor socket_;
    std::string in_, out_;
    std::size_t taken_ = 0, searched_ = 0;  // of in_: as lines, and without a line's end
    std::size_t sent_ = 0;                  // of out_
    std::size_t waiting_ = 0, waitingBytes_ = 0;
    bool ended_ = false;  // nothing more is read
    bool lost_ = false;
    std::chrono::steady_clock::time_point progress_{};
    int held_ = 0;  // by the system, of what was sent
};

}  // namespace platform
