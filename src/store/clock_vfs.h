// Makes SQLite tell the time by the machine's clock, `date('now')` included.
#pragma once

namespace zorvalis {

// Once for the process; any thread. Later connections follow the machine's clock.
void UseMachineClockInSqlite();

}  // namespace zorvalis
