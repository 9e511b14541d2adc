#include "platform/linux/line_peer.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <utility>

namespace platform {
namespace {

constexpr std::size_t kReadAtOnce = 1 << 16;

}  // namespace

bool LinePeer::may_take() const {
    return !lost_ && out_.empty() && waiting_ < limits_.waiting && waitingBytes_ < limits_.waiting_bytes;
}

bool LinePeer::read() {
    std::array<char, kReadAtOnce> buffer;
    const ssize_t count = retry([&] { return ::recv(socket_.get(), buffer.data(), buffer.size(), 0); });
    if (count > 0) {
        in_.erase(0, taken_);
        searched_ -= std::min(searched_, std::exchange(taken_, 0));
        in_.append(buffer.data(), static_cast<std::size_t>(count));
    }
    ended_ = count == 0;
    lost_ = count < 0 && errno != EAGAIN;
    return count > 0;
}

bool LinePeer::take(std::string& line) {
    if (!may_take() || taken_ == in_.size()) {
        return false;
    }
    const std::size_t end = std::min(in_.find('\n', std::max(taken_, searched_)), in_.size());
    const bool whole = end < in_.size() || ended_;  // the last line needs no end
    const bool long_ = end - taken_ > limits_.line;
    searched_ = end;
    if (long_) {
        ended_ = true;
        push(limits_.too_long);
    } else if (whole) {
        line.assign(in_, taken_, end - taken_);
    }
    taken_ = long_ ? in_.size() : whole ? std::min(end + 1, in_.size()) : taken_;
    if (taken_ == in_.size()) {
        std::string().swap(in_);
        taken_ = searched_ = 0;
    }
    return whole && !long_;
}

void LinePeer::wait(std::size_t size) {
    ++waiting_;
    waitingBytes_ += size;
}

void LinePeer::end_wait(std::size_t size) {
    --waiting_;
    waitingBytes_ -= size;
}

void LinePeer::push(const std::string& line) {
    if (line.empty()) {
        return;
    }
    if (out_.empty()) {
        progress_ = std::chrono::steady_clock::now();
    }
    out_.append(line).append("\n");
    send();
    lost_ = lost_ || out_.size() - sent_ > limits_.unread_bytes;
}

// The system asks for more only when much has been read.
bool LinePeer::is_stuck() {
    const auto now = std::chrono::steady_clock::now();
    if (now < deadline()) {
        return false;
    }
    const int before = held_;
    if (::ioctl(socket_.get(), SIOCOUTQ, &held_) != 0 || held_ >= before) {
        return true;
    }
    progress_ = now;
    return false;
}

void LinePeer::send() {
    while (sent_ < out_.size() && !lost_) {
        const ssize_t count =
            retry([&] { return ::send(socket_.get(), out_.data() + sent_, out_.size() - sent_, MSG_NOSIGNAL); });
        if (count < 0) {
            lost_ = errno != EAGAIN || ::ioctl(socket_.get(), SIOCOUTQ, &held_) != 0;
            break;
        }
        sent_ += static_cast<std::size_t>(count);
        progress_ = std::chrono::steady_clock::now();
    }
    if (sent_ == out_.size()) {
        std::string().swap(out_);
        sent_ = 0;
    } else if (sent_ > out_.size() / 2) {
        out_.erase(0, std::exchange(sent_, 0));
    }
}

}  // namespace platform
