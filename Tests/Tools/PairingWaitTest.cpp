#include "Errors/CommandLineError.h"
#include "Pairing/Interruption.h"
#include "Pairing/PairingConversation.h"
#include "Platform/FileHandle.h"
#include "Support/TDWErrorHelpers.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>

namespace tdw::cli {

namespace {

using namespace std::chrono_literals;
using Next = PairingConversation::Next;
using testing::HasSubstr;

Result<Value> state(int number)
{
    return Value(Dictionary { { "PairingState", number } });
}

Result<Value> failure(const char* api, int code)
{
    return TDWErrorCreate(api, code);
}

/// "done", the instruction, or the reason of the end.
std::string after(PairingConversation& conversation, const Result<Value>& answer)
{
    const auto next = conversation.next(answer);
    if (!next)
        return next.error().failureReason();
    return *next == Next::Done ? "done" : std::string(conversation.instruction());
}

TEST(PairingConversation, GoesOnWhileTheUserHasSomethingToDo)
{
    PairingConversation conversation;
    EXPECT_THAT(after(conversation, state(3)), HasSubstr("Unlock"));
    EXPECT_THAT(after(conversation, state(1)), HasSubstr("Tap Trust"));
    EXPECT_THAT(
        after(conversation, failure("idevice_new_with_options", -3)), HasSubstr("coming back"));
    EXPECT_EQ(after(conversation, state(4)), "done");
}

TEST(PairingConversation, EndsWhereTheDeviceRefusesOrIsNotThere)
{
    for (const int number : { 0, 2, 5, 77 }) {
        const auto next = PairingConversation().next(state(number));
        ASSERT_FALSE(next) << number;
        EXPECT_EQ(exitStatusOf(next.error()), ExitStatus::NotTrusted) << number;
    }
    PairingConversation conversation;
    EXPECT_EQ(after(conversation, failure("idevice_new_with_options", -3)),
        "The device is not available.");
    EXPECT_THAT(after(conversation, Value("x")), HasSubstr("no pairing state"));
    ASSERT_TRUE(conversation.next(state(1)));
    EXPECT_EQ(after(conversation, failure("lockdownd_pair", -4)), "Pairing failed.");
}

std::chrono::steady_clock::time_point in(std::chrono::milliseconds time)
{
    return std::chrono::steady_clock::now() + time;
}

TEST(Interruption, IsOneOfThreeThingsToWaitFor)
{
    const auto interruption = Interruption::create();
    ASSERT_TRUE(interruption);
    auto pipe = Pipe::create();
    const int descriptor = pipe->reader.descriptor();
    EXPECT_EQ(interruption->waitFor(descriptor, in(1ms)), Interruption::Awaited::Deadline);
    EXPECT_EQ(interruption->waitFor(-1, in(-1ms)), Interruption::Awaited::Deadline);
    pipe->writer.close();
    EXPECT_EQ(interruption->waitFor(descriptor, in(30s)), Interruption::Awaited::Event);
    std::raise(SIGTERM);
    EXPECT_EQ(interruption->waitFor(descriptor, in(30s)), Interruption::Awaited::Interrupted);
    EXPECT_EXIT(
        (std::raise(SIGTERM), interruption->endProcess()), testing::KilledBySignal(SIGTERM), "");

    // What is pending would end this process as soon as nobody holds it back.
    std::signal(SIGTERM, SIG_IGN);
}

TEST(Interruption, LeavesTheSignalsAsTheyWere)
{
    sigset_t before {};
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    {
        auto first = Interruption::create();
        const Interruption moved = *std::move(first);
        sigset_t during {};
        pthread_sigmask(SIG_SETMASK, nullptr, &during);
        EXPECT_EQ(sigismember(&during, SIGINT), 1);
    }
    sigset_t after {};
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(sigismember(&after, SIGINT), sigismember(&before, SIGINT));
}

} // namespace

} // namespace tdw::cli
