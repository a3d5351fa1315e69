#include "RequestSchedule.h"

#include "Support/Testing.h"

using namespace tdw::service;
using namespace std::chrono_literals;
using namespace matchers;

namespace {

constexpr auto kNever = RequestSchedule::Clock::time_point::max();
const RequestSchedule::Clock::time_point kStart {};

/// The tickets that may run now. A client's tickets begin with its number.
std::vector<RequestSchedule::Ticket> startAll(RequestSchedule& schedule)
{
    std::vector<RequestSchedule::Ticket> tickets;
    while (const auto ticket = schedule.next())
        tickets.push_back(*ticket);
    return tickets;
}

void addMany(RequestSchedule& schedule, RequestSchedule::Client client, int count)
{
    for (int i = 0; i < count; ++i)
        schedule.add(client, client * 1000 + static_cast<RequestSchedule::Ticket>(i), kNever);
}

} // namespace

TEST(RequestSchedule, LeavesRoomForOthersHoweverManyRequestsAClientHas)
{
    RequestSchedule schedule(8);
    addMany(schedule, 1, 200);
    EXPECT_EQ(startAll(schedule).size(), 4u);
    addMany(schedule, 2, 200);
    EXPECT_EQ(startAll(schedule).size(), 2u);
    addMany(schedule, 3, 1);
    EXPECT_THAT(startAll(schedule), ElementsAre(3000));
    addMany(schedule, 4, 1);
    EXPECT_THAT(startAll(schedule), ElementsAre(4000)) << "the last place";
    addMany(schedule, 5, 1);
    EXPECT_THAT(startAll(schedule), IsEmpty());
    schedule.ended(1);
    EXPECT_THAT(startAll(schedule), ElementsAre(5000)) << "before those with some running";
    EXPECT_EQ(schedule.running(), 8u);
}

TEST(RequestSchedule, LetsEqualClientsTakeTurnsInTheOrderOfTheirRequests)
{
    RequestSchedule schedule(1);
    for (const RequestSchedule::Client client : { 1, 2, 3 })
        addMany(schedule, client, 2);
    std::vector<RequestSchedule::Ticket> order;
    while (const auto ticket = schedule.next()) {
        order.push_back(*ticket);
        schedule.ended(*ticket / 1000);
    }
    EXPECT_THAT(order, ElementsAre(1000, 2000, 3000, 1001, 2001, 3001));

    addMany(schedule, 1, 2);
    EXPECT_EQ(schedule.next(), 1000u);
    schedule.putBack(1, 1000, kNever);
    EXPECT_EQ(schedule.next(), 1000u) << "first again";
    schedule.ended(1);
    EXPECT_TRUE(schedule.isBusy(1));
    EXPECT_EQ(schedule.next(), 1001u);
    schedule.ended(1);
    EXPECT_FALSE(schedule.isBusy(1));
}

TEST(RequestSchedule, TakesOutWhatIsLateAndWhatIsNotWantedAnyMore)
{
    RequestSchedule schedule(1);
    schedule.add(1, 10, kStart + 1s);
    schedule.add(1, 11, kStart + 5s);
    schedule.add(2, 20, kStart + 2s);
    schedule.add(3, 30, kStart + 3s);
    EXPECT_EQ(schedule.next(), 10u);
    EXPECT_EQ(schedule.earliestDeadline(), kStart + 2s) << "one that runs does not count";
    EXPECT_THAT(schedule.removeLate(kStart + 2s), ElementsAre(20));
    EXPECT_THAT(schedule.removeClient(3), ElementsAre(30));
    EXPECT_THAT(schedule.removeClient(3), IsEmpty());
    EXPECT_EQ(schedule.waiting(), 1u);
    EXPECT_THAT(schedule.removeClient(1), ElementsAre(11));
    EXPECT_EQ(schedule.earliestDeadline(), std::nullopt);
    EXPECT_TRUE(schedule.isBusy(1)) << "one of its requests runs";
    schedule.ended(1);
    EXPECT_EQ(schedule.next(), std::nullopt);
}
