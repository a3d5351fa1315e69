#include "Client/TidewellServiceClient.h"

#include "Client/HandlerOnce.h"
#include "FakePeer.h"
#include "Interfaces/TDWResponse.h"
#include "Mailbox.h"
#include "Platform/Queues/Queue.h"
#include "Support/Testing.h"

#include <atomic>
#include <stdexcept>

using namespace tdw;
using namespace matchers;

namespace {

constexpr const char* kInvoke = "invokeServer:withArguments:timeout:reply:";
constexpr const char* kSubscribe = "subscribeToDeviceEventsWithReply:";
constexpr const char* kEvent = "serviceDidReceiveDeviceEvent:";

/// A client of the played service, and what it called back on its queue.
class TidewellServiceClientTest : public testing::Test {
protected:
    TidewellServiceClientTest()
        : client(TidewellServiceClient::initWithEndpoint(service.endpoint(), queue))
    {
    }
    ~TidewellServiceClientTest() override { client->invalidateTerminatingService(false); }

    auto reportEvent()
    {
        return [this](const std::string& event) {
            EXPECT_TRUE(queue.isCurrent());
            callbacks.put("event " + event);
        };
    }
    auto reportError()
    {
        return [this](const std::optional<Error>& error) {
            EXPECT_TRUE(queue.isCurrent());
            callbacks.put(
                error ? std::to_string(error->code()) + " " + error->failureReason() : "none");
        };
    }
    auto reportEnvelope()
    {
        return [this](const Value& envelope) {
            EXPECT_TRUE(queue.isCurrent());
            callbacks.put(envelope.debugDescription());
        };
    }

    /// Makes the client subscribe and plays the service's side of it.
    std::shared_ptr<Connection> subscribe()
    {
        client->subscribeToDeviceEventsWithEventHandler(reportEvent(), reportError());
        const auto message = *service.messages().take();
        EXPECT_EQ(message.selector, kSubscribe);
        message.reply.succeed({});
        EXPECT_EQ(callbacks.take(), "none");
        return *service.connections().take();
    }

    /// Makes the client ask for something; what it sends is the test's to expect.
    void ask() { client->deviceListWithCompletionHandler(reportEnvelope()); }

    FakePeer service;
    const Queue queue = Queue::serial("callbacks");
    Mailbox<std::string> callbacks;
    std::shared_ptr<TidewellServiceClient> client;
};

} // namespace

TEST_F(TidewellServiceClientTest, SendsEachRequestAsItsServerTakesIt)
{
    const std::vector<std::string> watches { "w1", "w2" };
    const std::string wireless = "com.apple.mobile.wireless_lockdown";
    const auto handler = reportEnvelope();
    const struct {
        std::function<void(TidewellServiceClient&)> request;
        const char* server;
        Array arguments;
        double timeout = 10;
    } rows[] = {
        { [&](auto& c) { c.deviceListWithCompletionHandler(handler); }, "tdw_list", {} },
        { [&](auto& c) { c.deviceInfoWithUDID("u", false, 1, handler); }, "tdw_info",
            { "u", "1" } },
        { [&](auto& c) { c.deviceInfoWithUDID("u", true, 3, handler); }, "tdw_info",
            { "u", "3", "--include-companion-identifiers" } },
        { [&](auto& c) { c.deviceBatteryWithUDID("", 2, handler); }, "tdw_battery", { "", "2" } },
        { [&](auto& c) { c.companionDevicesForDeviceWithUDID("u", 0, watches, handler); },
            "tdw_companion", { "u", "0", "w1", "w2" } },
        { [&](auto& c) { c.companionBatteriesForDeviceWithUDID("u", UINT64_MAX, {}, handler); },
            "tdw_companion_battery", { "u", "18446744073709551615" } },
        { [&](auto& c) { c.setWirelessEnabled(false, "u", handler); }, "tdw_config",
            { "u", wireless, "EnableWifiConnections", "0" } },
        { [&](auto& c) { c.setWirelessBuddyID("b", "u", handler); }, "tdw_config",
            { "u", wireless, "WirelessBuddyID", "b" } },
        { [&](auto& c) { c.deviceSetDomainKeyBoolValue("u", "d", "k", true, handler); },
            "tdw_config", { "u", "d", "k", "1" } },
        { [&](auto& c) { c.deviceSetDomainKeyValue("u", "d", "k", "v", handler); }, "tdw_config",
            { "u", "d", "k", "v" } },
        { [&](auto& c) { c.pairDeviceWithUDID("u", handler); }, "tdw_pairing", { "pair", "u" },
            20 },
        { [&](auto& c) { c.unpairDeviceWithUDID("u", handler); }, "tdw_pairing", { "unpair", "u" },
            20 },
        { [&](auto& c) {
             c.getWallpaperPreviewImageForDeviceWithUDID("u", 1, 1, 390.456, handler);
         },
            "tdw_wallpaper", { "u", "1", "1", "390.46" } },
    };
    for (const auto& row : rows) {
        row.request(*client);
        const auto message = *service.messages().take();
        EXPECT_EQ(message.selector, kInvoke);
        EXPECT_EQ(
            Value(message.arguments), Value(Array { row.server, row.arguments, row.timeout }));
        // The envelope is passed on as it is.
        const Value envelope = Dictionary { { "error", row.server } };
        message.reply.succeed({ envelope });
        EXPECT_EQ(callbacks.take(), envelope.debugDescription());
    }
    ask();
    service.messages().take()->reply.succeed({});
    EXPECT_THAT(*callbacks.take(), HasSubstr("makes no sense"));
}

TEST_F(TidewellServiceClientTest, SubscribesOnceAndHandsEventsOverAsTheyAre)
{
    const auto connection = subscribe();
    connection->send(kEvent, { "1,1,abc" });
    connection->send(kEvent, { 5 });
    connection->send("unknown", { "1,1,no" });
    connection->send(kEvent, { "anything" });
    EXPECT_EQ(callbacks.take(), "event 1,1,abc");
    EXPECT_EQ(callbacks.take(), "event anything");

    client->subscribeToDeviceEventsWithEventHandler(reportEvent(), reportError());
    EXPECT_EQ(callbacks.take(),
        "33 Attempting to subscribe to device events more than once on the same "
        "TidewellServiceClient instance.");
    EXPECT_TRUE(service.messages().isEmpty());

    const auto other = TidewellServiceClient::initWithClient(*client);
    other->subscribeToDeviceEventsWithEventHandler(reportEvent(), reportError());
    service.messages().take()->reply.succeed({});
    EXPECT_EQ(callbacks.take(), "none") << "a client of its own";
    other->invalidateTerminatingService(false);
}

TEST_F(TidewellServiceClientTest, KeepsTheHandlerOfASubscriptionThatFailed)
{
    client->subscribeToDeviceEventsWithEventHandler(reportEvent(), reportError());
    service.messages().take()->reply.succeed({ TDWCreateErrorResponseDictionary(
        Error("org.tidewell.Tidewell.Device", -3, std::string_view("real reason"))) });
    EXPECT_EQ(callbacks.take(), "-3 real reason");
    client->subscribeToDeviceEventsWithEventHandler(reportEvent(), reportError());
    EXPECT_THAT(*callbacks.take(), HasSubstr("33 "));
}

TEST_F(TidewellServiceClientTest, IsOfUseAfterItWasInvalidated)
{
    const auto connection = subscribe();
    Mailbox<bool> isHeld;
    Mailbox<bool> mayGoOn;
    queue.async([&] {
        isHeld.put(true);
        (void)mayGoOn.take();
    });
    (void)isHeld.take();
    connection->send(kEvent, { "1,1,queued" });
    client->getServiceEndpointWithCompletionHandler([](const auto&, const auto&) {});
    (void)service.messages().take(); // So the event before it has been queued.
    client->invalidate();
    EXPECT_EQ(service.messages().take()->selector, "terminate");
    mayGoOn.put(true);

    EXPECT_TRUE(service.ended().take());
    ask();
    const auto request = *service.messages().take();
    EXPECT_EQ(request.selector, kInvoke) << "no subscription";
    request.reply.succeed({ 1 });
    EXPECT_EQ(callbacks.take(), "1") << "and no event that was queued before";
}

TEST_F(TidewellServiceClientTest, LeavesNothingAfterTheLastInvalidationAndHearsNothingTwice)
{
    for (int i = 0; i < 20; ++i) {
        const auto first = subscribe();
        client->invalidateTerminatingService(false);
        const auto second = subscribe();
        EXPECT_TRUE(service.messages().isEmpty()) << "one subscription";
        client->invalidateTerminatingService(false);
        second->send(kEvent, { "1,1,late" });
        client->deviceBatteryWithUDID("between", 1, reportEnvelope());
        client->invalidateTerminatingService(false);
        EXPECT_THAT(*callbacks.take(), HasSubstr("4099")) << "it is not asked for any more";

        ask();
        std::optional<IncomingMessage> message = service.messages().take();
        if (message->arguments.size() == 3 && message->arguments[0] == Value("tdw_battery"))
            message = service.messages().take();
        EXPECT_EQ(message->selector, kInvoke) << "no subscription";
        message->reply.succeed({ 1 });
        EXPECT_EQ(callbacks.take(), "1");
        client->invalidateTerminatingService(false);
        for (int connection = 0; connection < 4; ++connection)
            EXPECT_TRUE(service.ended().take());
        for (; !service.connections().isEmpty(); (void)service.connections().take()) { }
        for (; !service.messages().isEmpty(); (void)service.messages().take()) { }
    }
    EXPECT_TRUE(callbacks.isEmpty());
}

TEST_F(TidewellServiceClientTest, AcceptsOneSubscriptionOfThreadsThatTryAtOnce)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back(
            [&] { client->subscribeToDeviceEventsWithEventHandler(reportEvent(), reportError()); });
    for (std::thread& thread : threads)
        thread.join();
    service.messages().take()->reply.succeed({});
    std::vector<std::string> results;
    for (std::size_t i = 0; i < threads.size(); ++i)
        results.push_back(callbacks.take()->substr(0, 4));
    EXPECT_EQ(std::ranges::count(results, "none"), 1);
    EXPECT_EQ(std::ranges::count(results, "33 A"), 7);
    EXPECT_TRUE(service.messages().isEmpty());
}

TEST_F(TidewellServiceClientTest, DestroysWhatHandlersHoldOnTheCallbackQueue)
{
    Mailbox<std::string> ends;
    struct Held {
        const Queue& queue;
        Mailbox<std::string>& ends;
        const char* name;
        ~Held() { ends.put(name + std::string(queue.isCurrent() ? "" : " on another thread")); }
    };
    const auto holding = [&](const char* name) {
        return [held = std::make_shared<Held>(queue, ends, name)](const auto&) {
        };
    };
    {
        const HandlerOnce<Value> neverCalled(queue, holding("never called"));
    }
    EXPECT_EQ(ends.take(), "never called");
    client->deviceListWithCompletionHandler(holding("answered"));
    service.messages().take()->reply.succeed({ 1 });
    EXPECT_EQ(ends.take(), "answered");
    client->setServiceReachedResourceLimit(
        [this, held = std::make_shared<Held>(queue, ends, "replaced")](const Value&) {});
    client->setServiceReachedResourceLimit(nullptr);
    EXPECT_EQ(ends.take(), "replaced");

    client->subscribeToDeviceEventsWithEventHandler(holding("event"), holding("subscribed"));
    service.messages().take()->reply.succeed({});
    EXPECT_EQ(ends.take(), "subscribed");
    client->subscribeToDeviceEventsWithEventHandler(holding("refused"), holding("error"));
    EXPECT_THAT((std::vector { *ends.take(), *ends.take() }),
        testing::UnorderedElementsAre("refused", "error"));
    client->deviceListWithCompletionHandler(holding("unanswered"));
    client->setServiceReachedResourceLimit(holding("resource"));
    const auto unanswered = service.messages().take();
    client->invalidateTerminatingService(false);
    client.reset();
    EXPECT_THAT((std::vector { *ends.take(), *ends.take(), *ends.take() }),
        testing::UnorderedElementsAre("event", "unanswered", "resource"));
    client = TidewellServiceClient::initWithEndpoint(service.endpoint(), queue);
}

TEST_F(TidewellServiceClientTest, TakesNullHandlersAndQueuesNothingForThem)
{
    std::atomic<int> queued = 0;
    const auto quiet = TidewellServiceClient::initWithEndpoint(
        service.endpoint(), CallbackQueue([&](const std::function<void()>&) { ++queued; }));
    quiet->deviceListWithCompletionHandler(nullptr);
    service.messages().take()->reply.succeed({ 1 });
    quiet->getServiceEndpointWithCompletionHandler(nullptr);
    service.messages().take()->reply.succeed({ service.endpoint().value() });
    quiet->subscribeToDeviceEventsWithEventHandler(nullptr, nullptr);
    service.messages().take()->reply.succeed({});
    const auto connection = *service.connections().take();
    connection->send(kEvent, { "1,1,abc" });
    connection->send("serviceReachedResourceLimitWithUptime:", { 17 });
    quiet->setServiceReachedResourceLimit(nullptr);
    EXPECT_FALSE(quiet->serviceReachedResourceLimit());
    // Answered in order: what came before has been dealt with.
    (void)service.ended().isEmpty();
    quiet->invalidate();
    EXPECT_TRUE(service.ended().take());
    EXPECT_EQ(queued, 0);
}

TEST_F(TidewellServiceClientTest, SendsOnceMoreWhatTheServiceWentWithoutReading)
{
    // The first connection ends unread, the next one is served.
    service.dropNextConnection();
    for (int i = 0; i < 3; ++i)
        ask();
    for (int i = 0; i < 3; ++i)
        service.messages().take()->reply.succeed({ "met the next service" });
    for (int i = 0; i < 3; ++i)
        EXPECT_THAT(*callbacks.take(), HasSubstr("met the next service"));
    client->invalidateTerminatingService(false);

    // Once only, and what changes something only where it was certainly not read.
    service.dropNextConnection();
    client->pairDeviceWithUDID("u", reportEnvelope());
    EXPECT_EQ(service.messages().take()->arguments.front(), Value("tdw_pairing"));
    EXPECT_THAT(*callbacks.take(), HasSubstr("gave the message up"));
    client->invalidateTerminatingService(false);

    service.dropNextConnection();
    client->subscribeToDeviceEventsWithEventHandler(reportEvent(), reportError());
    service.messages().take()->reply.succeed({});
    EXPECT_EQ(callbacks.take(), "none");
    EXPECT_TRUE(service.messages().isEmpty()) << "subscribed once";
}

TEST(TidewellServiceClientDeathTest, EndsTheProcessWhereAHandlerThrows)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            FakePeer service;
            const auto client = TidewellServiceClient::initWithEndpoint(
                service.endpoint(), Queue::serial("callbacks"));
            client->deviceListWithCompletionHandler(
                [](const Value&) { throw std::runtime_error("of the application"); });
            service.messages().take()->reply.succeed({ 1 });
            pause();
        },
        "of the application");
}

TEST_F(TidewellServiceClientTest, PassesOnTheResourceLimit)
{
    ask();
    service.messages().take()->reply.succeed({ 1 });
    EXPECT_EQ(callbacks.take(), "1");
    const auto connection = *service.connections().take();
    client->setServiceReachedResourceLimit([this](const Value& uptime) {
        EXPECT_TRUE(queue.isCurrent());
        callbacks.put(uptime.debugDescription());
    });
    connection->send("serviceReachedResourceLimitWithUptime:", { 18 });
    connection->send("serviceReachedResourceLimitWithUptime:", { "no number" });
    connection->send("serviceReachedResourceLimitWithUptime:", { 18.5 });
    EXPECT_EQ(callbacks.take(), "18");
    EXPECT_EQ(callbacks.take(), "18.5");
    queue.async([&] { client->serviceReachedResourceLimit()("read back"); });
    EXPECT_THAT(*callbacks.take(), HasSubstr("read back"));
}

TEST(TidewellServiceClient, GoesWithItsLastOwnerWhenItIsNotConnected)
{
    const Queue queue = Queue::serial("callbacks");
    Mailbox<bool> done;
    std::weak_ptr<TidewellServiceClient> weak;
    {
        FakePeer service;
        const auto client = TidewellServiceClient::initWithEndpoint(service.endpoint(), queue);
        weak = client;
        client->deviceListWithCompletionHandler([&](const Value&) { done.put(true); });
        const auto pending = service.messages().take();
        (*service.connections().take())->invalidate();
        (void)done.take();
    }
    // The loss of the connection let go of it; its threads do in a moment.
    EXPECT_TRUE(becomesTrue([&] { return weak.expired(); }));
}
