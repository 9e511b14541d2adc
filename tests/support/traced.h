// What the product logs while a trace session takes its messages.
#pragma once

#include <functional>
#include <string>
#include <vector>

// The texts that `action` logs in this process, in their order.
std::vector<std::string> Traced(const std::function<void()>& action);

#ifndef _WIN32
// The stand-in machine's session, and the texts that it received.
void SetSession(int level, unsigned flags);
std::vector<std::string> TraceLines();
#endif
