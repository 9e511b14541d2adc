#pragma once
#include <functional>
#include <memory>
#include <string>
struct LoopbackRequest {
    std::string method, path, head, body;
};
struct LoopbackAnswer {
    int status = 200;
    std::string body;
    bool cut = false;
};
class LoopbackServer {
public:
    explicit LoopbackServer(std::function<LoopbackAnswer(const LoopbackRequest&)> handler);
    ~LoopbackServer();
    void stand_for(const std::string& host) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
