// Calls of the running service, by JSON and direct, for the commands. Whatever fails is thrown as a Failure in words.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/json.h"
#include "zorvalis_client.h"

namespace zorvalis {

class ServiceClient {
public:
    ServiceClient();  // connects

    // Sends a JSON call; returns the answer's text as it came.
    std::string Call(const std::string& text);

    // Makes the JSON call of that number. Returns `parameter` of the answer, which a get fills with an object as text.
    std::string Ask(int function, const Json& parameters = nullptr);

    // The value that a get's answer holds.
    std::string Get(int function);

    // Makes the direct call of that name. `words` are its arguments, all but the cookie, as text. Returns a line for
    // each callback that came and one for the answer.
    static bool HasDirect(const std::string& procedure);
    std::string Direct(const std::string& procedure, const std::vector<std::string>& words = {});

private:
    std::string heard_;
    std::unique_ptr<zorvalis_client::Client> client_;
};

}  // namespace zorvalis
