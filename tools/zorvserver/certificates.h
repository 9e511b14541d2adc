// Makes the server's certificate and the authority that signs it. A machine trusts that authority (network.json) only
// while something is tried; no machine in use may trust it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zorvalis {

enum class CertificateKind { valid, expired, wrongName };

// Makes ca.pem, ca.der and ca.key in `folder` unless they are there, then a certificate and key for `hosts`, which are
// names or addresses: server.pem and server.key, or expired.*, which has expired, or wrong-name.*, which is for another
// host. Raises std::runtime_error.
void MakeCertificates(const std::filesystem::path& folder, const std::vector<std::string>& hosts, CertificateKind kind);

}  // namespace zorvalis
