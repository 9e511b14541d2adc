// What the product logs while a trace session takes its messages.
#pragma once

#include <functional>
#include <string>
#include <vector>

// The texts that `action` logs in this process, in their order.
std::vector<std::string> Traced(const std::function<void()>& action);
