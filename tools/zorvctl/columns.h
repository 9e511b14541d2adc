// What the columns of the records mean, in words.
#pragma once

#include <cstdint>
#include <string>

#include "base/json.h"

namespace zorvalis {

struct Table;

// "17 lid closed"; the number alone when it is no trigger.
std::string TriggerText(std::int64_t trigger);

// `triggers`: each number's words; `columns`: what the page says of each column of each table, in their order.
Json ColumnsAsJson();

// Adds its words to each number of the column `freq`, for a person's eyes.
void NameTriggers(Table& table);

}  // namespace zorvalis
