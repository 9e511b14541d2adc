// The two short passes that scheduled tasks start, each in a process of its own. They share no memory with the
// running service; what passes between them lies in the registry and in files.
#pragma once

namespace zorvalis {

// What `-j0` and `-j1` do. Nothing leaves them: an error that no job has caught goes to the event log in words.
void RunJob0();
void RunJob1();

}  // namespace zorvalis
