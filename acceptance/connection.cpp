#include "connection.h"

#define SECURITY_WIN32
#include <schannel.h>
#include <sspi.h>

#include <algorithm>
#include <vector>

#include "kit.h"

namespace zorvalis::acceptance {
namespace {

constexpr DWORD kPatience = 30000;  // milliseconds

class Plain final : public Connection {
public:
    explicit Plain(SOCKET socket) : socket_(socket) {
        ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&kPatience), sizeof kPatience);
        ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&kPatience), sizeof kPatience);
    }

    // What was sent arrives before the end does: a socket that is closed with unread bytes would cut it off.
    ~Plain() override {
        End();
        for (int i = 0; i < 1000 && !Read().empty(); ++i) {
        }
        ::closesocket(socket_);
    }

    std::string Read() override {
        char bytes[16384];
        const int count = ::recv(socket_, bytes, sizeof bytes, 0);
        return {bytes, static_cast<std::size_t>(std::max(count, 0))};
    }

    bool Write(std::string_view bytes) override {
        while (!bytes.empty()) {
            const int count = ::send(socket_, bytes.data(), static_cast<int>(bytes.size()), 0);
            if (count <= 0) {
                return false;
            }
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

    void End() override { ::shutdown(socket_, SD_SEND); }

private:
    const SOCKET socket_;
};

SecBuffer BufferOf(unsigned long type, void* data = nullptr, std::size_t size = 0) {
    return {static_cast<unsigned long>(size), type, data};
}

// Schannel's account of a server: the certificate and the versions of TLS.
class Credentials {
public:
    explicit Credentials(PCCERT_CONTEXT certificate) {
        SCHANNEL_CRED wanted = {};
        wanted.dwVersion = SCHANNEL_CRED_VERSION;
        wanted.cCreds = certificate == nullptr ? 0 : 1;
        wanted.paCred = &certificate;
        wanted.grbitEnabledProtocols = SP_PROT_TLS1_2_SERVER;
        wanted.dwFlags = SCH_CRED_NO_SYSTEM_MAPPER | SCH_CRED_DISABLE_RECONNECTS;
        wchar_t package[] = UNISP_NAME_W;
        status = ::AcquireCredentialsHandleW(nullptr, package, SECPKG_CRED_INBOUND, nullptr, &wanted, nullptr, nullptr,
                                             &handle, nullptr);
    }
    ~Credentials() {
        if (status == SEC_E_OK) {
            ::FreeCredentialsHandle(&handle);
        }
    }
    Credentials(const Credentials&) = delete;
    Credentials& operator=(const Credentials&) = delete;

    CredHandle handle = {};
    SECURITY_STATUS status;
};

class Tls final : public Connection {
public:
    Tls(std::unique_ptr<Connection> below, PCCERT_CONTEXT certificate)
        : below_(std::move(below)), credentials_(certificate) {}

    ~Tls() override {
        if (made_) {
            ::DeleteSecurityContext(&context_);
        }
    }

    SECURITY_STATUS Shake() {
        SECURITY_STATUS status = credentials_.status;
        bool more = true;
        while (status == SEC_E_OK || status == SEC_I_CONTINUE_NEEDED || status == SEC_E_INCOMPLETE_MESSAGE) {
            if (more && !ReadMore()) {
                return SEC_E_INCOMPLETE_MESSAGE;
            }
            status = Step();
            if (status == SEC_E_OK) {
                return ::QueryContextAttributesW(&context_, SECPKG_ATTR_STREAM_SIZES, &sizes_);
            }
            more = status == SEC_E_INCOMPLETE_MESSAGE || received_.empty();
        }
        return status;
    }

    std::string Read() override {
        for (;;) {
            SecBuffer buffers[4] = {BufferOf(SECBUFFER_DATA, received_.data(), received_.size()),
                                    BufferOf(SECBUFFER_EMPTY), BufferOf(SECBUFFER_EMPTY), BufferOf(SECBUFFER_EMPTY)};
            SecBufferDesc message = {SECBUFFER_VERSION, 4, buffers};
            const SECURITY_STATUS status =
                received_.empty() ? SEC_E_INCOMPLETE_MESSAGE : ::DecryptMessage(&context_, &message, 0, nullptr);
            if (status == SEC_E_INCOMPLETE_MESSAGE) {
                if (!ReadMore()) {
                    return "";
                }
                continue;
            }
            if (status != SEC_E_OK) {
                return "";  // the client's end, or a fault
            }
            std::string bytes;
            std::string rest;
            for (const SecBuffer& buffer : buffers) {
                if (buffer.BufferType == SECBUFFER_DATA) {
                    bytes.assign(static_cast<const char*>(buffer.pvBuffer), buffer.cbBuffer);
                } else if (buffer.BufferType == SECBUFFER_EXTRA) {
                    rest = received_.substr(received_.size() - buffer.cbBuffer);
                }
            }
            received_ = rest;
            if (!bytes.empty()) {
                return bytes;
            }
        }
    }

    bool Write(std::string_view bytes) override {
        while (!bytes.empty()) {
            const std::size_t size = std::min<std::size_t>(bytes.size(), sizes_.cbMaximumMessage);
            std::vector<char> packet(sizes_.cbHeader + size + sizes_.cbTrailer);
            char* const data = packet.data() + sizes_.cbHeader;
            std::copy_n(bytes.data(), size, data);
            SecBuffer buffers[4] = {
                BufferOf(SECBUFFER_STREAM_HEADER, packet.data(), sizes_.cbHeader), BufferOf(SECBUFFER_DATA, data, size),
                BufferOf(SECBUFFER_STREAM_TRAILER, data + size, sizes_.cbTrailer), BufferOf(SECBUFFER_EMPTY)};
            SecBufferDesc message = {SECBUFFER_VERSION, 4, buffers};
            if (::EncryptMessage(&context_, 0, &message, 0) != SEC_E_OK ||
                !below_->Write({packet.data(), buffers[0].cbBuffer + buffers[1].cbBuffer + buffers[2].cbBuffer})) {
                return false;
            }
            bytes.remove_prefix(size);
        }
        return true;
    }

    void End() override { below_->End(); }

private:
    bool ReadMore() {
        const std::string bytes = below_->Read();
        received_ += bytes;
        return !bytes.empty();
    }

    // One message of the client's and the answer to it. What belongs to the next message stays.
    SECURITY_STATUS Step() {
        constexpr ULONG kWanted = ASC_REQ_SEQUENCE_DETECT | ASC_REQ_REPLAY_DETECT | ASC_REQ_CONFIDENTIALITY |
                                  ASC_REQ_EXTENDED_ERROR | ASC_REQ_ALLOCATE_MEMORY | ASC_REQ_STREAM;
        SecBuffer in[2] = {BufferOf(SECBUFFER_TOKEN, received_.data(), received_.size()), BufferOf(SECBUFFER_EMPTY)};
        SecBuffer out[1] = {BufferOf(SECBUFFER_TOKEN)};
        SecBufferDesc inMessage = {SECBUFFER_VERSION, 2, in};
        SecBufferDesc outMessage = {SECBUFFER_VERSION, 1, out};
        ULONG given = 0;
        const SECURITY_STATUS status =
            ::AcceptSecurityContext(&credentials_.handle, made_ ? &context_ : nullptr, &inMessage, kWanted, 0,
                                    &context_, &outMessage, &given, nullptr);
        made_ = made_ || status == SEC_E_OK || status == SEC_I_CONTINUE_NEEDED;
        if (out[0].pvBuffer != nullptr) {
            below_->Write({static_cast<const char*>(out[0].pvBuffer), out[0].cbBuffer});
            ::FreeContextBuffer(out[0].pvBuffer);
        }
        if (status != SEC_E_INCOMPLETE_MESSAGE) {
            received_ = in[1].BufferType == SECBUFFER_EXTRA ? received_.substr(received_.size() - in[1].cbBuffer) : "";
        }
        return status;
    }

    const std::unique_ptr<Connection> below_;
    Credentials credentials_;
    CtxtHandle context_ = {};
    bool made_ = false;
    SecPkgContext_StreamSizes sizes_ = {};
    std::string received_;  // what is not decrypted yet
};

}  // namespace

std::unique_ptr<Connection> PlainConnection(SOCKET socket) {
    return std::make_unique<Plain>(socket);
}

std::unique_ptr<Connection> TlsConnection(SOCKET socket, PCCERT_CONTEXT certificate, long& status) {
    auto connection = std::make_unique<Tls>(PlainConnection(socket), certificate);
    status = connection->Shake();
    return status == SEC_E_OK ? std::move(connection) : nullptr;
}

long TlsStatus(PCCERT_CONTEXT certificate) {
    Credentials credentials(certificate);
    if (credentials.status != SEC_E_OK || !IsWine()) {
        return credentials.status;
    }
    // Wine gives credentials for a side that it does not have, which the first message shows.
    char nonsense[] = "no hello of a client";
    SecBuffer in[2] = {BufferOf(SECBUFFER_TOKEN, nonsense, sizeof nonsense), BufferOf(SECBUFFER_EMPTY)};
    SecBuffer out[1] = {BufferOf(SECBUFFER_TOKEN)};
    SecBufferDesc inMessage = {SECBUFFER_VERSION, 2, in};
    SecBufferDesc outMessage = {SECBUFFER_VERSION, 1, out};
    CtxtHandle context = {};
    ULONG given = 0;
    const SECURITY_STATUS status =
        ::AcceptSecurityContext(&credentials.handle, nullptr, &inMessage, ASC_REQ_ALLOCATE_MEMORY | ASC_REQ_STREAM, 0,
                                &context, &outMessage, &given, nullptr);
    if (out[0].pvBuffer != nullptr) {
        ::FreeContextBuffer(out[0].pvBuffer);
    }
    return status == SEC_E_UNSUPPORTED_FUNCTION ? status : SEC_E_OK;
}

}  // namespace zorvalis::acceptance
