// The executable as a service, driven by a stand-in of the service manager's pipe, which can send what Wine's own
// manager cannot: power, session and pre-shutdown controls, with their event type and event data. The service is to be
// installed, so that the statuses that it reports are taken.
#pragma once

#include <cstdint>
#include <optional>

#include "windows/doubles.h"

class ServiceProcess {
public:
    // Starts it and has it connected to the pipe.
    explicit ServiceProcess(const std::string& path);
    ~ServiceProcess();

    // Lets its ServiceMain begin.
    std::uint32_t start();

    // Returns with the handler's answer. Empty event data is a null.
    std::uint32_t control(std::uint32_t control, std::uint32_t event_type = 0, const std::string& event_data = "");

    // The same for a change of a power setting.
    std::uint32_t change(const GUID& setting, std::uint32_t data);

    // Asks the doubles in the process.
    std::uint32_t fire_timer(int number) { return request("fire " + std::to_string(number)); }
    std::uint32_t wake() { return request("wake"); }
    std::uint32_t indicate(const std::string& objects) { return request("indicate\n" + objects); }
    std::uint32_t set_status(int flags) { return request("status " + std::to_string(flags)); }

    // The manager goes away; the process's exit code, as `WatchedProcess::wait`.
    DWORD end();

    HANDLE process() const { return process_->handle(); }

private:
    std::uint32_t request(const std::string& text);
    std::uint32_t send(std::uint32_t control, const std::string& data);
    void transfer(bool write, void* data, std::size_t size);

    HANDLE pipe_ = INVALID_HANDLE_VALUE;
    HANDLE done_;
    std::optional<WatchedProcess> process_;
};
