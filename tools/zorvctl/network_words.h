// What the numbers of a failed HTTP exchange mean, in words. Pure functions, for every command that tells of the
// network.
#pragma once

#include <cstdint>
#include <string>

namespace zorvalis {

// What Windows' number of a failed step (platform/http.h, and the service's trace lines) says about the cause, with the
// number: "the server's name is not known: ... (12007)". A number of no known meaning is given as it is.
std::string NetworkErrorWords(std::uint32_t error);

// What an answer's status that is not 200 says: "it answers with status 404: ...". The service takes no other status.
std::string HttpStatusWords(long status);

}  // namespace zorvalis
