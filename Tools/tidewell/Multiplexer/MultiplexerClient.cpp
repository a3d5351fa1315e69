#include "Multiplexer/MultiplexerClient.h"

#include "Multiplexer/MultiplexerConversation.h"

#include <netdb.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace tdw::cli {

namespace {

/// How long to wait before a connection that could not be made yet is looked at again.
constexpr std::chrono::milliseconds kConnectPause { 10 };

MultiplexerState stateOfFailedConnection(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return MultiplexerState::Absent;
    case EACCES:
    case EPERM:
        return MultiplexerState::NotPermitted;
    case ECONNREFUSED:
    case ENOTSOCK:
        return MultiplexerState::NotListening;
    default:
        return MultiplexerState::Unreachable;
    }
}

} // namespace

struct MultiplexerClient::Answer {
    MultiplexerReport report;
    Dictionary reply {};
};

/// One question:
///
///     connecting (again and again) ──> waiting for the reply ──> answered
class MultiplexerClient::Conversation {
public:
    Conversation(
        MultiplexerClient& client, Data request, std::function<void(const Answer&)> handler)
        : m_client(client)
        , m_request(std::move(request))
        , m_handler(std::move(handler))
        , m_deadline(
              client.m_loop.after(client.m_patience, [this] { finish(MultiplexerState::Silent); }))
        , m_retry(client.m_loop.after(std::chrono::nanoseconds(0), [this] { connect(); }))
    {
    }

private:
    void connect()
    {
        const auto& addresses = m_client.m_socketAddresses;
        if (m_addressIndex == addresses.size())
            return fail(m_lastError ? m_lastError : m_client.m_resolveError);
        const SocketAddress& address = addresses[m_addressIndex];
        if (!m_socket.isOpen()) {
            m_socket = FileHandle(
                ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
            if (!m_socket.isOpen())
                return fail(errno);
        }
        const int result = ::connect(m_socket.descriptor(),
            reinterpret_cast<const sockaddr*>(&address.storage), address.length);
        const int error = result == 0 ? EISCONN : errno;
        if (error == EISCONN)
            return send();
        if (error == EAGAIN || error == EINPROGRESS || error == EALREADY || error == EINTR) {
            m_retry = m_client.m_loop.after(kConnectPause, [this] { connect(); });
            return;
        }
        m_lastError = error;
        m_socket.close();
        ++m_addressIndex;
        connect();
    }

    void send()
    {
        // The socket's buffer holds far more than a request.
        if (::send(m_socket.descriptor(), m_request.data(), m_request.size(), MSG_NOSIGNAL)
            != static_cast<ssize_t>(m_request.size()))
            return finish(MultiplexerState::Nonsense);
        auto source = m_client.m_loop.whenReadable(m_socket.descriptor(), [this] { receive(); });
        if (!source)
            return fail(static_cast<int>(source.error().code()));
        m_readable = *std::move(source);
    }

    void receive()
    {
        std::array<std::byte, 4096> chunk {};
        const ssize_t count = ::recv(m_socket.descriptor(), chunk.data(), chunk.size(), 0);
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            return;
        if (count > 0)
            m_reply.append(std::span(chunk).first(static_cast<std::size_t>(count)));
        if (m_reply.state() == MultiplexerReply::State::Complete)
            finish(MultiplexerState::Working);
        else if (count <= 0 || m_reply.state() == MultiplexerReply::State::Malformed)
            finish(MultiplexerState::Nonsense);
    }

    void fail(int error)
    {
        finish(stateOfFailedConnection(error), std::generic_category().message(error));
    }

    /// The end of this object.
    void finish(MultiplexerState state, std::string systemMessage = {})
    {
        const Answer answer { { m_client.m_address, state, std::move(systemMessage) },
            m_reply.body() };
        const auto handler = std::move(m_handler);
        m_client.m_conversations.remove_if(
            [this](const auto& conversation) { return conversation.get() == this; });
        handler(answer);
    }

    MultiplexerClient& m_client;
    const Data m_request;
    std::function<void(const Answer&)> m_handler;
    FileHandle m_socket;
    MultiplexerReply m_reply;
    std::size_t m_addressIndex = 0;
    int m_lastError = 0;
    EventLoop::Source m_deadline;
    EventLoop::Source m_retry;
    EventLoop::Source m_readable;
};

MultiplexerClient::MultiplexerClient(
    EventLoop& loop, MultiplexerAddress address, std::chrono::milliseconds patience)
    : m_loop(loop)
    , m_address(std::move(address))
    , m_patience(patience)
{
    resolve();
}

MultiplexerClient::~MultiplexerClient() = default;

void MultiplexerClient::resolve()
{
    if (!m_address.path.empty()) {
        sockaddr_un local {};
        local.sun_family = AF_UNIX;
        if (m_address.path.size() >= sizeof local.sun_path) {
            m_resolveError = ENAMETOOLONG;
            return;
        }
        m_address.path.copy(local.sun_path, sizeof local.sun_path);
        SocketAddress& address = m_socketAddresses.emplace_back();
        std::memcpy(&address.storage, &local, sizeof local);
        address.length = sizeof local;
        return;
    }
    m_resolveError = EHOSTUNREACH;
    addrinfo hints {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(m_address.host.c_str(), std::to_string(m_address.port).c_str(), &hints, &found)
        != 0)
        return;
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
    for (const addrinfo* each = found; each; each = each->ai_next) {
        SocketAddress& address = m_socketAddresses.emplace_back();
        std::memcpy(&address.storage, each->ai_addr, each->ai_addrlen);
        address.length = each->ai_addrlen;
    }
}

void MultiplexerClient::ask(Data request, std::function<void(const Answer&)> handler)
{
    m_conversations.push_back(
        std::make_unique<Conversation>(*this, std::move(request), std::move(handler)));
}

void MultiplexerClient::probe(std::function<void(const MultiplexerReport&)> handler)
{
    ask(deviceListRequest(), [handler = std::move(handler)](const Answer& answer) {
        MultiplexerReport report = answer.report;
        if (report.state == MultiplexerState::Working && !udidsIn(answer.reply))
            report.state = MultiplexerState::Nonsense;
        handler(report);
    });
}

void MultiplexerClient::listDevices(std::function<void(Result<std::vector<std::string>>)> handler)
{
    ask(deviceListRequest(), [handler = std::move(handler)](const Answer& answer) {
        MultiplexerReport report = answer.report;
        const auto udids = udidsIn(answer.reply);
        if (report.state == MultiplexerState::Working && udids)
            return handler(*udids);
        if (report.state == MultiplexerState::Working)
            report.state = MultiplexerState::Nonsense;
        handler(multiplexerError(report, std::nullopt));
    });
}

void MultiplexerClient::findPairRecord(
    std::string_view udid, std::function<void(Result<bool>)> handler)
{
    ask(pairRecordRequest(udid), [handler = std::move(handler)](const Answer& answer) {
        if (answer.report.state == MultiplexerState::Working)
            handler(isUsablePairRecord(answer.reply));
        else
            handler(multiplexerError(answer.report, std::nullopt));
    });
}

} // namespace tdw::cli
