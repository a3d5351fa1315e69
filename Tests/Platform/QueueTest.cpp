#include "Platform/Queues/Queue.h"

#include "ChildRole.h"
#include "Platform/Counter.h"
#include "Platform/System/Process.h"
#include "Support/Testing.h"

#include <pthread.h>

#include <iterator>
#include <stdexcept>

using namespace tdw;
using namespace std::chrono_literals;

namespace {

constinit WorkItem gItem;

auto threadCount()
{
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(begin(tasks), end(tasks));
}

/// What this binary does when a test starts it as a child.
int runAsChild(int, char** arguments)
{
    if (arguments[1] == std::string_view("throw"))
        Queue::global().async([] { throw std::runtime_error("never caught"); });
    else
        Queue::global(QualityOfService::Utility).async([] {
            Queue::main().after(1ms, WorkItem([] {
                std::_Exit(Queue::main().isCurrent() && ::gettid() == ::getpid() ? 7 : 8);
            }));
        });
    dispatchMain();
}

const ChildRole kRoles({ "throw", "main" }, runAsChild);

Termination runChild(const std::string& job)
{
    return Process::launch({ .executable = "/proc/self/exe", .arguments = { job } })
        ->waitUntilExit();
}

} // namespace

TEST(Queue, SerialRunsItemsInOrderOnOneThreadOfItsOwn)
{
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    {
        const Queue other = Queue::serial("other");
        const Queue queue = Queue::serial("TDWEvents");
        for (int i = 0; i < 100; ++i) {
            queue.async([&, i] {
                order.push_back(i);
                threads.push_back(std::this_thread::get_id());
                EXPECT_TRUE(queue.isCurrent() && !other.isCurrent());
            });
        }
        EXPECT_FALSE(queue.isCurrent());
    }
    ASSERT_EQ(order.size(), 100U) << "submitted work runs although the last handle is gone";
    EXPECT_TRUE(std::ranges::is_sorted(order));
    EXPECT_EQ(std::ranges::count(threads, threads[0]), 100);
    EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST(Queue, StartsItsThreadWithTheFirstWorkOnly)
{
    const auto before = threadCount();
    const Queue queue = Queue::concurrent("a label that is rather long");
    EXPECT_EQ(threadCount(), before);
    Counter ran;
    queue.async([&] {
        std::array<char, 16> name {};
        ::pthread_getname_np(::pthread_self(), name.data(), name.size());
        EXPECT_STREQ(name.data(), "a label that is");
        sigset_t mask;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        EXPECT_TRUE(sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGSEGV) == 0);
        ran.add();
    });
    ASSERT_TRUE(ran.reaches(1));
    EXPECT_EQ(threadCount(), before + 1);
}

TEST(Queue, GrowsToItsBoundSoThatWorkWhichBlocksHoldsUpNeitherOtherWorkNorTimers)
{
    Counter begun;
    Counter timers;
    Counter release;
    const auto before = threadCount();
    {
        const Queue queue = Queue::concurrent("blocked");
        const auto block = [&] {
            begun.add();
            EXPECT_TRUE(release.reaches(1));
        };
        for (int i = 0; i < 20; ++i)
            queue.async(block);
        EXPECT_TRUE(begun.reaches(20)) << "all of them run at once";
        queue.after(1ms, WorkItem([&] { timers.add(); }));
        queue.after(2ms, WorkItem([&] { timers.add(); }));
        EXPECT_TRUE(timers.reaches(2));
        for (int i = 20; i < 100; ++i)
            queue.async(block);
        EXPECT_TRUE(begun.reaches(Queue::kMaximumThreads));
        EXPECT_EQ(threadCount() - before, Queue::kMaximumThreads);
        release.add();
    }
    EXPECT_EQ(begun.value(), 100);
    EXPECT_EQ(threadCount(), before);
}

TEST(Queue, TimersRunWhenDueInTheOrderOfTheirTimes)
{
    std::vector<int> order;
    Counter ran;
    const Queue queue = Queue::serial("timers");
    const auto begin = std::chrono::steady_clock::now();
    const auto note = [&](int number) {
        return WorkItem([&, number] {
            order.push_back(number);
            ran.add();
        });
    };
    queue.after(std::chrono::nanoseconds::max(), note(4));
    queue.after(600ms, note(3));
    queue.after(300ms, note(2));
    queue.after(-1s, note(1));
    ASSERT_TRUE(ran.reaches(3));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 600ms);
    EXPECT_EQ(order, (std::vector { 1, 2, 3 }));
}

TEST(Queue, ACancelledItemThatHasNotStartedNeverRuns)
{
    std::vector<int> order;
    {
        const Queue queue = Queue::serial("cancel");
        WorkItem second([&] { order.push_back(2); });
        WorkItem third([&] { order.push_back(3); });
        queue.async([&] {
            order.push_back(1);
            second.cancel();
        });
        queue.async(second);
        third.cancel();
        queue.after(0s, third);
        third.run();
        Counter last;
        queue.after(1ms, WorkItem([&] { last.add(); }));
        EXPECT_TRUE(last.reaches(1));
        EXPECT_TRUE(second.isCancelled() && third.isCancelled());
    }
    EXPECT_EQ(order, std::vector { 1 });

    EXPECT_FALSE(gItem);
    gItem.cancel();
    gItem.run();
    EXPECT_FALSE(gItem.isCancelled());
}

TEST(Queue, TheLastHandleDropsTimersAndMayGoOnTheQueueItself)
{
    const auto threads = threadCount();
    auto alive = std::make_shared<int>();
    Counter ran;
    Queue::serial("gone").after(1h, WorkItem([alive] {}));
    EXPECT_EQ(alive.use_count(), 1);

    std::optional<Queue> queue = Queue::serial("own thread");
    queue->async([&] {
        queue->after(1h, WorkItem([alive] {}));
        queue->async([&ran, alive] { ran.add(); });
        queue.reset();
        ran.add();
    });
    EXPECT_TRUE(ran.reaches(2));
    // The thread ends by itself, and what it held goes with it.
    EXPECT_TRUE(becomesTrue([&] { return threadCount() == threads && alive.use_count() == 1; }));
}

TEST(Queue, TheMainQueueRunsOnTheMainThreadAndAnExceptionEndsTheProcess)
{
    EXPECT_EQ(runChild("main"), (Termination { 7, false }));
    EXPECT_EQ(runChild("throw"), (Termination { SIGABRT, true }));
}
