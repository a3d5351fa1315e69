#pragma once

#include "Mailbox.h"
#include "Platform/Messages/Connection.h"
#include "Platform/Messages/Listener.h"
#include "Platform/Queues/Queue.h"
#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

#include <atomic>

/// The other end of connections, which the test plays message by message.
class FakePeer {
public:
    FakePeer()
    {
        auto listener = tdw::Listener::createPrivate(m_directory.path(), m_queue,
            { "test", "FakePeer" }, [queue = m_queue, seen = m_seen](tdw::FileHandle socket) {
                if (seen->dropsNext.exchange(false))
                    return waitForInput(socket);
                auto connection = tdw::Connection::accepted(std::move(socket), queue);
                connection->activate({ .message
                    = [seen](
                          tdw::IncomingMessage message) { seen->messages.put(std::move(message)); },
                    .interruption = {},
                    .invalidation =
                        [seen] {
                            seen->ended.put(true);
                        } });
                seen->connections.put(std::move(connection));
            });
        m_listener = *std::move(listener);
    }
    FakePeer(const FakePeer&) = delete;
    FakePeer& operator=(const FakePeer&) = delete;

    tdw::Endpoint endpoint() const { return m_listener->endpoint(); }
    void stopListening() { m_listener.reset(); }

    /// The next connection is closed when something has come, without having been read.
    void dropNextConnection() { m_seen->dropsNext = true; }

    /// What the connections have brought, the connections themselves, and their ends.
    Mailbox<tdw::IncomingMessage>& messages() { return m_seen->messages; }
    Mailbox<std::shared_ptr<tdw::Connection>>& connections() { return m_seen->connections; }
    Mailbox<bool>& ended() { return m_seen->ended; }

private:
    /// Apart from the rest, because connections may end after the test.
    struct Seen {
        Mailbox<tdw::IncomingMessage> messages;
        Mailbox<std::shared_ptr<tdw::Connection>> connections;
        Mailbox<bool> ended;
        std::atomic<bool> dropsNext = false;
    };

    static void waitForInput(const tdw::FileHandle& socket)
    {
        pollfd entry { socket.descriptor(), POLLIN, 0 };
        EXPECT_EQ(poll(&entry, 1, 30'000), 1);
    }

    const TemporaryDirectory m_directory;
    const tdw::Queue m_queue = tdw::Queue::serial("peer");
    const std::shared_ptr<Seen> m_seen = std::make_shared<Seen>();
    std::optional<tdw::Listener> m_listener;
};
