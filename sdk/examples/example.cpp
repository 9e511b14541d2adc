// One call as a JSON text, and one direct call, whose value comes by callback.
#include <cstdio>

#include "zorvalis_client.h"

int main() {
    zorvalis_client::Callbacks callbacks;
    callbacks.text = [](const std::string& result, std::int32_t function, std::int64_t cookie) {
        std::printf("function %d, cookie %d: %s\n", function, static_cast<int>(cookie), result.c_str());
    };
    zorvalis_client::Options options;
    options.wait = std::chrono::seconds(10);  // for a service that is just starting
    try {
        zorvalis_client::Client client(callbacks, options);
        std::printf("%s\n", client.BigDataServiceCall(R"({"function":9,"version":1})").c_str());
        client.GetModelName(7);
    } catch (const zorvalis_client::Error& error) {
        std::fprintf(stderr, "the service cannot be asked: %s (%d)\n", error.what(), error.status);
        return 1;
    }
    return 0;
}
