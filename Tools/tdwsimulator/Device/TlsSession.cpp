#include "Device/TlsSession.h"

#include <openssl/err.h>

namespace tdw::simulator {

namespace {

Data takeAll(BIO* memory)
{
    Data data(BIO_ctrl_pending(memory));
    if (!data.empty())
        BIO_read(memory, data.data(), static_cast<int>(data.size()));
    return data;
}

} // namespace

TlsSession::TlsSession(SSL_CTX& context)
    : m_ssl(SSL_new(&context))
    , m_incoming(BIO_new(BIO_s_mem()))
    , m_outgoing(BIO_new(BIO_s_mem()))
{
    // Nothing there now does not mean that nothing will come.
    BIO_set_mem_eof_return(m_incoming, -1);
    SSL_set_bio(m_ssl.get(), m_incoming, m_outgoing);
    SSL_set_accept_state(m_ssl.get());
}

TlsSession::State TlsSession::receive(std::span<const std::byte> bytes, Data& content)
{
    if (!bytes.empty())
        BIO_write(m_incoming, bytes.data(), static_cast<int>(bytes.size()));
    ERR_clear_error();
    std::byte buffer[16 * 1024];
    while (true) {
        const int count = SSL_read(m_ssl.get(), buffer, sizeof buffer);
        if (count > 0) {
            content.insert(content.end(), buffer, buffer + count);
            continue;
        }
        switch (SSL_get_error(m_ssl.get(), count)) {
        case SSL_ERROR_WANT_READ:
            return SSL_is_init_finished(m_ssl.get()) != 0 ? State::Open : State::Handshaking;
        case SSL_ERROR_ZERO_RETURN:
            return State::Ended;
        default:
            return fail();
        }
    }
}

TlsSession::State TlsSession::fail()
{
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    m_failure = reason ? reason : "the peer broke the protocol";
    ERR_clear_error();
    return State::Failed;
}

void TlsSession::send(std::span<const std::byte> content)
{
    if (!content.empty())
        SSL_write(m_ssl.get(), content.data(), static_cast<int>(content.size()));
}

void TlsSession::end()
{
    SSL_shutdown(m_ssl.get());
}

Data TlsSession::takeOutput()
{
    return takeAll(m_outgoing);
}

Data TlsSession::takeRest()
{
    return takeAll(m_incoming);
}

std::string TlsSession::version() const
{
    return SSL_get_version(m_ssl.get());
}

} // namespace tdw::simulator
