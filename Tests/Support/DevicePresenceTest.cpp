#include "Support/DevicePresence.h"

#include "Support/Testing.h"

using namespace tdw;
using namespace matchers;

namespace {

std::vector<std::string> texts(const DevicePresence::Events& events)
{
    std::vector<std::string> texts;
    for (const DeviceEvent& event : events)
        texts.push_back(deviceEventText(event));
    return texts;
}

/// A presence that is asked and answers in event strings.
struct Presence : DevicePresence {
    auto received(const char* text)
    {
        return texts(DevicePresence::received(*parseDeviceEvent(text)));
    }
    auto present() { return texts(DevicePresence::present()); }
    auto listed(const std::set<DevicePath>& devices)
    {
        return texts(DevicePresence::listed(devices));
    }
};

} // namespace

TEST(DeviceEvent, IsReadFromWellFormedTextAlone)
{
    for (const char* text : { "1,1,00008130-00FACADE0010001C", "1,2,abc", "2,0,abc", "3,1,abc" }) {
        const auto event = parseDeviceEvent(text);
        ASSERT_TRUE(event) << text;
        EXPECT_EQ(deviceEventText(*event), text);
    }
    EXPECT_EQ(parseDeviceEvent("3,2,a"), (DeviceEvent { DeviceEvent::Type::Paired, { 2, "a" } }));
    for (const char* text : { "", "1", "1,1", "1,1,", "0,1,a", "4,1,a", "1,3,a", "-1,1,a", "1,-1,a",
             "01,1,a", "1, 1,a", "1,1,a,b", "1,1,../a", "1,1,a\r", "<?xml version=\"1.0\"?>" })
        EXPECT_FALSE(parseDeviceEvent(text)) << text;
    EXPECT_FALSE(parseDeviceEvent("1,1," + std::string(65, 'a')));
}

TEST(DevicePresence, TellsEachChangeOnce)
{
    Presence presence;
    EXPECT_THAT(presence.received("2,1,a"), IsEmpty()) << "it was never there";
    EXPECT_THAT(presence.received("1,1,a"), ElementsAre("1,1,a"));
    EXPECT_THAT(presence.received("1,1,a"), IsEmpty());
    EXPECT_THAT(presence.received("3,1,a"), ElementsAre("3,1,a"));
    EXPECT_THAT(presence.received("1,2,a"), ElementsAre("1,2,a"));
    EXPECT_THAT(presence.received("2,1,a"), ElementsAre("2,1,a"));
    EXPECT_THAT(presence.present(), ElementsAre("1,2,a"));
}

TEST(DevicePresence, FindsTheDifferenceAfterItsSourceEnded)
{
    Presence presence;
    for (const char* text : { "1,1,gone", "1,1,left", "1,1,stays", "1,1,slow" })
        presence.received(text);
    presence.sourceEnded();
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
