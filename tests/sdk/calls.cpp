// As calls.c, through the C++ header.
#include "zorvalis_client.h"

#include <iostream>
#include <sstream>
#include <vector>

#define N(at) std::stoll(word[at])
#define I(at) static_cast<std::int32_t>(N(at))
#define F(at) N(at) != 0
#define CALL(name, ...)   \
    if (word[0] == #name) \
        client.name(__VA_ARGS__);
#define FLAG(name, ...)   \
    if (word[0] == #name) \
        answer = std::to_string(client.name(__VA_ARGS__));
#define TEXT(name, ...)   \
    if (word[0] == #name) \
        answer = client.name(__VA_ARGS__);

int main() {
    const auto print = [](const char* name) {
        return [name](const auto& result, const auto&... rest) {
            std::cout << name << '\t' << result;
            const int each[] = {(std::cout << '\t' << rest, 0)...};
            std::cout << (each[0] == 0 ? "\n" : "");
        };
    };
    zorvalis_client::Options options;
    options.wait = options.limit = std::chrono::minutes(2);
    zorvalis_client::Client client({print("testData"), print("text"), print("flag"), print("integer")}, options);
    for (std::string line, answer; std::getline(std::cin, line); answer.clear()) {
        std::istringstream words(line.substr(0, line.find('\r')));
        std::vector<std::string> word;
        for (std::string each; std::getline(words, each, '\t');)
            word.push_back(each);
        word.resize(8);
        std::int32_t status = 0;
        try {
#include "calls.inc"
        } catch (const zorvalis_client::Error& error) {
            status = error.status;
        }
        std::cout << "=\t" << status << '\t' << answer << '\n';
    }
}
