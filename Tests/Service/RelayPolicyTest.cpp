#include "RelayPolicy.h"

#include "Support/Testing.h"

using namespace tdw;
using namespace tdw::service;
using namespace std::chrono_literals;

namespace {

constexpr const char* kPhone = "1,1,PHONE";
constexpr const char* kTablet = "1,2,TABLET";
const Error kFailure = Error("org.example", -7, "no multiplexer");

/// What a policy wants done, as words.
struct Words {
    std::string operator()(const RelayPolicy::StartServer&) const { return "start "; }
    std::string operator()(const RelayPolicy::EndServer&) const { return "end "; }
    std::string operator()(const RelayPolicy::CancelTimer&) const { return "no-timer "; }
    std::string operator()(const RelayPolicy::ListDevices&) const { return "list "; }
    std::string operator()(const RelayPolicy::SetTimer& timer) const
    {
        return std::to_string(timer.delay.count()) + "ms ";
    }
    std::string operator()(const RelayPolicy::Reply& reply) const
    {
        return std::to_string(reply.subscriber) + (reply.error ? "! " : "=ok ");
    }
    std::string operator()(const auto& tell) const
    {
        return std::to_string(tell.subscriber) + '<' + deviceEventText(tell.event) + ' ';
    }
};

std::string textOf(const RelayPolicy::Actions& actions)
{
    std::string text;
    for (const auto& action : actions)
        text += std::visit(Words(), action);
    return text;
}

struct Relay {
    std::string subscribe(std::uint64_t who) { return textOf(policy.subscribed(who, now)); }
    std::string started() { return textOf(policy.started()); }
    std::string line(std::string_view text) { return textOf(policy.received(text)); }
    std::string timer() { return textOf(policy.timerFired(now)); }
    std::string ended() { return textOf(policy.ended(kFailure, now)); }
    std::string listed(std::set<DevicePath> devices) { return textOf(policy.listed(devices)); }

    RelayPolicy policy;
    RelayPolicy::Clock::time_point now {};
};

} // namespace

TEST(RelayPolicy, TakesQuietForSuccessAndOtherWordsForTrouble)
{
    Relay quiet;
    (void)quiet.subscribe(1);
    (void)quiet.started();
    EXPECT_EQ(quiet.timer(), "no-timer 1=ok ");

    Relay noisy;
    (void)noisy.subscribe(1);
    (void)noisy.started();
    EXPECT_EQ(noisy.line("<?xml version=\"1.0\"?>"), "2000ms ") << "no sign of success";
    EXPECT_EQ(noisy.line("<plist>") + noisy.line("1,1,two words") + noisy.line(""), "");
    EXPECT_EQ(noisy.ended(), "end 1! no-timer ");
    EXPECT_EQ(noisy.policy.subscriberCount(), 0u);
}

TEST(RelayPolicy, StartsAgainAfterAPauseThatGrowsAndForgetsNoDevice)
{
    Relay relay;
    // A server streams to subscriber 1, with a phone on the cable.
    EXPECT_EQ(relay.subscribe(1), "start ");
    EXPECT_EQ(relay.started(), "250ms ");
    EXPECT_EQ(relay.line(kPhone), "no-timer 1=ok 1<1,1,PHONE ");
    for (const char* pause : { "100ms ", "200ms ", "400ms " }) {
        EXPECT_EQ(relay.ended(), std::string("end ") + pause);
        EXPECT_EQ(relay.line(kTablet), "") << "there is none that could have written it";
        EXPECT_EQ(relay.timer(), "start ");
        EXPECT_EQ(relay.started(), "250ms ");
    }
    EXPECT_EQ(relay.subscribe(2), "") << "waits for the one that starts";
    EXPECT_EQ(relay.ended(), "end 2! 800ms ") << "who has been told is not told of failures";
    (void)relay.timer();
    EXPECT_EQ(relay.line(kTablet), "no-timer list 1<1,2,TABLET ");
    EXPECT_EQ(relay.listed({ { 2, "TABLET" } }), "1<2,1,PHONE ") << "it went meanwhile";
    relay.now += 10s;
    EXPECT_EQ(relay.ended(), "end 100ms ") << "after a long life";
    (void)relay.timer();
    EXPECT_EQ(relay.timer(), "no-timer list ");
    EXPECT_EQ(textOf(relay.policy.listed(std::nullopt)), "1<2,2,TABLET ")
        << "what cannot be listed cannot be reached";
}
