#include "RelayPolicy.h"

#include "Support/Testing.h"

#include <sstream>
#include <type_traits>

using namespace tdw;
using namespace tdw::service;
using namespace std::chrono_literals;

namespace {

constexpr const char* kPhone = "1,1,PHONE";
constexpr const char* kTablet = "1,2,TABLET";
const Error kFailure = Error("org.example", -7, "no multiplexer");

/// What a policy wants done, as one line of words.
std::string textOf(const RelayPolicy::Actions& actions)
{
    std::ostringstream text;
    const auto describe = [&text](const auto& action) {
        using Action = std::decay_t<decltype(action)>;
        if constexpr (std::is_same_v<Action, RelayPolicy::StartServer>)
            text << "start ";
        else if constexpr (std::is_same_v<Action, RelayPolicy::EndServer>)
            text << "end ";
        else if constexpr (std::is_same_v<Action, RelayPolicy::SetTimer>)
            text << action.delay.count() << "ms ";
        else if constexpr (std::is_same_v<Action, RelayPolicy::CancelTimer>)
            text << "no-timer ";
        else if constexpr (std::is_same_v<Action, RelayPolicy::ListDevices>)
            text << "list ";
        else if constexpr (std::is_same_v<Action, RelayPolicy::Reply>)
            text << action.subscriber << (action.error ? "!" : "=ok") << ' ';
        else
            text << action.subscriber << '<' << deviceEventText(action.event) << ' ';
    };
    for (const auto& action : actions)
        std::visit(describe, action);
    return text.str();
}

struct Relay {
    std::string subscribe(std::uint64_t who) { return textOf(policy.subscribed(who, now)); }
    std::string leave(std::uint64_t who) { return textOf(policy.unsubscribed(who)); }
    std::string started() { return textOf(policy.started()); }
    std::string line(std::string_view text) { return textOf(policy.received(text)); }
    std::string timer() { return textOf(policy.timerFired(now)); }
    std::string ended() { return textOf(policy.ended(kFailure, now)); }
    std::string listed(std::set<DevicePath> devices) { return textOf(policy.listed(devices)); }

    /// A server that streams to subscriber 1, with a phone on the cable.
    void stream()
    {
        (void)subscribe(1);
        (void)started();
        (void)line(kPhone);
    }

    RelayPolicy policy;
    RelayPolicy::Clock::time_point now {};
};

} // namespace

TEST(RelayPolicy, RunsOneServerFromTheFirstSubscriberToTheLast)
{
    Relay relay;
    EXPECT_EQ(relay.leave(1), "");
    EXPECT_EQ(relay.subscribe(1), "start ");
    EXPECT_EQ(relay.subscribe(2), "");
    EXPECT_EQ(relay.started(), "250ms ");
    EXPECT_EQ(relay.line(kPhone), "no-timer 1=ok 2=ok 1<1,1,PHONE 2<1,1,PHONE ");
    EXPECT_EQ(relay.started(), "") << "its first line was faster";
    EXPECT_EQ(relay.line(kPhone), "") << "known";
    EXPECT_EQ(relay.subscribe(3), "3=ok 3<1,1,PHONE ") << "what is there already";
    EXPECT_EQ(relay.subscribe(1), "1=ok 1<1,1,PHONE ") << "again";
    EXPECT_EQ(relay.leave(1) + relay.leave(2), "");
    EXPECT_EQ(relay.line("2,1,PHONE"), "3<2,1,PHONE ");
    EXPECT_EQ(relay.leave(3), "no-timer end ");
    EXPECT_EQ(relay.subscribe(1), "start ");
}

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
    relay.stream();
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
