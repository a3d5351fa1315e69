#include "Platform/Messages/ConnectionState.h"

#include "Support/Testing.h"

using namespace tdw;
using enum ConnectionState::Event;
using Origin = ConnectionState::Origin;

namespace {

std::string textOf(const std::vector<ConnectionState::Action>& actions)
{
    constexpr const char* kNames[] = { "keep", "send", "refuse", "look", "open", "send kept",
        "close", "interruption", "invalidation", "fail" };
    std::string text;
    for (const auto action : actions)
        text += (text.empty() ? "" : ", ") + std::string(kNames[static_cast<int>(action)]);
    return text;
}

} // namespace

TEST(ConnectionState, DoesWhatEachEventAsksFor)
{
    struct Step {
        ConnectionState::Event event;
        const char* actions;
    };
    const struct {
        const char* situation;
        std::vector<Step> steps;
        Origin origin = Origin::Ours;
    } rows[] = {
        { "messages go out in order, and the other end goes",
            { { Message, "keep, open" }, { Message, "keep" }, { Opened, "send kept" },
                { Message, "send" }, { Notice, "send" }, { PeerGone, "close, interruption, fail" },
                { Message, "refuse" }, { Invalidated, "" } } },
        { "no service can be had",
            { { Message, "keep, open" }, { NotOpened, "invalidation, fail" },
                { Message, "refuse" } } },
        { "a notice starts nothing and ends nothing",
            { { Notice, "keep, look" }, { NotOpened, "fail" }, { Message, "keep, open" },
                { Opened, "send kept" } } },
        { "a notice where a service listens",
            { { Notice, "keep, look" }, { Opened, "send kept" }, { Message, "send" } } },
        { "the owner ends it before anything was sent",
            { { Invalidated, "invalidation, fail" }, { Message, "refuse" } } },
        { "the owner ends it while a service starts, which then comes up",
            { { Message, "keep, open" }, { Invalidated, "invalidation, fail" },
                { Opened, "close" } } },
        { "the owner ends it while it is open",
            { { Message, "keep, open" }, { Opened, "send kept" },
                { Invalidated, "close, invalidation, fail" }, { PeerGone, "" },
                { Message, "refuse" } } },
        { "one that the other end made",
            { { Opened, "send kept" }, { Message, "send" },
                { PeerGone, "close, invalidation, fail" } },
            Origin::Theirs },
        { "one that the other end made and that cannot be watched",
            { { NotOpened, "invalidation, fail" } }, Origin::Theirs },
    };
    for (const auto& row : rows) {
        ConnectionState state(row.origin);
        for (std::size_t i = 0; i < row.steps.size(); ++i)
            EXPECT_EQ(textOf(state.next(row.steps[i].event)), row.steps[i].actions)
                << row.situation << ", step " << i;
    }
}
