#include "Devices/MultiplexerProbe.h"

#include "Devices/MultiplexerConversation.h"
#include "Platform/FileHandle.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <system_error>

namespace tdw::cli {

namespace {

using Clock = std::chrono::steady_clock;

/// Waits for an event on the socket; false at the deadline.
bool waitFor(const FileHandle& socket, short events, Clock::time_point deadline)
{
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd entry { socket.descriptor(), events, 0 };
        const int count = left.count() > 0 ? poll(&entry, 1, static_cast<int>(left.count())) : 0;
        if (count >= 0 || errno != EINTR)
            return count > 0;
    }
}

/// Connects; returns 0 or the error number, ETIMEDOUT at the deadline.
int connectSocket(
    const FileHandle& socket, const sockaddr* address, socklen_t length, Clock::time_point deadline)
{
    if (connect(socket.descriptor(), address, length) == 0)
        return 0;
    // A local socket whose queue is full says EAGAIN: whoever should take connections does not.
    if (errno == EAGAIN)
        return ETIMEDOUT;
    if (errno != EINPROGRESS)
        return errno;
    if (!waitFor(socket, POLLOUT, deadline))
        return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof(error);
    getsockopt(socket.descriptor(), SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

FileHandle makeSocket(int family)
{
    return FileHandle(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

struct Connected {
    FileHandle socket;
    int error = 0;
};

Connected connectLocally(const std::string& path, Clock::time_point deadline)
{
    sockaddr_un address {};
    if (path.size() >= sizeof(address.sun_path))
        return { {}, ENAMETOOLONG };
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    Connected result { makeSocket(AF_UNIX), 0 };
    result.error = connectSocket(
        result.socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address), deadline);
    return result;
}

Connected connectByNetwork(const MultiplexerAddress& address, Clock::time_point deadline)
{
    addrinfo hints {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &found)
        != 0)
        return { {}, EHOSTUNREACH };
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
    Connected result { {}, EHOSTUNREACH };
    for (const addrinfo* each = found; each; each = each->ai_next) {
        result.socket = makeSocket(each->ai_family);
        result.error = connectSocket(result.socket, each->ai_addr, each->ai_addrlen, deadline);
        if (result.error == 0)
            break;
    }
    return result;
}

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
        return MultiplexerState::NobodyListens;
    case ETIMEDOUT:
        return MultiplexerState::Silent;
    default:
        return MultiplexerState::Unreachable;
    }
}

/// What became of one question.
struct Conversation {
    MultiplexerState state = MultiplexerState::Nonsense;
    Dictionary reply {};
};

Conversation converse(const FileHandle& socket, const Data& request, Clock::time_point deadline)
{
    if (send(socket.descriptor(), request.data(), request.size(), MSG_NOSIGNAL)
        != static_cast<ssize_t>(request.size()))
        return { MultiplexerState::Nonsense };

    MultiplexerReply reply;
    std::array<std::byte, 4096> chunk {};
    while (reply.state() == MultiplexerReply::State::Incomplete) {
        if (!waitFor(socket, POLLIN, deadline))
            return { MultiplexerState::Silent };
        const ssize_t count = recv(socket.descriptor(), chunk.data(), chunk.size(), 0);
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (count <= 0)
            return { MultiplexerState::Nonsense };
        reply.append(std::span(chunk).first(static_cast<std::size_t>(count)));
    }
    if (reply.state() == MultiplexerReply::State::Malformed)
        return { MultiplexerState::Nonsense };
    return { MultiplexerState::Working, reply.body() };
}

Connected connectTo(const MultiplexerAddress& address, Clock::time_point deadline)
{
    return address.path.empty() ? connectByNetwork(address, deadline)
                                : connectLocally(address.path, deadline);
}

} // namespace

MultiplexerReport probeMultiplexer(
    const MultiplexerAddress& address, std::chrono::milliseconds patience)
{
    const auto deadline = Clock::now() + patience;
    const Connected connected = connectTo(address, deadline);
    if (connected.error != 0)
        return { address, stateOfFailedConnection(connected.error),
            std::generic_category().message(connected.error) };
    const auto conversation = converse(connected.socket, deviceListRequest(), deadline);
    const bool isOther
        = conversation.state == MultiplexerState::Working && !isDeviceList(conversation.reply);
    return { address, isOther ? MultiplexerState::Nonsense : conversation.state, {} };
}

bool holdsPairing(const MultiplexerAddress& address, std::string_view udid)
{
    const auto deadline = Clock::now() + kMultiplexerPatience;
    const Connected connected = connectTo(address, deadline);
    return connected.error == 0
        && isUsablePairRecord(converse(connected.socket, pairRecordRequest(udid), deadline).reply);
}

} // namespace tdw::cli
