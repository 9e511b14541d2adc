#include "windows/service_process.h"

#include <cstring>
#include <stdexcept>

#include "windows/double/control_data.h"

namespace {

constexpr wchar_t kName[] = L"Zorvalis";
constexpr wchar_t kCurrent[] = L"SYSTEM\\CurrentControlSet\\Control\\ServiceCurrent";
constexpr DWORD kPatience = 120000;

DWORD get_current() {
    DWORD number = 0;
    DWORD size = sizeof number;
    ::RegGetValueW(HKEY_LOCAL_MACHINE, kCurrent, nullptr, RRF_RT_REG_DWORD, nullptr, &number, &size);
    return number;
}

void set_current(DWORD number) {
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kCurrent, nullptr, REG_DWORD, &number, sizeof number);
}

template <class Value>
std::string bytes_of(const Value& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

}  // namespace

// A service finds its pipe by the number of the service that is being started.
ServiceProcess::ServiceProcess(const std::string& path) : done_(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    const DWORD before = get_current();
    const DWORD number = before + 1000;
    pipe_ = ::CreateNamedPipeW((L"\\\\.\\pipe\\net\\NtControlPipe" + std::to_wstring(number)).c_str(),
                               PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED, PIPE_TYPE_BYTE | PIPE_WAIT, 1, 256, 256, 0,
                               nullptr);
    set_current(number);
    process_.emplace(path, "");
    OVERLAPPED overlapped{};
    overlapped.hEvent = done_;
    const HANDLE either[] = {done_, process_->handle()};
    const bool connected = ::ConnectNamedPipe(pipe_, &overlapped) || ::GetLastError() == ERROR_PIPE_CONNECTED ||
                           ::WaitForMultipleObjects(2, either, FALSE, kPatience) == WAIT_OBJECT_0;
    set_current(before);
    if (!connected) {
        throw std::runtime_error("no service connects");
    }
}

ServiceProcess::~ServiceProcess() {
    process_.reset();
    ::CloseHandle(pipe_);
    ::CloseHandle(done_);
}

void ServiceProcess::transfer(bool write, void* data, std::size_t size) {
    OVERLAPPED overlapped{};
    overlapped.hEvent = done_;
    ::ResetEvent(done_);
    const BOOL begun = write ? ::WriteFile(pipe_, data, static_cast<DWORD>(size), nullptr, &overlapped)
                             : ::ReadFile(pipe_, data, static_cast<DWORD>(size), nullptr, &overlapped);
    const HANDLE either[] = {done_, process_->handle()};
    DWORD count = 0;
    if ((!begun && ::GetLastError() != ERROR_IO_PENDING) ||
        ::WaitForMultipleObjects(2, either, FALSE, kPatience) != WAIT_OBJECT_0 ||
        !::GetOverlappedResult(pipe_, &overlapped, &count, FALSE) || count != size) {
        ::CancelIo(pipe_);
        throw std::runtime_error("the service does not answer");
    }
}

std::uint32_t ServiceProcess::send(std::uint32_t control, const std::string& data) {
    const struct {
        std::uint32_t magic, size, name_length, control;
    } header = {0x57494E45, static_cast<std::uint32_t>(sizeof header + sizeof kName + data.size()),
                sizeof kName / sizeof *kName, control};
    std::string message = bytes_of(header) + bytes_of(kName) + data;
    transfer(true, message.data(), message.size());
    std::uint32_t answer = 0;
    transfer(false, &answer, sizeof answer);
    return answer;
}

std::uint32_t ServiceProcess::start() {
    return send(0, bytes_of(L"Zorvalis\0"));
}

std::uint32_t ServiceProcess::control(std::uint32_t control, std::uint32_t event_type, const std::string& event_data) {
    doubles::ControlData data;
    data.event_type = event_type;
    data.size = static_cast<std::uint32_t>(event_data.size());
    return send(control, bytes_of(data) + event_data);
}

std::uint32_t ServiceProcess::change(const GUID& setting, std::uint32_t data) {
    const std::uint32_t size = sizeof data;
    return control(SERVICE_CONTROL_POWEREVENT, PBT_POWERSETTINGCHANGE,
                   bytes_of(setting) + bytes_of(size) + bytes_of(data));
}

std::uint32_t ServiceProcess::request(const std::string& text) {
    return control(doubles::kRequest, 0, text);
}

DWORD ServiceProcess::end() {
    ::DisconnectNamedPipe(pipe_);
    return process_->wait();
}
