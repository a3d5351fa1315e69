#include "DevicePresence.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tdw::service;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(DevicePresence, PassesOnWellFormedLinesAlone)
{
    DevicePresence presence;
    for (const char* line : { "1,1,00008130-00FACADE0010001C", "1,2,abc", "1,0,abc", "3,1,abc" })
        EXPECT_THAT(presence.received(line), ElementsAre(line));
    for (const char* line : { "", "1", "1,1", "1,1,", "0,1,a", "4,1,a", "1,3,a", "-1,1,a", "1,-1,a",
             "01,1,a", "1, 1,a", "1,1,a,b", "1,1,../a", "1,1,a\r", "<?xml version=\"1.0\"?>" })
        EXPECT_THAT(presence.received(line), IsEmpty()) << line;
    EXPECT_THAT(presence.received("1,1," + std::string(65, 'a')), IsEmpty());
}

TEST(DevicePresence, TellsEachChangeOnce)
{
    DevicePresence presence;
    EXPECT_THAT(presence.received("2,1,a"), IsEmpty()) << "it was never there";
    EXPECT_THAT(presence.received("1,1,a"), ElementsAre("1,1,a"));
    EXPECT_THAT(presence.received("1,1,a"), IsEmpty());
    EXPECT_THAT(presence.received("1,2,a"), ElementsAre("1,2,a"));
    EXPECT_THAT(presence.received("2,1,a"), ElementsAre("2,1,a"));
    EXPECT_THAT(presence.present(), ElementsAre("1,2,a"));
}

TEST(DevicePresence, FindsTheDifferenceAfterAnEventsServersEnd)
{
    DevicePresence presence;
    for (const char* line : { "1,1,gone", "1,1,left", "1,1,stays", "1,1,slow" })
        presence.received(line);
    presence.serverEnded();
    EXPECT_TRUE(presence.hasUnconfirmed());

    EXPECT_THAT(presence.received("1,1,stays"), IsEmpty());
    EXPECT_THAT(presence.received("1,1,new"), ElementsAre("1,1,new"));
    EXPECT_THAT(presence.received("2,1,left"), ElementsAre("2,1,left"));
    // Neither what is listed, though not announced yet, nor what is announced, though not listed.
    EXPECT_THAT(presence.listed({ { 1, "stays" }, { 1, "slow" } }), ElementsAre("2,1,gone"));
    EXPECT_THAT(presence.received("1,1,slow"), IsEmpty());
    EXPECT_FALSE(presence.hasUnconfirmed());
    EXPECT_THAT(presence.present(), ElementsAre("1,1,new", "1,1,slow", "1,1,stays"));
}
