// Only compiled: the C++ header alone, with a call of each kind.
#include "zorvalis_client.h"

bool UsesEachKind(const zorvalis_client::Options& options);

bool UsesEachKind(const zorvalis_client::Options& options) {
    zorvalis_client::Client client(zorvalis_client::Callbacks(), options), other({}, {}), named({}, "socket"), plain;
    client.SetLimit(std::chrono::seconds(1));
    client.GetModelName(1);
    client.Cancel();
    return client.SetMyZorvPP(client.GetUUID(), "", "", "", true);
}
