#include "Platform/Connection.h"

#include "Mailbox.h"
#include "Platform/Listener.h"
#include "Platform/LocalSocket.h"
#include "Platform/MessageChannel.h"
#include "ProcessResources.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using namespace tdw;
using testing::HasSubstr;

namespace {

/// A listener in this process. What its connections receive goes to the mailbox.
class Peer {
public:
    Peer()
        : m_directory(testing::TempDir() + "tidewell-peer-XXXXXX")
    {
        m_directory = mkdtemp(m_directory.data());
        m_listener = *Listener::createPrivate(m_directory, m_queue, [this](FileHandle socket) {
            auto connection = Connection::accepted(std::move(socket), m_queue);
            connection->activate(
                { .message = [this](IncomingMessage message) { received.put(std::move(message)); },
                    .interruption = {},
                    .invalidation =
                        [this] {
                            ended.put(true);
                        } });
            accepted.put(std::move(connection));
        });
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer()
    {
        m_listener.reset();
        std::filesystem::remove_all(m_directory);
    }

    Endpoint endpoint() const { return m_listener->endpoint(); }
    void stopListening() { m_listener.reset(); }

    Mailbox<IncomingMessage> received;
    Mailbox<std::shared_ptr<Connection>> accepted;
    Mailbox<bool> ended;

private:
    std::string m_directory;
    const Queue m_queue = Queue::serial("peer");
    std::optional<Listener> m_listener;
};

/// A connection to the peer, with what its handlers report.
class Client {
public:
    explicit Client(const Endpoint& endpoint)
        : connection(Connection::toEndpoint(endpoint))
    {
        connection->activate({ .message = {},
            .interruption = [this] { events.put("interruption"); },
            .invalidation =
                [this] {
                    events.put("invalidation");
                } });
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client()
    {
        connection->invalidate();
        while (*events.take() != "invalidation") { }
    }

    void send(const std::string& selector)
    {
        connection->send(selector, {}, [this, selector](const Result<Array>& reply) {
            replies.put(selector + ": "
                + (reply ? Value(*reply).debugDescription()
                         : std::to_string(reply.error().code())));
        });
    }

    std::shared_ptr<Connection> connection;
    Mailbox<std::string> replies;
    Mailbox<std::string> events;
};

} // namespace

TEST(Connection, GivesEachMessageItsReplyInWhateverOrderTheyCome)
{
    Peer peer;
    Client client(peer.endpoint());
    client.send("first");
    client.send("second");
    const auto first = *peer.received.take();
    const auto second = *peer.received.take();
    EXPECT_EQ(first.selector, "first");
    second.reply.succeed({ 2 });
    second.reply.fail(Error("late", 1, std::string_view("answered already")));
    EXPECT_EQ(client.replies.take(), "second: [2]");
    first.reply.fail(Error("domain", 33, std::string_view("reason")));
    EXPECT_EQ(client.replies.take(), "first: 33");
}

TEST(Connection, AnswersWithAnErrorWhenNobodyElseDoes)
{
    Peer peer;
    Client client(peer.endpoint());
    client.send("forgotten");
    (void)peer.received.take();
    EXPECT_EQ(client.replies.take(), "forgotten: " + std::to_string(kReplyInvalidError));

    client.connection->send("unsendable", { Error("d", 1, std::string_view("r")) },
        [&](const Result<Array>& reply) { client.replies.put(reply.error().domain()); });
    EXPECT_EQ(client.replies.take(), kCocoaErrorDomain);
}

TEST(Connection, IsInterruptedWhenThePeerGoesAndConnectsAnewForTheNextMessage)
{
    Peer peer;
    Client client(peer.endpoint());
    client.send("pending");
    const auto pending = *peer.received.take();
    (*peer.accepted.take())->invalidate();
    EXPECT_EQ(client.events.take(), "interruption");
    EXPECT_EQ(client.replies.take(), "pending: " + std::to_string(kConnectionInterruptedError));

    client.send("again");
    const auto again = *peer.received.take();
    // To the connection that is gone; it must not meet the new one's message of the same number.
    pending.reply.succeed({ "stale" });
    again.reply.succeed({});
    EXPECT_EQ(client.replies.take(), "again: []");
    EXPECT_TRUE(client.replies.isEmpty());
}

TEST(Connection, BecomesInvalidWhenNobodyListensOrItsOwnerSaysSo)
{
    Peer peer;
    {
        Client client(peer.endpoint());
        client.send("pending");
        const auto message = peer.received.take();
        client.connection->invalidate();
        EXPECT_EQ(client.replies.take(), "pending: " + std::to_string(kConnectionInvalidError));
        client.send("late");
        EXPECT_EQ(client.replies.take(), "late: " + std::to_string(kConnectionInvalidError));
        EXPECT_TRUE(peer.ended.take()) << "the other end of an accepted connection ends with it";
    }
    Client client(peer.endpoint());
    peer.stopListening();
    client.send("nobody");
    EXPECT_EQ(client.replies.take(), "nobody: " + std::to_string(ENOENT));
}

TEST(Connection, EndsAloneForAPeerThatSendsNonsense)
{
    Peer peer;
    Client bystander(peer.endpoint());
    bystander.send("wait");
    const auto waiting = *peer.received.take();
    for (const std::string_view bytes :
        { std::string_view("\xff\xff\xff\xff", 4), std::string_view("\0\0\0\4abcd", 8) }) {
        FileHandle socket = *connectToLocalSocket(peer.endpoint().path());
        ASSERT_TRUE(socket.write(std::as_bytes(std::span(bytes))));
        EXPECT_TRUE(socket.readToEnd()->empty());
        EXPECT_TRUE(peer.ended.take());
    }
    waiting.reply.succeed({});
    EXPECT_EQ(bystander.replies.take(), "wait: []");
}

TEST(Connection, TakesNoMoreMessagesThanItCanAnswer)
{
    Peer peer;
    Client client(peer.endpoint());
    constexpr std::size_t kMany = MessageChannel::kMaximumUnanswered + 100;
    for (std::size_t i = 0; i < kMany; ++i)
        client.send("many");
    std::vector<IncomingMessage> held;
    for (std::size_t i = 0; i < MessageChannel::kMaximumUnanswered; ++i)
        held.push_back(*peer.received.take());
    // The rest comes as the first are answered, and not before.
    client.connection->send("one-way");
    EXPECT_TRUE(peer.received.isEmpty());
    for (std::size_t i = 0; i < kMany; ++i) {
        if (i >= held.size())
            held.push_back(*peer.received.take());
        held[i].reply.succeed({});
        EXPECT_EQ(client.replies.take(), "many: []");
    }
    EXPECT_EQ(peer.received.take()->selector, "one-way");
}

TEST(Connection, LeavesNothingBehind)
{
    const auto before = ProcessResources::now();
    {
        Peer peer;
        for (int i = 0; i < 20; ++i) {
            Client client(peer.endpoint());
            client.send("hello");
            peer.received.take()->reply.succeed({});
            EXPECT_EQ(client.replies.take(), "hello: []");
            if (i % 2 == 0) // Given up while it is open, by its last owner.
                client.connection = Connection::toEndpoint(peer.endpoint());
            if (i % 2 == 0)
                client.events.put("invalidation");
        }
        for (int i = 0; i < 20; ++i)
            EXPECT_TRUE(peer.ended.take());
        while (!peer.accepted.isEmpty())
            (void)peer.accepted.take();
    }
    EXPECT_EQ(ProcessResources::settling(before), before);
}
