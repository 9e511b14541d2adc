// The two short passes that scheduled tasks start, each in a process of its own. They share no memory with the running
// service: it and a pass talk through registry values and files.
#pragma once

namespace zorvalis {

// What `-j0` and `-j1` run: a collection pass, and product activation's. They do not throw; an error that no job has
// caught goes to the event log.
void RunJob0();
void RunJob1();

}  // namespace zorvalis
