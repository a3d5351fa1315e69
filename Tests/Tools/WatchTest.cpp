#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWDeviceList.h"
#include "Watch/BoardText.h"
#include "Watch/DeviceBoard.h"

#include <gmock/gmock.h>

#include <string>

namespace tdw::cli {

namespace {

using Type = service::DeviceEvent::Type;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kDevice = "00AB-1";

Value info(std::uint32_t state)
{
    return Dictionary { { kTDWDeviceInfoPairingState, state },
        { kTDWDeviceInfoDeviceName, "A phone\x1b[2J" },
        { kTDWDeviceInfoCompanionDeviceIdentifiers, Array { "W-1" } } };
}

} // namespace

TEST(Watch, ADeviceThatDoesNotTrustIsAskedForEventsOnly)
{
    const struct {
        const char* situation;
        Result<Value> answer;
        bool isAskedAgain;
    } rows[] = {
        { "trusts", info(TDWDevicePairingStatePaired), true },
        { "shows its dialog", info(TDWDevicePairingStatePending), false },
        { "refuses", info(TDWDevicePairingStateDenied), false },
        { "fails", commandLineError({ .status = ExitStatus::Failure, .reason = "No." }), false },
        { "says nothing", Value(Dictionary()), false },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.situation);
        DeviceBoard board;
        board.received({ Type::Attached, { 1, kDevice } });
        EXPECT_EQ(board.nextToAsk(), kDevice);
        (void)board.answered(kDevice, row.answer);
        board.refresh();
        EXPECT_EQ(board.nextToAsk().has_value(), row.isAskedAgain);
        board.received({ Type::Attached, { 2, kDevice } });
        EXPECT_EQ(board.nextToAsk().has_value(), !row.isAskedAgain);
        board.received({ Type::Paired, { 1, kDevice } });
        EXPECT_EQ(board.nextToAsk(), kDevice);
    }
}

TEST(Watch, WhatGoesIsForgottenAndWhatIsSaidIsHarmless)
{
    DeviceBoard board;
    board.received({ Type::Attached, { 1, kDevice } });
    EXPECT_THAT(board.answered(kDevice, info(TDWDevicePairingStatePaired)), ElementsAre("W-1"));
    board.watchesAnswered(kDevice,
        Value(Dictionary { { kTDWDevicesKey,
            Array { Dictionary { { kTDWDeviceListItemUDID, "W-1" },
                { kTDWDeviceInfoBattery,
                    Dictionary { { kTDWBatteryCurrentCapacity, 40 } } } } } } }));
    const auto text = boardText(board, Glyphs::Ascii, ColourMode::Off);
    EXPECT_THAT(text, HasSubstr("A phone\\u001b[2J"));
    EXPECT_THAT(text, HasSubstr("  watch W-1"));
    EXPECT_THAT(text, HasSubstr("########............ 40 %"));

    board.received({ Type::Detached, { 1, kDevice } });
    EXPECT_TRUE(board.devices().empty());
    EXPECT_THAT(board.answered(kDevice, info(TDWDevicePairingStatePaired)), ElementsAre());
}

TEST(Watch, LinesAreCutToTheTerminal)
{
    EXPECT_THAT(fitted("abc\ndef\nghi\n", 2, 3), ElementsAre("ab", "de", "gh"));
    EXPECT_THAT(
        fitted("\x1b[31mäb\x1b[0m c\n", 2, 1), ElementsAre(StartsWith("\x1b[31mäb\x1b[0m")));
    EXPECT_THAT(fitted("\x1b[31m🌊🌊\x1b[0m\n", 3, 1), ElementsAre("\x1b[31m🌊\x1b[0m"));
    EXPECT_THAT(fitted("a\nb\nc\n", 20, 2), ElementsAre("a", "(2 more lines)"));
}

} // namespace tdw::cli
