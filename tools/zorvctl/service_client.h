// The running service as a command of the tool asks it. Each failure of a call is a Failure in words.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/json.h"
#include "zorvalis_client.h"

namespace zorvalis {

class ServiceClient {
public:
    ServiceClient();

    // The answer's text as it came.
    std::string Call(const std::string& text);

    // Asks by JSON, with these parameters or none. The answer's `parameter`, which a get fills with an object.
    std::string Ask(int function, const Json& parameters = nullptr);

    // The value in a get's answer.
    std::string Get(int function);

    // Makes a direct call by its name, with the arguments in words but for the cookie. Tells the callbacks that came
    // and the answer, a line each.
    static bool HasDirect(const std::string& procedure);
    std::string Direct(const std::string& procedure, const std::vector<std::string>& words = {});

private:
    std::string heard_;
    std::unique_ptr<zorvalis_client::Client> client_;
};

}  // namespace zorvalis
