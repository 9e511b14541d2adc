// The certificates by OpenSSL: RSA keys of 2048 bits, version 3, SHA-256.
#include "certificates.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace zorvalis {

namespace {

namespace fs = std::filesystem;

template <auto release>
struct Releaser {
    template <class T>
    void operator()(T* object) const {
        release(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Releaser<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Releaser<X509_EXTENSION_free>>;
using File = std::unique_ptr<std::FILE, Releaser<std::fclose>>;

constexpr long kDay = 24 * 60 * 60;
constexpr long kCaDays = 3650;
constexpr long kServerDays = 730;

// Raises `otherwise`, and OpenSSL's reason when there is one.
void Check(bool holds, const std::string& otherwise) {
    if (!holds) {
        const unsigned long code = ERR_get_error();
        throw std::runtime_error(otherwise + (code != 0 ? std::string(": ") + ERR_reason_error_string(code) : ""));
    }
}

struct Identity {
    Key key;
    Certificate certificate;
};

void Extend(X509* certificate, X509* issuer, int extension, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Extension made(X509V3_EXT_conf_nid(nullptr, &context, extension, value.c_str()));
    Check(made != nullptr && X509_add_ext(certificate, made.get(), -1) == 1, "\"" + value + "\" fits no certificate");
}

// A new key and a certificate without extensions and signature. RSA, since every client accepts it. The days count from
// now.
Identity Begin(const std::string& name, long fromDay, long toDay) {
    Identity identity{Key(EVP_RSA_gen(2048)), Certificate(X509_new())};
    X509* const certificate = identity.certificate.get();
    Check(identity.key != nullptr && certificate != nullptr, "no key can be made");
    unsigned char serial[8];
    Check(RAND_bytes(serial, sizeof serial) == 1, "no random numbers");
    std::uint64_t number = 0;
    for (const unsigned char byte : serial) {
        number = number << 8 | byte;
    }
    X509_NAME* const subject = X509_get_subject_name(certificate);
    const auto* const text = reinterpret_cast<const unsigned char*>(name.c_str());
    Check(X509_set_version(certificate, X509_VERSION_3) == 1 &&
              ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), number >> 1) == 1 &&
              X509_gmtime_adj(X509_getm_notBefore(certificate), fromDay * kDay) != nullptr &&
              X509_gmtime_adj(X509_getm_notAfter(certificate), toDay * kDay) != nullptr &&
              X509_set_pubkey(certificate, identity.key.get()) == 1 &&
              X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1,
          "no certificate can be made for " + name);
    return identity;
}

void Sign(X509* certificate, const Identity& issuer) {
    Check(X509_set_issuer_name(certificate, X509_get_subject_name(issuer.certificate.get())) == 1 &&
              X509_sign(certificate, issuer.key.get(), EVP_sha256()) > 0,
          "a certificate cannot be signed");
}

Identity MakeCa() {
    Identity ca = Begin("zorvserver development CA", -1, kCaDays);
    X509* const certificate = ca.certificate.get();
    Extend(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
    Extend(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
    Extend(certificate, certificate, NID_subject_key_identifier, "hash");
    Sign(certificate, ca);
    return ca;
}

std::string AlternativeNames(const std::vector<std::string>& hosts) {
    std::string names;
    for (const std::string& host : hosts) {
        Check(!host.empty() && host.find_first_of(", \t\n:=") == std::string::npos, "\"" + host + "\" is no host name");
        in_addr address;
        const bool numeric = ::inet_pton(AF_INET, host.c_str(), &address) == 1;
        names += (names.empty() ? "" : ",") + std::string(numeric ? "IP:" : "DNS:") + host;
    }
    return names;
}

// The first host is also the common name.
Identity MakeServer(const Identity& ca, const std::vector<std::string>& hosts, bool expired) {
    Identity server = Begin(hosts.front(), expired ? -30 : -1, expired ? -1 : kServerDays);
    X509* const certificate = server.certificate.get();
    X509* const issuer = ca.certificate.get();
    Extend(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
    Extend(certificate, issuer, NID_key_usage, "critical,digitalSignature,keyEncipherment");
    Extend(certificate, issuer, NID_ext_key_usage, "serverAuth");
    Extend(certificate, issuer, NID_subject_key_identifier, "hash");
    Extend(certificate, issuer, NID_authority_key_identifier, "keyid");
    Extend(certificate, issuer, NID_subject_alt_name, AlternativeNames(hosts));
    Sign(certificate, ca);
    return server;
}

File Open(const fs::path& path, const char* mode) {
    File file(std::fopen(path.c_str(), mode));
    Check(file != nullptr, path.string() + " cannot be opened");
    return file;
}

void Write(const fs::path& folder, const std::string& name, const Identity& identity) {
    const fs::path certificate = folder / (name + ".pem"), key = folder / (name + ".key");
    Check(PEM_write_X509(Open(certificate, "wb").get(), identity.certificate.get()) == 1,
          certificate.string() + " cannot be written");
    // Only the owner may read the key.
    const mode_t mask = ::umask(077);
    const File keyFile = Open(key, "wb");
    ::umask(mask);
    Check(PEM_write_PrivateKey(keyFile.get(), identity.key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1,
          key.string() + " cannot be written");
}

}  // namespace

void MakeCertificates(const fs::path& folder, const std::vector<std::string>& hosts, CertificateKind kind) {
    fs::create_directories(folder);
    Identity ca;
    if (fs::exists(folder / "ca.key") && fs::exists(folder / "ca.pem")) {
        ca.key.reset(PEM_read_PrivateKey(Open(folder / "ca.key", "rb").get(), nullptr, nullptr, nullptr));
        ca.certificate.reset(PEM_read_X509(Open(folder / "ca.pem", "rb").get(), nullptr, nullptr, nullptr));
        Check(ca.key != nullptr && ca.certificate != nullptr &&
                  X509_check_private_key(ca.certificate.get(), ca.key.get()) == 1,
              "ca.pem and ca.key in " + folder.string() + " do not belong together");
    } else {
        ca = MakeCa();
        Write(folder, "ca", ca);
        Check(i2d_X509_fp(Open(folder / "ca.der", "wb").get(), ca.certificate.get()) == 1, "ca.der cannot be written");
    }
    switch (kind) {
        case CertificateKind::valid:
            return Write(folder, "server", MakeServer(ca, hosts, false));
        case CertificateKind::expired:
            return Write(folder, "expired", MakeServer(ca, hosts, true));
        case CertificateKind::wrongName:
            AlternativeNames(hosts);
            return Write(folder, "wrong-name", MakeServer(ca, {"not-" + hosts.front()}, false));
    }
}

}  // namespace zorvalis
