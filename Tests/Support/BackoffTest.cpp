#include "Support/Backoff.h"

#include "Support/Testing.h"

using namespace tdw;
using namespace std::chrono_literals;

TEST(Backoff, DoublesUpToItsBoundAndBeginsAgainAfterALongLifeOrAReset)
{
    Backoff backoff;
    Backoff::Clock::time_point now {};
    const auto pauseAfterALifeOf = [&](std::chrono::milliseconds life) {
        backoff.started(now);
        now += life;
        return backoff.ended(now);
    };
    for (const auto pause :
        { 100ms, 200ms, 400ms, 800ms, 1600ms, 3200ms, 6400ms, 10000ms, 10000ms })
        EXPECT_EQ(pauseAfterALifeOf(9999ms), pause);
    EXPECT_EQ(pauseAfterALifeOf(10s), 100ms);
    EXPECT_EQ(pauseAfterALifeOf(1ms), 200ms);
    backoff.reset();
    EXPECT_EQ(pauseAfterALifeOf(1ms), 100ms);
}
