// How SQLite meets the system: it tells the time by the machine's clock, `date('now')` included, and never waits for
// the disk, and no connection reaches a second file. A working copy lives for one cycle and is thrown away after a
// crash of any kind, whatever reached the disk. Beside a database there is its journal and nothing else: what a planted
// journal names is neither read nor deleted.
#pragma once

namespace zorvalis {

// Once for the process; any thread. Holds for later connections.
void PrepareSqlite();

}  // namespace zorvalis
