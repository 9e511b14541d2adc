// The server's side of one connection to a server of the kit's, plain or over TLS. No call waits longer than half a
// minute for the client.
#pragma once

#include <winsock2.h>

#include <windows.h>

#include <wincrypt.h>

#include <memory>
#include <string>
#include <string_view>

namespace zorvalis::acceptance {

class Connection {
public:
    virtual ~Connection() = default;

    // Up to a few thousand bytes; empty at the client's end, or when it is silent for too long.
    virtual std::string Read() = 0;
    virtual bool Write(std::string_view bytes) = 0;

    // Tells the client that nothing more comes.
    virtual void End() = 0;
};

// Takes over the socket, which it closes.
std::unique_ptr<Connection> PlainConnection(SOCKET socket);

// Makes the handshake with this certificate. Null when it fails; `status` is what the last step of it said.
std::unique_ptr<Connection> TlsConnection(SOCKET socket, PCCERT_CONTEXT certificate, long& status);

// 0 when this Windows can be the server's side of TLS with this certificate; else what it says.
long TlsStatus(PCCERT_CONTEXT certificate);

}  // namespace zorvalis::acceptance
