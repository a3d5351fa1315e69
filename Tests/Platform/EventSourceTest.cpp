#include "Platform/Queues/EventSource.h"

#include "Platform/Counter.h"
#include "Platform/System/FileHandle.h"
#include "Support/Testing.h"

#include <atomic>
#include <cerrno>

using namespace tdw;

namespace {

/// Handlers that count their runs, and check the order in which a source may run them.
struct Watched {
    Counter events;
    Counter cancels;
    std::atomic<int> running = 0;

    SourceHandlers handlers(std::function<void()> body)
    {
        return { .event =
                     [this, body = std::move(body)] {
                         EXPECT_EQ(running.fetch_add(1), 0) << "twice at once";
                         EXPECT_EQ(cancels.value(), 0) << "after the cancel handler";
                         body();
                         running.fetch_sub(1);
                         events.add();
                     },
            .cancel =
                [this] {
                    EXPECT_EQ(running.load(), 0) << "while the event handler runs";
                    cancels.add();
                } };
    }
};

} // namespace

TEST(ReadSource, IsCancelledExactlyOnceInWhateverStateItIs)
{
    auto pipe = Pipe::create();
    ASSERT_TRUE(pipe->writer.write(std::as_bytes(std::span("x", 1))));
    auto empty = Pipe::create();
    Watched suspended;
    Watched waiting;
    {
        const Queue queue = Queue::serial("cancel");
        auto first
            = *ReadSource::create(pipe->reader.descriptor(), queue, suspended.handlers([] {}));
        auto second
            = *ReadSource::create(empty->reader.descriptor(), queue, waiting.handlers([] {}));
        first.cancel();
        first.cancel();
        first.resume();
        EXPECT_TRUE(first.isCancelled());
        second.resume();
        second.cancel();
    }
    EXPECT_TRUE(waiting.cancels.reaches(1));
    EXPECT_EQ(suspended.cancels.value() + waiting.cancels.value(), 2);
    EXPECT_EQ(suspended.events.value() + waiting.events.value(), 0);
}

TEST(ReadSource, KeepsItsHandlersInOrderWhenDestroyedAtAnyMoment)
{
    auto pipe = Pipe::create();
    ASSERT_TRUE(pipe->writer.write(std::as_bytes(std::span("x", 1))));
    const Queue queue = Queue::concurrent("race");
    for (int round = 0; round < 300; ++round) {
        Watched watched;
        auto held = std::make_shared<int>();
        auto source
            = ReadSource::create(pipe->reader.descriptor(), queue, watched.handlers([held] {}));
        source->resume();
        source->resume();
        if (round % 2 == 0) {
            EXPECT_TRUE(watched.events.reaches(round % 5));
        }
        source = Error::posix(ECANCELED, "destroyed");
        ASSERT_TRUE(watched.cancels.reaches(1));
    }
}

TEST(SignalSource, EverySourceOfASignalSeesItAndTheLastRestoresTheDefault)
{
    Watched first;
    Watched second;
    {
        const Queue queue = Queue::serial("Signal");
        auto one = *SignalSource::create(SIGUSR1, queue, first.handlers([] {}));
        auto other = *SignalSource::create(SIGUSR1, Queue::global(), second.handlers([] {}));
        ASSERT_EQ(::kill(::getpid(), SIGUSR1), 0); // before `resume`
        one.resume();
        other.resume();
        EXPECT_TRUE(first.events.reaches(1) && second.events.reaches(1));
        one.cancel();
        EXPECT_TRUE(first.cancels.reaches(1));
        ASSERT_EQ(::kill(::getpid(), SIGUSR1), 0);
        EXPECT_TRUE(second.events.reaches(2));
    }
    EXPECT_TRUE(second.cancels.reaches(1));
    EXPECT_EQ(first.events.value(), 1);
    struct sigaction action { };
    ::sigaction(SIGUSR1, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST(SignalSource, RefusesASignalThatCannotBeWatched)
{
    Watched watched;
    auto source = SignalSource::create(SIGKILL, Queue::global(), watched.handlers([] {}));
    ASSERT_FALSE(source);
    EXPECT_EQ(source.error(), Error::posix(EINVAL, "Cannot watch signal number 9"));
}
