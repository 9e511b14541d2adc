// What the product leaves on a machine beside its program: records and registry values.
#pragma once

namespace zorvalis {

// Deletes all of it and nothing that belongs to others; goes on behind what cannot be deleted, and then raises the
// first Failure.
void PurgeRecords();

}  // namespace zorvalis
