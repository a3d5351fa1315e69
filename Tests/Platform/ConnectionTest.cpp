#include "Platform/Messages/Connection.h"

#include "FakePeer.h"
#include "Platform/Messages/MessageChannel.h"
#include "Platform/System/LocalSocket.h"
#include "ProcessResources.h"
#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

using namespace tdw;
using namespace matchers;

namespace {

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
    FakePeer peer;
    Client client(peer.endpoint());
    client.send("first");
    client.send("second");
    const auto first = *peer.messages().take();
    const auto second = *peer.messages().take();
    EXPECT_EQ(first.selector, "first");
    second.reply.succeed({ 2 });
    second.reply.fail(Error("late", 1, std::string_view("answered already")));
    EXPECT_EQ(client.replies.take(), "second: [2]");
    first.reply.fail(Error("domain", 33, std::string_view("reason")));
    EXPECT_EQ(client.replies.take(), "first: 33");
}

TEST(Connection, AnswersWithAnErrorWhereNoOtherAnswerComes)
{
    FakePeer peer;
    Client client(peer.endpoint());
    client.send("forgotten");
    (void)peer.messages().take();
    EXPECT_EQ(client.replies.take(), "forgotten: " + std::to_string(kReplyInvalidError));

    client.connection->send("unsendable", { Error("d", 1, std::string_view("r")) },
        [&](const Result<Array>& reply) { client.replies.put(reply.error().domain()); });
    EXPECT_EQ(client.replies.take(), kCocoaErrorDomain);
}

TEST(Connection, IsInterruptedWhenThePeerGoesAndSendsNoMore)
{
    FakePeer peer;
    Client client(peer.endpoint());
    client.send("pending");
    const auto pending = *peer.messages().take();
    (*peer.connections().take())->invalidate();
    EXPECT_EQ(client.events.take(), "interruption");
    EXPECT_EQ(client.replies.take(), "pending: " + std::to_string(kConnectionInterruptedError));
    pending.reply.succeed({ "too late" });

    client.send("again");
    EXPECT_EQ(client.replies.take(), "again: " + std::to_string(kConnectionClosedError));
    EXPECT_TRUE(peer.messages().isEmpty());
    client.events.put("invalidation"); // Which an interrupted connection does not report.
}

TEST(Connection, BecomesInvalidWhenNothingListensOrItsOwnerEndsIt)
{
    FakePeer peer;
    {
        Client client(peer.endpoint());
        client.send("pending");
        const auto message = peer.messages().take();
        client.connection->send("last words");
        client.connection->invalidate();
        EXPECT_EQ(peer.messages().take()->selector, "last words");
        EXPECT_EQ(client.replies.take(), "pending: " + std::to_string(kConnectionInvalidError));
        client.send("late");
        EXPECT_EQ(client.replies.take(), "late: " + std::to_string(kConnectionClosedError));
        EXPECT_TRUE(peer.ended().take()) << "the other end of an accepted connection ends with it";
    }
    Client client(peer.endpoint());
    peer.stopListening();
    client.send("unheard");
    EXPECT_EQ(client.replies.take(), "unheard: " + std::to_string(ENOENT));
}

TEST(Connection, EndsTheWaitForAServiceToStartAtOnce)
{
    const TemporaryDirectory temporary;
    const std::filesystem::path& directory = temporary.path();
    setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
    const auto executable = directory / "slow-service";
    std::ofstream(executable) << "#!/bin/sh\nexec 3>" << directory / "started"
                              << "\nexec sleep 600\n";
    std::filesystem::permissions(executable, std::filesystem::perms::owner_all);
    const auto before = ProcessResources::now();

    auto connection = Connection::toService({ .name = "org.example.Slow",
        .executable = "slow-service",
        .directory = "slow",
        .bundle = Bundle(directory) });
    Mailbox<std::int64_t> codes;
    connection->activate({});
    connection->send("hello", {},
        [&](const Result<Array>& reply) { codes.put(reply ? 0 : reply.error().code()); });
    EXPECT_TRUE(becomesTrue([&] { return std::filesystem::exists(directory / "started"); }));
    const auto start = std::chrono::steady_clock::now();
    connection->invalidate();
    EXPECT_EQ(codes.take(), kConnectionInvalidError);
    connection.reset();
    EXPECT_TRUE(ProcessResources::settleWithin(before)) << "nor does its launcher stay";
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
    unsetenv("XDG_RUNTIME_DIR");
}

TEST(Connection, TakesNoMoreMessagesThanItCanAnswer)
{
    FakePeer peer;
    Client client(peer.endpoint());
    constexpr std::size_t kMany = MessageChannel::kMaximumUnanswered + 100;
    for (std::size_t i = 0; i < kMany; ++i)
        client.send("many");
    std::vector<IncomingMessage> held;
    for (std::size_t i = 0; i < MessageChannel::kMaximumUnanswered; ++i)
        held.push_back(*peer.messages().take());
    // The rest comes as the first are answered, and not before.
    client.connection->send("one-way");
    EXPECT_TRUE(peer.messages().isEmpty());
    for (std::size_t i = 0; i < kMany; ++i) {
        if (i >= held.size())
            held.push_back(*peer.messages().take());
        held[i].reply.succeed({});
        EXPECT_EQ(client.replies.take(), "many: []");
    }
    EXPECT_EQ(peer.messages().take()->selector, "one-way");
}
