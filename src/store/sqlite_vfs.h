// What this process changes about SQLite:
//
//   the time    `date('now')` and the like go by the machine's clock, which tests and simulations shift
//   the disk    SQLite never waits for it: a working copy lives for one cycle and is thrown away after a crash
//   the files   a connection reaches its database and that one's journal, nothing else; other files that a journal or a
//               database planted by another user names are neither read nor deleted
#pragma once

namespace zorvalis {

// Call before sqlite3_open, on any thread, as often as you like. Connections that are open already stay as they are.
void PrepareSqlite();

}  // namespace zorvalis
