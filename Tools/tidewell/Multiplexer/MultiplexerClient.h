#pragma once

#include "Multiplexer/MultiplexerAddress.h"
#include "Platform/Queues/EventLoop.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <sys/socket.h>

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// What became of asking the multiplexer something.
enum class MultiplexerState {
    /// There is no socket, so the multiplexer does not run.
    Absent,
    /// There is one, but this user may not use it.
    NotPermitted,
    /// Nothing listens on it: a multiplexer that ended left it behind, or none runs on that port.
    NotListening,
    /// It cannot be reached for another reason.
    Unreachable,
    /// It accepts a connection, or not even that, and then says nothing.
    Silent,
    /// Something answers, but it is no multiplexer.
    Nonsense,
    /// It answers as it should.
    Working,
};

struct MultiplexerReport {
    MultiplexerAddress address;
    MultiplexerState state = MultiplexerState::Unreachable;
    /// What the system says of a failed connection.
    std::string systemMessage {};
};

/// The most time that one question takes: much more than a multiplexer on a loaded machine needs.
inline constexpr std::chrono::milliseconds kMultiplexerPatience { 3000 };

/// Asks the multiplexer itself, each question over a connection of its own.
///
/// The multiplexer's queue is short: a connection that the system refuses for that reason (EAGAIN)
/// is tried again until the time is over. Belongs to the loop's thread. Handlers run on the loop,
/// once each, within the time; none runs after the client's end.
class MultiplexerClient {
public:
    explicit MultiplexerClient(EventLoop& loop, MultiplexerAddress address = multiplexerAddress(),
        std::chrono::milliseconds patience = kMultiplexerPatience);
    MultiplexerClient(const MultiplexerClient&) = delete;
    MultiplexerClient& operator=(const MultiplexerClient&) = delete;
    ~MultiplexerClient();

    const MultiplexerAddress& address() const { return m_address; }

    /// Asks for the device list. @param handler takes what became of it
    void probe(std::function<void(const MultiplexerReport&)> handler);

    /// Asks for the UDIDs of the devices that are there.
    /// Errors: those of `multiplexerError`
    void listDevices(std::function<void(Result<std::vector<std::string>>)> handler);

    /// Asks whether this computer is paired with a device, as far as it knows itself. The device is
    /// not asked. Errors: those of `multiplexerError`
    void findPairRecord(std::string_view udid, std::function<void(Result<bool>)> handler);

private:
    class Conversation;
    struct Answer;
    /// An address as the system takes it.
    struct SocketAddress {
        sockaddr_storage storage {};
        socklen_t length = 0;
    };

    void ask(Data request, std::function<void(const Answer&)> handler);
    void resolve();

    EventLoop& m_loop;
    const MultiplexerAddress m_address;
    const std::chrono::milliseconds m_patience;
    std::vector<SocketAddress> m_socketAddresses;
    /// Why there are none.
    int m_resolveError = 0;
    std::list<std::unique_ptr<Conversation>> m_conversations;
};

/// What else helps to explain a multiplexer that cannot be asked.
struct MultiplexerSurroundings {
    /// Whether the program is installed on this computer.
    bool isInstalled = true;
    /// Whether a device of Apple's is on the USB bus.
    bool isDeviceOnCable = false;
};
MultiplexerSurroundings multiplexerSurroundings();

/// The error shown for a multiplexer that cannot be asked: `MultiplexerUnavailable`.
/// @param cause what else failed because of it
Error multiplexerError(const MultiplexerReport& report, const std::optional<Error>& cause,
    const MultiplexerSurroundings& surroundings = multiplexerSurroundings());

} // namespace tdw::cli
