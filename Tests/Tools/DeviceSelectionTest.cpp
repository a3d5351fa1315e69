#include "Devices/DeviceSelection.h"

#include "Errors/ExitStatus.h"
#include "Support/Testing.h"

namespace tdw::cli {

namespace {

using namespace matchers;

const std::vector<ListedDevice> kDevices {
    { "00008130-00FACADE0001001C", { 1 } },
    { "00008110-00FACADE0002002E", { 2 } },
    { "f1d0000000000000000000000000000000000001", { 1 } },
    { "f1d0000000000000000000000000000000000001A", { 1 } },
};

/// The UDID that was selected, "none" or "ambiguous".
std::string outcome(const Result<std::optional<ListedDevice>>& result)
{
    if (!result)
        return "ambiguous";
    return *result ? (*result)->udid : "none";
}

TEST(DeviceSelection, FindsADeviceByWhatIsEnoughOfItsUdid)
{
    const std::pair<const char*, std::string> rows[] = {
        { "00008130-00FACADE0001001C", kDevices[0].udid },
        { "00008130-00facade0001001c", kDevices[0].udid },
        { "0000813000FACADE0001001C", kDevices[0].udid },
        { "00008130", kDevices[0].udid },
        { "0000811", kDevices[1].udid },
        { "F1D0000000000000000000000000000000000001", kDevices[2].udid },
        { "f1d0", "ambiguous" },
        { "000081", "ambiguous" },
        { "8130", "none" },
        { "00008130-00FACADE0001001C0", "none" },
        { "-", "none" },
        { "", "none" },
    };
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(outcome(selectByUdid(text, kDevices)), expected) << text;
    const Error ambiguous = selectByUdid("00008", kDevices).error();
    EXPECT_EQ(exitStatusOf(ambiguous), ExitStatus::NoDevice);
    EXPECT_THAT(ambiguous.failureReason(),
        AllOf(HasSubstr("\"00008\""), HasSubstr(kDevices[0].udid), HasSubstr(kDevices[1].udid),
            Not(HasSubstr("f1d0"))));
}

TEST(DeviceSelection, FindsADeviceByItsNameAsPeopleTypeIt)
{
    const std::vector<NamedDevice> named { { kDevices[0], "Robin’s iPhone" },
        { kDevices[1], "Küche" }, { kDevices[2], "Spare" }, { kDevices[3], "spare" } };
    const std::pair<const char*, std::string> rows[] = {
        { "Robin’s iPhone", kDevices[0].udid },
        { "robin's iphone", kDevices[0].udid },
        { "Robin", "none" },
        { "KÜCHE", "none" },
        { "küche", kDevices[1].udid },
        { "Spare", "ambiguous" },
    };
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(outcome(selectByName(text, named)), expected) << text;
}

TEST(DeviceSelection, RefusesTextThatCanBeNoDevice)
{
    EXPECT_TRUE(validateDeviceText("../../etc"));
    EXPECT_TRUE(validateDeviceText("设备 📱"));
    for (const std::string& text : { std::string(), std::string("a\nb"), std::string("\xFF"),
             std::string("\x1b[2J"), std::string(257, 'a') }) {
        const auto result = validateDeviceText(text);
        ASSERT_FALSE(result) << text;
        EXPECT_EQ(exitStatusOf(result.error()), ExitStatus::Usage);
    }
}

TEST(DeviceSelection, OnlyAWholeUdidCannotBeAName)
{
    EXPECT_TRUE(isWholeUdid("00008130-00FACADE0001001C"));
    EXPECT_TRUE(isWholeUdid(std::string(40, 'f')));
    EXPECT_FALSE(isWholeUdid(std::string(41, 'f')));
    EXPECT_FALSE(isWholeUdid("00008130"));
    EXPECT_FALSE(isWholeUdid("00008130-00FACADE0001001G"));
}

} // namespace

} // namespace tdw::cli
