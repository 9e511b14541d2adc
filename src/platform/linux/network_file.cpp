#include "platform/linux/network_file.h"

#include "platform/linux/machine_json.h"
#include "platform/linux/machine_path.h"

namespace platform {
namespace {

constexpr char kNetworkFile[] = "network.json";

// Only "online": false counts; anything else is online.
bool is_offline(const zorvalis::Json& json) {
    const auto online = json.find("online");
    return online != json.end() && online->is_boolean() && !online->get<bool>();
}

}  // namespace

Network read_network() {
    Network network;
    const auto json = read_machine_json(kNetworkFile);
    if (!json) {
        return network;
    }
    network.online = !is_offline(*json);
    const auto authority = json->find("ca");
    if (authority != json->end() && authority->is_string()) {
        const auto path = authority->get<std::string>();
        network.authority = path.starts_with('/') ? path : machine_path(path);
    }
    return network;
}

std::string resolve_host(const std::string& host, std::uint16_t port) {
    const auto json = read_machine_json(kNetworkFile);
    if (!json || is_offline(*json)) {
        return "";
    }
    const auto hosts = json->find("hosts");
    if (hosts == json->end() || !hosts->is_object()) {
        return "";
    }
    const auto address = hosts->find(host + ":" + std::to_string(port));
    return address != hosts->end() && address->is_string() ? address->get<std::string>() : "";
}

}  // namespace platform
