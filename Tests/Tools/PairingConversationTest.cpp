#include "Devices/PairingConversation.h"

#include "Errors/CommandLineError.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/Testing.h"

namespace tdw::cli {

namespace {

using Next = PairingConversation::Next;
using namespace matchers;

Result<Value> state(int number)
{
    return Value(Dictionary { { "PairingState", number } });
}

Error failure(int code)
{
    return TDWErrorCreate("lockdownd_pair", code);
}

const Error kGone = TDWErrorCreate("idevice_new_with_options", -3);

/// "done", the instruction, or the reason of the end.
std::string after(PairingConversation& conversation, const Result<Value>& answer,
    const std::optional<Error>& reason = {})
{
    const auto next = conversation.next(answer, reason);
    if (!next)
        return next.error().failureReason();
    return *next == Next::Done ? "done" : std::string(conversation.instruction());
}

} // namespace

TEST(PairingConversation, GoesOnWhileTheUserHasSomethingToDo)
{
    PairingConversation conversation;
    EXPECT_TRUE(PairingConversation::needsReason(state(3)));
    EXPECT_THAT(after(conversation, state(3), failure(-17)), HasSubstr("Unlock"));
    EXPECT_FALSE(PairingConversation::needsReason(state(1)));
    EXPECT_THAT(after(conversation, state(1)), HasSubstr("Tap Trust"));
    EXPECT_EQ(after(conversation, state(4)), "done");
}

TEST(PairingConversation, ADeviceThatLeavesWhenItIsToldToTrustIsLookedForAgain)
{
    for (const Error& gone : { kGone, failure(-8), failure(-5), failure(-256) }) {
        PairingConversation conversation;
        EXPECT_FALSE(conversation.next(gone)) << "nothing was shown yet";
        ASSERT_TRUE(conversation.next(state(1)));
        const auto next = conversation.next(gone);
        ASSERT_TRUE(next) << gone.debugDescription();
        EXPECT_EQ(*next, Next::LookAgain);
    }
}

TEST(PairingConversation, EndsWithTheReasonOfTheRefusal)
{
    const struct {
        const char* situation;
        Result<Value> answer;
        std::optional<Error> reason;
        ExitStatus status;
        const char* words;
    } rows[] = {
        { "managed with a challenge", state(0), failure(-39), ExitStatus::NotTrusted, "managed" },
        { "refused without a reason", state(0), {}, ExitStatus::NotTrusted, "refuses" },
        { "a state of the future", state(77), {}, ExitStatus::NotTrusted, "refuses" },
        { "not there", kGone, {}, ExitStatus::NoDevice, "not available" },
        { "no state", Value("x"), {}, ExitStatus::Failure, "no pairing state" },
        { "failed", failure(-4), {}, ExitStatus::Failure, "Pairing failed" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.situation);
        const auto next = PairingConversation().next(row.answer, row.reason);
        ASSERT_FALSE(next);
        EXPECT_EQ(exitStatusOf(next.error()), row.status);
        EXPECT_THAT(next.error().failureReason(), HasSubstr(row.words));
    }
}

} // namespace tdw::cli
