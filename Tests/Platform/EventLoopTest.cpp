#include "Platform/Queues/EventLoop.h"

#include "Platform/Queues/CallbackQueue.h"
#include "Platform/System/FileHandle.h"
#include "ProcessResources.h"
#include "Support/Testing.h"

using namespace tdw;
using namespace std::chrono_literals;

namespace {

struct RunningLoop {
    EventLoop loop = *EventLoop::create();
    std::string told;

    /// Runs until that many letters are told, within a bound that no working system needs.
    bool tells(std::size_t count)
    {
        return loop.runUntil([&] { return told.size() >= count; }, EventLoop::Clock::now() + 30s);
    }
    EventLoop::Handler teller(char letter)
    {
        return [this, letter] {
            told += letter;
        };
    }
};

} // namespace

TEST(EventLoop, RunsWorkOfAnyThreadInItsOrderAndTimersWhenTheyAreDue)
{
    RunningLoop test;
    const CallbackQueue queue(test.loop);
    EventLoop::Source dropped = test.loop.after(0ms, test.teller('x'));
    const auto late = test.loop.after(600ms, test.teller('d'));
    const auto early = test.loop.after(300ms, test.teller('c'));
    const auto never = test.loop.after(std::chrono::nanoseconds::max(), test.teller('x'));
    dropped = {};
    std::thread([&] { queue.async(test.teller('a')); }).join();
    test.loop.post(test.teller('b'));
    EXPECT_EQ(test.told, "") << "on the stack of who asked for it";
    EXPECT_TRUE(test.tells(4));
    EXPECT_EQ(test.told, "abcd");
    EXPECT_FALSE(early);
    EXPECT_TRUE(never);
}

TEST(EventLoop, EndsAtItsDeadlineAndWhenItIsStoppedFromAnotherThread)
{
    RunningLoop test;
    const auto start = EventLoop::Clock::now();
    EXPECT_FALSE(test.loop.runUntil([] { return false; }, start + 30ms));
    EXPECT_GE(EventLoop::Clock::now(), start + 30ms);
    EXPECT_TRUE(test.loop.runUntil([] { return true; }, start));
    {
        const std::jthread stopper([&] { test.loop.stop(); });
        test.loop.run();
    }
    test.loop.post(test.teller('a'));
    EXPECT_TRUE(test.tells(1)) << "a stop ends one run and no other";
}

TEST(EventLoop, WatchesDescriptorsOfAnyKindAndLeavesTheirModesAlone)
{
    RunningLoop test;
    Pipe pipe = *Pipe::create();
    const int reader = pipe.reader.descriptor();
    const FileHandle file(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
    {
        EventLoop::Source reading = *test.loop.whenReadable(reader, [&] {
            char letter = '.';
            if (::read(reader, &letter, 1) <= 0)
                reading = {}; // which destroys this very handler
            test.told += letter;
        });
        EventLoop::Source writing = *test.loop.whenWritable(pipe.writer.descriptor(), [&] {
            EXPECT_EQ(::write(pipe.writer.descriptor(), "ab", 2), 2);
            writing = {};
            pipe.writer.close();
        });
        EXPECT_TRUE(test.tells(3));
        EXPECT_EQ(test.told, "ab.");
        EXPECT_FALSE(reading);
        const auto always = *test.loop.whenReadable(file.descriptor(), test.teller('f'));
        EXPECT_TRUE(test.tells(5));
    }
    EXPECT_EQ(fcntl(reader, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(test.loop.whenReadable(-1, [] {}).error().code(), EBADF);
    const auto again = *test.loop.whenReadable(reader, test.teller('g'));
    EXPECT_TRUE(test.tells(6));
    EXPECT_EQ(test.told, "ab.ffg");
}

TEST(EventLoop, OneDescriptorHasAReaderAndAWriter)
{
    RunningLoop test;
    const FileHandle terminal(open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!terminal.isOpen())
        GTEST_SKIP() << "there are no terminals here";
    auto writing = *test.loop.whenWritable(terminal.descriptor(), test.teller('w'));
    const auto reading = *test.loop.whenReadable(terminal.descriptor(), test.teller('r'));
    EXPECT_TRUE(test.tells(1));
    writing = {};
    test.told.clear();
    EXPECT_FALSE(test.loop.runUntil([] { return false; }, EventLoop::Clock::now() + 10ms));
    EXPECT_EQ(test.told.find('w'), std::string::npos) << "after its end";
}

TEST(EventLoop, TakesSignalsAndGivesTheirDispositionBack)
{
    RunningLoop test;
    {
        const auto signals = *test.loop.onSignal(SIGUSR1, test.teller('u'));
        ASSERT_EQ(raise(SIGUSR1), 0);
        EXPECT_TRUE(test.tells(1));
        ASSERT_EQ(raise(SIGUSR1), 0);
        EXPECT_TRUE(test.tells(2));
    }
    struct sigaction disposition { };
    ASSERT_EQ(sigaction(SIGUSR1, nullptr, &disposition), 0);
    EXPECT_EQ(disposition.sa_handler, SIG_DFL);
    EXPECT_EQ(test.loop.onSignal(SIGKILL, [] {}).error().code(), EINVAL);
}

TEST(EventLoop, GoesWithWorkThatHasNotRunAndTakesNoMore)
{
    const auto before = ProcessResources::now();
    const auto held = std::make_shared<int>();
    std::function<void(EventLoop::Handler)> poster;
    {
        RunningLoop test;
        poster = test.loop.poster();
        Pipe pipe = *Pipe::create();
        auto source = std::make_shared<EventLoop::Source>(
            *test.loop.whenReadable(pipe.reader.descriptor(), [] {}));
        // The block goes with the last handle of a source and of something that posts as it goes.
        const auto postsAsItGoes = std::shared_ptr<int>(nullptr, [&](int*) { poster([held] {}); });
        test.loop.post([held, source = std::move(source), postsAsItGoes] {});
    }
    poster([held] {});
    EXPECT_EQ(held.use_count(), 1);
    poster = nullptr;
    EXPECT_TRUE(ProcessResources::settleWithin(before));
}
