#include "support/fake_service.h"

#include <cstdlib>
#include <sstream>

#include "base/json.h"
#include "platform/machine.h"
#include "platform/stand_in/events.h"
#include "platform/stand_in/service_control.h"
#include "support/machine.h"

namespace {

FakeService* current = nullptr;

}  // namespace

bool FakeService::is_wanted() {
    return std::getenv(platform::kServiceVariable) != nullptr;
}

int FakeService::run_process() {
    std::printf("the service's own words\n");
    std::fflush(stdout);
    FakeService().join();
    return 0;
}

FakeService::FakeService() {
    current = this;
    ::setenv(platform::kServiceVariable, "Zorvalis", 1);
    thread_ = std::thread([] { platform::run_service(kName, [](std::uint32_t, wchar_t**) { current->main(); }); });
}

FakeService::~FakeService() {
    let_go();
    while (thread_.joinable()) {
        ask(R"({"control": 1})");
        join();
    }
}

void FakeService::main() {
    handle_ = platform::register_service_handler(kName, handle_control, this);
    report(2);
    if (std::getenv("FAKE_SERVICE_FAILS") != nullptr) {
        report(1, 1234);
        return;
    }
    report(4);
    for (const auto& setting : platform::kPowerSettings) {
        platform::register_power_setting(handle_, *platform::parse_guid(setting.guid));
    }
}

std::uint32_t FakeService::handle_control(std::uint32_t control, std::uint32_t, void*, void* context) {
    auto& service = *static_cast<FakeService*>(context);
    {
        const std::lock_guard guard(service.mutex_);
        service.notes_.push_back(std::to_string(control));
    }
    service.changed_.notify_all();
    if (control == kHold) {
        service.hold();
    } else if (control == 1) {
        service.report(3);
        service.report(1);
    } else if (control == 15) {
        service.report(1);
    }
    return control == kSeven ? 7 : 0;
}

void FakeService::report(std::uint32_t state, std::uint32_t exitCode) {
    const bool pending = state == 2 || state == 3;
    platform::set_service_status(handle_, {0x10, state, 0x1C1, exitCode, 0, pending ? ++checkpoint_ : 0, 0});
}

void FakeService::hold() {
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [this] { return free_; });
}

void FakeService::let_go() {
    const std::lock_guard guard(mutex_);
    free_ = true;
    changed_.notify_all();
}

void FakeService::join() {
    thread_.join();
}

void FakeService::wait_for_state(std::uint32_t state) {
    while (ask(R"({"status": true})").find("\"state\":" + std::to_string(state)) == std::string::npos) {
        std::this_thread::yield();
    }
}

void FakeService::wait_for_notes(std::size_t count) {
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [&] { return notes_.size() >= count; });
}

std::vector<std::string> FakeService::notes() const {
    const std::lock_guard guard(mutex_);
    return notes_;
}

std::string ask(const std::string& line) {
    platform::LineClient client;
    std::string answer;
    return client.open(platform::kControlSocket, 0) && client.send(line) && client.receive(answer) ? answer : "";
}

std::string reported_states() {
    std::string states;
    std::istringstream log(read_text(platform::machine_folder() + "/status.jsonl"));
    for (std::string line; std::getline(log, line);) {
        states += (states.empty() ? "" : " ") + zorvalis::ParseJson(line).at("state").dump();
    }
    return states;
}
