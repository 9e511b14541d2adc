// Makes the certificates that the server shows: a certificate authority of its own, to be trusted by one machine for
// as long as one wants to try something, and a server certificate from it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zorvalis {

enum class CertificateKind { valid, expired, wrongName };

// Makes ca.pem, ca.der and ca.key in `folder` unless they are there, then server.pem and server.key for `hosts`, names
// or addresses. An expired one is called expired.pem and expired.key; one for a host that is none of `hosts`
// wrong-name.pem and wrong-name.key. Raises std::runtime_error.
void MakeCertificates(const std::filesystem::path& folder, const std::vector<std::string>& hosts, CertificateKind kind);

}  // namespace zorvalis
