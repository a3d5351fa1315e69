#pragma once

#include "Platform/Handle.h"
#include "Platform/Values/Data.h"

#include <openssl/ssl.h>

#include <cstddef>
#include <span>
#include <string>

namespace tdw::simulator {

/// The device's side of one TLS session, without a socket: given the bytes that arrive, says the
/// bytes that go out and the content.
class TlsSession {
public:
    explicit TlsSession(SSL_CTX& context);

    enum class State {
        Handshaking,
        Open,
        /// The peer has closed TLS; what follows is plain.
        Ended,
        Failed,
    };

    /// Takes what has arrived and goes as far as it can; appends content to `content`.
    State receive(std::span<const std::byte> bytes, Data& content);

    /// Only while open.
    void send(std::span<const std::byte> content);

    /// Sends the close notification.
    void end();

    /// What is to be written to the peer now.
    Data takeOutput();

    /// What arrived after the peer's close notification.
    Data takeRest();

    /// Of the handshake, once it is over: "TLSv1.3".
    std::string version() const;

    /// Why it failed, for the log.
    const std::string& failure() const { return m_failure; }

private:
    State fail();

    Handle<SSL, &SSL_free> m_ssl;
    // Both belong to the session above.
    BIO* m_incoming;
    BIO* m_outgoing;
    std::string m_failure;
};

} // namespace tdw::simulator
