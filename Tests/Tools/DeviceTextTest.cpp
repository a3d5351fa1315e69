#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWResponse.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/Testing.h"
#include "Text/BatteryBar.h"
#include "Text/DeviceInfoText.h"

namespace tdw::cli {

namespace {

using namespace matchers;

const ListedDevice kDevice { "00008130-00FACADE0001001C", { 1, 2 } };

TEST(BatteryBar, IsAsLongAsTheChargeSaysAndNoNumberWhereItIsNone)
{
    const struct {
        Value percent;
        const char* text;
        Colour colour = Colour::None;
    } rows[] = {
        { 0, "....................   0 %", Colour::Red },
        { 1, "#...................   1 %", Colour::Red },
        { 10, "##..................  10 %", Colour::Red },
        { 11, "###.................  11 %", Colour::Magenta },
        { 50, "##########..........  50 %", Colour::Green },
        { 100, "#################### 100 %", Colour::Green },
        { -1, "unknown" },
        { 101, "unknown" },
        { "50", "unknown" },
    };
    for (const auto& row : rows) {
        const auto cell
            = batteryBar(Dictionary { { kTDWBatteryCurrentCapacity, row.percent } }, Glyphs::Ascii);
        EXPECT_EQ(cell.text, row.text);
        EXPECT_TRUE(cell.colour == row.colour || row.colour == Colour::None) << row.text;
    }
    EXPECT_EQ(batteryBar("x", Glyphs::Unicode).text, "unknown");
    const Value none = Dictionary { { kTDWHasBattery, false }, { kTDWBatteryCurrentCapacity, 0 } };
    EXPECT_EQ(batteryBar(none, Glyphs::Unicode).text, "none");
}

TEST(BatteryState, SaysWhatTheDeviceSays)
{
    const auto state = [](Dictionary battery) {
        return batteryState(std::move(battery));
    };
    EXPECT_EQ(state({ { kTDWBatteryIsCharging, true }, { kTDWFullyCharged, true } }), "charging");
    EXPECT_EQ(
        state({ { kTDWFullyCharged, true }, { kTDWExternalConnected, true } }), "fully charged");
    EXPECT_EQ(state({ { kTDWBatteryIsCharging, false }, { kTDWExternalConnected, true } }),
        "connected to power, not charging");
    EXPECT_EQ(state({ { kTDWExternalConnected, false } }), "on battery");
    EXPECT_EQ(state({ { kTDWBatteryIsCharging, "yes" } }), "");
}

std::string textOf(const Dictionary& info)
{
    const auto text = deviceInfoText(kDevice, info, Glyphs::Ascii, ColourMode::Off);
    return text ? *text : text.error().failureReason();
}

TEST(DeviceInfoText, ShowsWhatIsKnownAndLeavesOutTheRest)
{
    EXPECT_EQ(textOf({ { "DeviceName", "Robin\x1b" }, { "ProductType", "iPhone16,1" },
                  { "BuildVersion", "22F76" }, { "PairingState", 4 },
                  { "Battery", Dictionary { { "BatteryCurrentCapacity", 50 } } },
                  { "EnableWifiConnections", true } }),
        "Name               Robin\\u001b\n"
        "UDID               00008130-00FACADE0001001C\n"
        "Connection         USB, network\n"
        "Pairing            paired\n"
        "Model              iPhone16,1\n"
        "Software           22F76\n"
        "Battery            ##########..........  50 %\n"
        "Wi-Fi connections  on\n"
        "Wireless buddy     none\n");
}

TEST(DeviceInfoText, AnUnpairedDeviceIsNotSaidToForbidWhatItDoesNotTell)
{
    const auto text = textOf({ { "PairingState", 1 }, { "EnableWifiConnections", false } });
    EXPECT_THAT(text, HasSubstr("asking whether to trust"));
    EXPECT_THAT(text, Not(HasSubstr("Wi-Fi connections")));
    EXPECT_THAT(textOf({ { "DeviceName", "x" } }), HasSubstr("no pairing state"));
}

/// A warning as the device info server puts it.
Error missing(const std::string& key)
{
    return TDWErrorCreateWithMessage(key + " wireless domain key had missing or invalid value", -1);
}

TEST(DeviceInfoText, ABuddyThatIsNotSetIsNoWarning)
{
    Dictionary info { { "PairingState", 4 }, { "EnableWifiConnections", false } };
    const Error locked = TDWErrorCreate("lockdownd_get_value", -17);
    const Error buddy = missing("WirelessBuddyID");
    TDWAppendErrorToWarningsArray(&info, &locked);
    TDWAppendErrorToWarningsArray(&info, &buddy);
    EXPECT_THAT(deviceInfoWarnings(info), ElementsAre(locked));

    // Here nothing is known of the wireless settings.
    const Error wifi = missing("EnableWifiConnections");
    TDWAppendErrorToWarningsArray(&info, &wifi);
    EXPECT_THAT(deviceInfoWarnings(info), ElementsAre(locked, buddy, wifi));
    EXPECT_THAT(textOf(info), HasSubstr("Wi-Fi connections  unknown\n"));
}

TEST(DeviceInfoText, ABatteryThatCannotBeReadSaysWhy)
{
    const auto error = TDWCreateErrorResponseDictionary(TDWErrorCreate("lockdownd_get_value", -13));
    EXPECT_THAT(textOf({ { "PairingState", 4 }, { "BatteryError", error } }),
        HasSubstr("unknown: Get prohibited.\n"));
}

} // namespace

} // namespace tdw::cli
