// Certificates that a step makes on the spot: an authority of the kit's and servers' certificates by it. Their keys are
// in containers of the machine, where the Windows process that serves TLS reads them. All of it goes with the object.
#pragma once

#include <windows.h>

#include <wincrypt.h>

#include <string>
#include <vector>

#include "platform/windows/handles.h"

namespace zorvalis::acceptance {

using OwnedCertificate = platform::Owned<::CertFreeCertificateContext, PCCERT_CONTEXT>;

using OwnedRevocations = platform::Owned<::CertFreeCRLContext, PCCRL_CONTEXT>;

// What fails raises std::runtime_error with the call and its error.
class Authority {
public:
    Authority();
    ~Authority() { Remove(); }
    Authority(const Authority&) = delete;
    Authority& operator=(const Authority&) = delete;

    // Puts the authority among those that this machine trusts.
    void Trust();

    // A server's certificate for `host`, valid from and to so many days from now. `revocations` is the address of the
    // list that names the certificates that were revoked.
    OwnedCertificate Issue(const std::string& host, int fromDay, int toDay, const std::string& revocations = "");

    // That list, with this certificate in it; as bytes.
    std::string RevocationList(PCCERT_CONTEXT revoked);

    // Takes away the authority and the keys, also those that a kit that was ended has left.
    static void Remove();

private:
    // A key in a container of this name, which goes with it.
    class Key {
    public:
        explicit Key(const wchar_t* container);
        ~Key();
        Key(const Key&) = delete;
        Key& operator=(const Key&) = delete;

        HCRYPTPROV provider = 0;
        std::vector<BYTE> publicInfo;  // a CERT_PUBLIC_KEY_INFO and what it points to

    private:
        const wchar_t* const container_;
    };

    std::string Sign(const char* type, const void* content) const;

    Key own_;
    Key servers_;
    std::vector<BYTE> name_;
    OwnedCertificate certificate_;
    BYTE serial_ = 1;
};

// What Windows' own check says of a server's certificate: 0 when it is in order, else a CERT_E_ number.
HRESULT VerdictOf(PCCERT_CONTEXT certificate, const std::string& host);

// Null when the bytes are no such list.
OwnedRevocations Revocations(const std::string& bytes);
bool IsListed(PCCRL_CONTEXT list, PCCERT_CONTEXT certificate);

}  // namespace zorvalis::acceptance
