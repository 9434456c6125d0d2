#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Simulator/private/Io/ByteStream.h"
#include "Simulator/private/Peers/TlsSession.h"

namespace simulator {

/// How a phone behaves on its TCP connection.
enum class TcpManner {
    kTls,        ///< properly
    kSilent,     ///< connects and says nothing
    kPlainText,  ///< talks without TLS
    kHalfHello,  ///< sends the first half of its TLS greeting and nothing more
};

/// A phone's TCP connection to the receiver, with TLS on top unless it misbehaves.
///
/// Connecting, connected, secured (TLS done), over; each step calls its handler, from within the loop. The
/// ended handler runs once and may destroy the link; the others must not.
class TcpLink {
public:
    struct Address {
        std::string host;
        std::uint16_t port = 0;
        std::string bindTo;  ///< own IPv4 address; empty for any
    };
    struct Handlers {
        std::function<void()> connected;
        std::function<void(const std::string& version)> secured;
        std::function<void(std::string_view plain)> received;
        std::function<void(const std::string& reason)> ended;
    };

    /// Begins to connect. @throws std::runtime_error for an address that is no IPv4 text, credentials that
    /// OpenSSL refuses, or a connection refused at once.
    TcpLink(PollLoop& pollLoop, const Address& address, TcpManner tcpManner,
            const TlsCredentials& credentials, Handlers linkHandlers);
    ~TcpLink();

    TcpLink(const TcpLink&) = delete;
    TcpLink& operator=(const TcpLink&) = delete;

    /// Sends bytes inside TLS; before TLS is done they are dropped.
    void send(std::string_view plain);

    /// Ends TLS properly; the connection closes with the link.
    void close();

private:
    void onConnectDone();
    void begin();
    void onBytes(std::string_view bytes);
    void flush();
    void end(const std::string& reason);

    PollLoop& loop;
    const TcpManner manner;
    const Handlers handlers;
    TlsSession session;
    bool secured = false;
    UniqueFd connecting;
    std::unique_ptr<ByteStream> stream;
};

}  // namespace simulator
