#pragma once

#include "Platform/Messages/Message.h"
#include "Platform/Messages/MessageFrame.h"
#include "Platform/Queues/Queue.h"
#include "Platform/System/FileHandle.h"

#include <asio/local/stream_protocol.hpp>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

namespace tdw {

class WorkerPool;

/// A connected socket that carries messages both ways.
///
/// Bounded in every direction: while the other end leaves too much unread, or has too many messages
/// that wait for their replies here, nothing more is read from it; what is malformed, too large or
/// never fetched ends the channel.
///
/// The bytes are read and written by system calls of its own: comparing an error with those of Asio
/// uses objects that are gone while a process ends, and a channel may still be at work then.
///
/// Belongs to a serial queue: every function is called there, and every handler is. Lives until it
/// is closed by either end, even where nothing else holds it.
class MessageChannel : public std::enable_shared_from_this<MessageChannel> {
public:
    struct Handlers {
        std::function<void(Message)> message {};
        std::function<void(Reply)> reply {};
        /// The other end is gone (EPIPE; ECONNRESET where it left something unread), or what it
        /// sent makes no sense. `unread` are the messages that it has certainly not read; the rest
        /// it may have read. Runs once at most; not after `close`.
        std::function<void(const Error&, const std::vector<std::uint64_t>& unread)> ended {};
    };

    /// How many messages of the other end may wait for their replies.
    static constexpr std::size_t kMaximumUnanswered = 512;
    /// How many bytes may wait to be fetched before nothing more is taken in.
    static constexpr std::size_t kPausingBacklog = std::size_t { 1 } << 20;
    /// How many bytes may wait to be fetched when one more frame is sent; beyond that the channel
    /// ends.
    static constexpr std::size_t kMaximumBacklog = std::size_t { 8 } << 20;

    /// Errors: `kPosixErrorDomain`; the socket cannot be watched.
    static Result<std::shared_ptr<MessageChannel>> create(
        FileHandle socket, Queue queue, Handlers handlers);

    MessageChannel(const MessageChannel&) = delete;
    MessageChannel& operator=(const MessageChannel&) = delete;
    ~MessageChannel() = default;

    /// Begins to read.
    void start();

    /// Writes now what the system takes, and the rest when it takes more.
    /// @param frame as the encoders make it
    /// @param identifier what `ended` knows it by
    void send(Data frame, std::uint64_t identifier = 0);

    /// Says that a message that wanted a reply has got it.
    void answered();

    void close();

private:
    struct OutgoingFrame {
        Data bytes;
        std::uint64_t identifier = 0;
    };

    MessageChannel(Queue queue, asio::local::stream_protocol::socket socket, Handlers handlers);

    bool isHeldUp() const;
    void waitForInput();
    void readable();
    void handleInput();
    void handle(std::span<const std::byte> payload);
    void write();
    void waitForRoom();
    void giveUpWriting();
    void end(const Error& error);

    // The queue goes last, because the socket lives in its context.
    const Queue m_queue;
    WorkerPool& m_pool;
    asio::local::stream_protocol::socket m_socket;
    Handlers m_handlers;

    FrameDecoder m_decoder;
    std::size_t m_unanswered = 0;
    bool m_waitsForInput = false;
    bool m_handlesInput = false;

    std::deque<OutgoingFrame> m_output;
    std::size_t m_firstWritten = 0; // of the first element
    /// The frame of which something was written last.
    std::uint64_t m_lastWritten = 0;
    std::size_t m_backlog = 0;
    bool m_waitsForRoom = false;
    bool m_canWrite = true;

    bool m_isClosed = false;
    /// The other end went without having read everything.
    bool m_isReset = false;
};

} // namespace tdw
