#include "platform/linux/network_file.h"

#include <fcntl.h>

#include "platform/linux/machine_json.h"
#include "platform/linux/machine_path.h"
#include "platform/linux/whole_file.h"

namespace platform {
namespace {

constexpr char kNetworkFile[] = "network.json";

}  // namespace

Network read_network(const std::string& server) {
    Network network;
    const auto json = read_machine_json(kNetworkFile);
    if (!json) {
        return network;
    }
    // Only "online": false counts; anything else is online.
    const auto online = json->find("online");
    network.online = online == json->end() || !online->is_boolean() || online->get<bool>();
    const auto text = [](const zorvalis::Json& object, const std::string& name) {
        const auto member = object.find(name);
        return member != object.end() && member->is_string() ? member->get<std::string>() : "";
    };
    const auto hosts = json->find("hosts");
    if (server.empty() || !network.online || hosts == json->end() || !hosts->is_object()) {
        return network;
    }
    network.address = text(*hosts, server);
    const std::string path = text(*json, "ca");
    if (!path.empty()) {
        const std::string native = path.starts_with('/') ? path : machine_path(path);
        const Descriptor file(retry([&] { return ::open(native.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
        if (!file || !read_whole(file.get(), network.authority.emplace())) {
            network.authority = "";
        }
    }
    return network;
}

}  // namespace platform
