#pragma once

#include "Platform/FileHandle.h"
#include "Platform/Message.h"
#include "Platform/MessageFrame.h"
#include "Platform/Queue.h"

#include <asio/local/stream_protocol.hpp>

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>

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
/// is closed, by either end, whoever holds it.
class MessageChannel : public std::enable_shared_from_this<MessageChannel> {
public:
    struct Handlers {
        std::function<void(Message)> message {};
        std::function<void(Reply)> reply {};
        /// The other end is gone, or what it sent makes no sense. Runs once at most; not after
        /// `close`.
        std::function<void(const Error&)> ended {};
    };

    /// How many messages of the other end may wait for their replies.
    static constexpr std::size_t kMaximumUnanswered = 512;
    /// How many bytes may wait to be fetched before nothing more is taken in.
    static constexpr std::size_t kPausingBacklog = std::size_t { 1 } << 20;
    /// How many bytes may wait to be fetched at all.
    static constexpr std::size_t kMaximumBacklog = 2 * kMaximumFramePayload;

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
    void send(Data frame);

    /// Says that a message that wanted a reply has got it.
    void answered();

    void close();

private:
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

    std::deque<Data> m_output;
    std::size_t m_firstWritten = 0; // of the first element
    std::size_t m_backlog = 0;
    bool m_waitsForRoom = false;
    bool m_canWrite = true;

    bool m_isClosed = false;
};

} // namespace tdw
