#include "certificates.h"

#include <cstring>
#include <stdexcept>

#include "kit.h"
#include "platform/windows/wide.h"

namespace zorvalis::acceptance {
namespace {

constexpr wchar_t kAuthorityKey[] = L"zorv-acceptance-authority";
constexpr wchar_t kServerKey[] = L"zorv-acceptance-server";
constexpr wchar_t kAuthorityName[] = L"zorv-acceptance authority";
constexpr wchar_t kProvider[] = MS_ENH_RSA_AES_PROV_W;
constexpr DWORD kBits = 2048;

using OwnedStore = platform::Owned<[](HCERTSTORE store) { ::CertCloseStore(store, 0); }, HCERTSTORE>;
using OwnedChain = platform::Owned<::CertFreeCertificateChain, PCCERT_CHAIN_CONTEXT>;

void Check(BOOL done, const char* call) {
    if (done == FALSE) {
        throw std::runtime_error(std::string(call) + ": " + ErrorText(::GetLastError()));
    }
}

OwnedStore TrustedRoots() {
    return OwnedStore(::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root"));
}

std::vector<BYTE> Encode(const char* type, const void* content) {
    DWORD size = 0;
    Check(::CryptEncodeObjectEx(X509_ASN_ENCODING, type, content, 0, nullptr, nullptr, &size), "CryptEncodeObjectEx");
    std::vector<BYTE> bytes(size);
    Check(::CryptEncodeObjectEx(X509_ASN_ENCODING, type, content, 0, nullptr, bytes.data(), &size),
          "CryptEncodeObjectEx");
    bytes.resize(size);
    return bytes;
}

std::vector<BYTE> Name(const wchar_t* text) {
    DWORD size = 0;
    Check(::CertStrToNameW(X509_ASN_ENCODING, text, CERT_X500_NAME_STR, nullptr, nullptr, &size, nullptr),
          "CertStrToName");
    std::vector<BYTE> bytes(size);
    Check(::CertStrToNameW(X509_ASN_ENCODING, text, CERT_X500_NAME_STR, nullptr, bytes.data(), &size, nullptr),
          "CertStrToName");
    return bytes;
}

template <class Blob>
Blob BlobOf(std::vector<BYTE>& bytes) {
    return {static_cast<DWORD>(bytes.size()), bytes.data()};
}

FILETIME InDays(int days) {
    FILETIME now = {};
    ::GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER ticks = {};
    ticks.LowPart = now.dwLowDateTime;
    ticks.HighPart = now.dwHighDateTime;
    ticks.QuadPart += static_cast<ULONGLONG>(static_cast<LONGLONG>(days) * 24 * 60 * 60 * 10'000'000);
    return {ticks.LowPart, ticks.HighPart};
}

// With its container, which may be missing.
void DeleteKey(const wchar_t* container) {
    HCRYPTPROV none = 0;
    ::CryptAcquireContextW(&none, container, kProvider, PROV_RSA_AES, CRYPT_MACHINE_KEYSET | CRYPT_DELETEKEYSET);
}

// The extensions of a certificate, with the bytes that they point to.
class Extensions {
public:
    void Add(const char* identifier, bool critical, const char* type, const void* content) {
        identifiers_.push_back(identifier);
        critical_.push_back(critical);
        bytes_.push_back(Encode(type, content));
    }

    void AddUsage(BYTE bits) {
        CRYPT_BIT_BLOB usage = {1, &bits, 0};
        Add(szOID_KEY_USAGE, true, X509_KEY_USAGE, &usage);
    }

    void PutInto(CERT_INFO& info) {
        list_.clear();
        for (std::size_t i = 0; i < bytes_.size(); ++i) {
            list_.push_back(
                {const_cast<char*>(identifiers_[i]), critical_[i] ? TRUE : FALSE, BlobOf<CRYPT_OBJID_BLOB>(bytes_[i])});
        }
        info.cExtension = static_cast<DWORD>(list_.size());
        info.rgExtension = list_.data();
    }

private:
    std::vector<const char*> identifiers_;
    std::vector<bool> critical_;
    std::vector<std::vector<BYTE>> bytes_;
    std::vector<CERT_EXTENSION> list_;
};

CERT_ALT_NAME_ENTRY Alternative(DWORD choice, std::wstring& text) {
    CERT_ALT_NAME_ENTRY entry = {};
    entry.dwAltNameChoice = choice;
    entry.pwszDNSName = text.data();  // shares its place with pwszURL
    return entry;
}

CRYPT_ALGORITHM_IDENTIFIER SignedBySha256() {
    CRYPT_ALGORITHM_IDENTIFIER algorithm = {};
    algorithm.pszObjId = const_cast<char*>(szOID_RSA_SHA256RSA);
    return algorithm;
}

OwnedCertificate Context(const std::string& bytes) {
    OwnedCertificate certificate(::CertCreateCertificateContext(
        X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(bytes.data()), static_cast<DWORD>(bytes.size())));
    Check(certificate != nullptr, "CertCreateCertificateContext");
    return certificate;
}

// All but the extensions.
CERT_INFO Content(std::vector<BYTE>& issuer, std::vector<BYTE>& subject, std::vector<BYTE>& key, BYTE& serial) {
    CERT_INFO info = {};
    info.dwVersion = CERT_V3;
    info.SerialNumber = {1, &serial};
    info.SignatureAlgorithm = SignedBySha256();
    info.Issuer = BlobOf<CERT_NAME_BLOB>(issuer);
    info.Subject = BlobOf<CERT_NAME_BLOB>(subject);
    info.SubjectPublicKeyInfo = *reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(key.data());
    return info;
}

}  // namespace

Authority::Key::Key(const wchar_t* container) : container_(container) {
    DeleteKey(container);
    Check(::CryptAcquireContextW(&provider, container, kProvider, PROV_RSA_AES, CRYPT_MACHINE_KEYSET | CRYPT_NEWKEYSET),
          "CryptAcquireContext");
    HCRYPTKEY key = 0;
    Check(::CryptGenKey(provider, AT_KEYEXCHANGE, kBits << 16, &key), "CryptGenKey");
    ::CryptDestroyKey(key);
    DWORD size = 0;
    Check(::CryptExportPublicKeyInfo(provider, AT_KEYEXCHANGE, X509_ASN_ENCODING, nullptr, &size),
          "CryptExportPublicKeyInfo");
    publicInfo.resize(size);
    Check(::CryptExportPublicKeyInfo(provider, AT_KEYEXCHANGE, X509_ASN_ENCODING,
                                     reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(publicInfo.data()), &size),
          "CryptExportPublicKeyInfo");
}

Authority::Key::~Key() {
    ::CryptReleaseContext(provider, 0);
    DeleteKey(container_);
}

Authority::Authority() : own_(kAuthorityKey), servers_(kServerKey) {
    // A name of its own, lest Windows take it for one that it has seen with another key.
    name_ = Name((std::wstring(L"CN=") + kAuthorityName + L" " + std::to_wstring(::GetTickCount64())).c_str());
    CERT_INFO info = Content(name_, name_, own_.publicInfo, serial_);
    info.NotBefore = InDays(-30);
    info.NotAfter = InDays(30);
    CERT_BASIC_CONSTRAINTS2_INFO constraints = {TRUE, FALSE, 0};
    Extensions extensions;
    extensions.Add(szOID_BASIC_CONSTRAINTS2, true, X509_BASIC_CONSTRAINTS2, &constraints);
    extensions.AddUsage(CERT_KEY_CERT_SIGN_KEY_USAGE | CERT_CRL_SIGN_KEY_USAGE);
    extensions.PutInto(info);
    certificate_ = Context(Sign(X509_CERT_TO_BE_SIGNED, &info));
}

std::string Authority::Sign(const char* type, const void* content) const {
    CRYPT_ALGORITHM_IDENTIFIER algorithm = SignedBySha256();
    DWORD size = 0;
    const auto sign = [&](BYTE* bytes) {
        Check(::CryptSignAndEncodeCertificate(own_.provider, AT_KEYEXCHANGE, X509_ASN_ENCODING, type, content,
                                              &algorithm, nullptr, bytes, &size),
              "CryptSignAndEncodeCertificate");
    };
    sign(nullptr);
    std::string bytes(size, '\0');
    sign(reinterpret_cast<BYTE*>(bytes.data()));
    bytes.resize(size);
    return bytes;
}

void Authority::Trust() {
    const OwnedStore roots = TrustedRoots();
    Check(roots != nullptr, "opening the machine's store of authorities");
    Check(::CertAddCertificateContextToStore(roots.get(), certificate_.get(), CERT_STORE_ADD_REPLACE_EXISTING, nullptr),
          "CertAddCertificateContextToStore");
}

OwnedCertificate Authority::Issue(const std::string& host, int fromDay, int toDay, const std::string& revocations) {
    std::vector<BYTE> subject = Name((L"CN=\"zorv-acceptance server of " + platform::to_wide(host) + L"\"").c_str());
    ++serial_;
    CERT_INFO info = Content(name_, subject, servers_.publicInfo, serial_);
    info.NotBefore = InDays(fromDay);
    info.NotAfter = InDays(toDay);

    Extensions extensions;
    extensions.AddUsage(CERT_DIGITAL_SIGNATURE_KEY_USAGE | CERT_KEY_ENCIPHERMENT_KEY_USAGE);
    char* purpose = const_cast<char*>(szOID_PKIX_KP_SERVER_AUTH);
    CERT_ENHKEY_USAGE purposes = {1, &purpose};
    extensions.Add(szOID_ENHANCED_KEY_USAGE, false, X509_ENHANCED_KEY_USAGE, &purposes);
    std::wstring wideHost = platform::to_wide(host);
    CERT_ALT_NAME_ENTRY hostEntry = Alternative(CERT_ALT_NAME_DNS_NAME, wideHost);
    CERT_ALT_NAME_INFO hosts = {1, &hostEntry};
    extensions.Add(szOID_SUBJECT_ALT_NAME2, false, X509_ALTERNATE_NAME, &hosts);
    if (!revocations.empty()) {
        std::wstring address = platform::to_wide(revocations);
        CERT_ALT_NAME_ENTRY addressEntry = Alternative(CERT_ALT_NAME_URL, address);
        CRL_DIST_POINT point = {};
        point.DistPointName.dwDistPointNameChoice = CRL_DIST_POINT_FULL_NAME;
        point.DistPointName.FullName = {1, &addressEntry};
        CRL_DIST_POINTS_INFO points = {1, &point};
        extensions.Add(szOID_CRL_DIST_POINTS, false, X509_CRL_DIST_POINTS, &points);
    }
    extensions.PutInto(info);

    OwnedCertificate certificate = Context(Sign(X509_CERT_TO_BE_SIGNED, &info));
    CRYPT_KEY_PROV_INFO key = {};
    key.pwszContainerName = const_cast<wchar_t*>(kServerKey);
    key.pwszProvName = const_cast<wchar_t*>(kProvider);
    key.dwProvType = PROV_RSA_AES;
    key.dwFlags = CRYPT_MACHINE_KEYSET;
    key.dwKeySpec = AT_KEYEXCHANGE;
    Check(::CertSetCertificateContextProperty(certificate.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &key),
          "CertSetCertificateContextProperty");
    return certificate;
}

std::string Authority::RevocationList(PCCERT_CONTEXT revoked) {
    CRL_ENTRY entry = {};
    entry.SerialNumber = revoked->pCertInfo->SerialNumber;
    entry.RevocationDate = InDays(-1);
    CRL_INFO info = {};
    info.dwVersion = CRL_V2;
    info.SignatureAlgorithm = SignedBySha256();
    info.Issuer = BlobOf<CERT_NAME_BLOB>(name_);
    info.ThisUpdate = InDays(-1);
    info.NextUpdate = InDays(1);
    info.cCRLEntry = 1;
    info.rgCRLEntry = &entry;
    return Sign(X509_CERT_CRL_TO_BE_SIGNED, &info);
}

void Authority::Remove() {
    if (const OwnedStore roots = TrustedRoots()) {
        // The one that is found is freed by the call that deletes it.
        for (int i = 0; i < 10; ++i) {
            const PCCERT_CONTEXT found = ::CertFindCertificateInStore(roots.get(), X509_ASN_ENCODING, 0,
                                                                      CERT_FIND_SUBJECT_STR_W, kAuthorityName, nullptr);
            if (found == nullptr || ::CertDeleteCertificateFromStore(found) == FALSE) {
                break;
            }
        }
    }
    for (const wchar_t* container : {kAuthorityKey, kServerKey}) {
        DeleteKey(container);
    }
}

HRESULT VerdictOf(PCCERT_CONTEXT certificate, const std::string& host) {
    char* purpose = const_cast<char*>(szOID_PKIX_KP_SERVER_AUTH);
    CERT_CHAIN_PARA wanted = {};
    wanted.cbSize = sizeof wanted;
    wanted.RequestedUsage.dwType = USAGE_MATCH_TYPE_AND;
    wanted.RequestedUsage.Usage = {1, &purpose};
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    // By the machine's roots, without a search in the network.
    constexpr DWORD kFlags = CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL | CERT_CHAIN_DISABLE_AUTH_ROOT_AUTO_UPDATE;
    Check(
        ::CertGetCertificateChain(HCCE_LOCAL_MACHINE, certificate, nullptr, nullptr, &wanted, kFlags, nullptr, &chain),
        "CertGetCertificateChain");
    const OwnedChain owned(chain);
    std::wstring wideHost = platform::to_wide(host);
    HTTPSPolicyCallbackData server = {};
    server.cbStruct = sizeof server;
    server.dwAuthType = AUTHTYPE_SERVER;
    server.pwszServerName = wideHost.data();
    CERT_CHAIN_POLICY_PARA policy = {};
    policy.cbSize = sizeof policy;
    policy.pvExtraPolicyPara = &server;
    CERT_CHAIN_POLICY_STATUS status = {};
    status.cbSize = sizeof status;
    Check(::CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_SSL, chain, &policy, &status),
          "CertVerifyCertificateChainPolicy");
    return static_cast<HRESULT>(status.dwError);
}

OwnedRevocations Revocations(const std::string& bytes) {
    return OwnedRevocations(::CertCreateCRLContext(X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(bytes.data()),
                                                   static_cast<DWORD>(bytes.size())));
}

bool IsListed(PCCRL_CONTEXT list, PCCERT_CONTEXT certificate) {
    CRL_INFO* info = list->pCrlInfo;
    // True when none of the lists has it.
    return ::CertVerifyCRLRevocation(X509_ASN_ENCODING, certificate->pCertInfo, 1, &info) == FALSE;
}

}  // namespace zorvalis::acceptance
