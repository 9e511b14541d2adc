// The steps of an installation and of a removal. Each may be made again at any time; each raises a Failure.
//
//     installation or upgrade   check, stop, the files, configure, start, commit;   failed: undo, the old files, resume
//     removal                   stop, remove, the files, commit or remove --purge;  failed: the old files, undo, resume
#pragma once

#include <chrono>
#include <string>

namespace zorvalis {

void CheckWindows();

// Ends all that runs: first the service, which would make its task anew, then the tasks, then passes, which may make
// their task anew, so that the tasks are deleted twice. Notes whether the service ran.
void Stop(std::chrono::seconds limit);

// `folder` has the service's executable.
void Configure(std::wstring folder);

void Start();
void Remove(bool purge);

// Puts service, event source and PATH back to what the notes say; the service is stopped then.
void Undo();

// Starts the service if it ran before `Stop`, and forgets the notes.
void Resume();

// Forgets the notes: the installation holds.
void Commit();

}  // namespace zorvalis
