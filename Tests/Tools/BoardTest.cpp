#include "Devices/DeviceBoard.h"
#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Interfaces/TDWDeviceList.h"
#include "Support/Testing.h"
#include "Terminal/Screen.h"
#include "Terminal/TextWidth.h"
#include "Text/BoardText.h"

namespace tdw::cli {

namespace {

using namespace std::chrono_literals;
using Type = DeviceEvent::Type;
using namespace matchers;

constexpr const char* kDevice = "00AB-1";
const DeviceBoard::Clock::time_point kStart {};

Value info(std::uint32_t state)
{
    return Dictionary { { kTDWDeviceInfoPairingState, state },
        { kTDWDeviceInfoDeviceName, "A phone\x1b[2J with a name that is very long" },
        { kTDWDeviceInfoBattery, Dictionary { { kTDWBatteryCurrentCapacity, 7 } } },
        { kTDWDeviceInfoCompanionDeviceIdentifiers, Array { "W-1", "W-2" } } };
}

Error failure()
{
    return commandLineError({ .status = ExitStatus::Failure, .reason = "No.\nMore." });
}

DeviceBoard boardWithDevice()
{
    DeviceBoard board;
    board.received({ Type::Attached, { 1, kDevice } }, kStart);
    EXPECT_EQ(board.nextToAsk(kStart), kDevice);
    EXPECT_EQ(board.nextToAsk(kStart), std::nullopt) << "it is being asked";
    return board;
}

std::string textOf(const DeviceBoard& board, std::size_t columns)
{
    std::string text;
    for (const auto& line : boardLines(board, { .columns = columns, .now = kStart + 150s }))
        text += line + "\n";
    return text;
}

} // namespace

TEST(DeviceBoard, AsksAgainWhatFailedAndLessOftenWhatAnswers)
{
    const std::tuple<const char*, Result<Value>, std::chrono::seconds> rows[] = {
        { "trusts", info(TDWDevicePairingStatePaired), 60s },
        { "shows its dialog", info(TDWDevicePairingStatePending), 5s },
        { "fails", failure(), 5s },
        { "says nothing", Value(Dictionary()), 5s },
    };
    for (const auto& [situation, answer, pause] : rows) {
        SCOPED_TRACE(situation);
        auto board = boardWithDevice();
        (void)board.answered(kDevice, answer, kStart);
        EXPECT_EQ(board.nextDue(), kStart + pause);
        EXPECT_EQ(board.nextToAsk(kStart + pause - 1ms), std::nullopt);
        board.received({ Type::Paired, { 1, kDevice } }, kStart + 1s);
        EXPECT_EQ(board.nextToAsk(kStart + 1s), kDevice) << "an event is a reason to ask";
    }
    // The pauses between failures grow, and an answer ends that.
    auto board = boardWithDevice();
    for (const auto pause : { 5s, 10s, 20s, 40s, 60s, 60s }) {
        (void)board.answered(kDevice, failure(), kStart);
        EXPECT_EQ(board.nextDue(), kStart + pause);
        EXPECT_EQ(board.nextToAsk(kStart + pause), kDevice);
    }
    (void)board.answered(kDevice, info(TDWDevicePairingStatePaired), kStart);
    EXPECT_EQ(board.nextToAsk(kStart + 60s), kDevice);
    (void)board.answered(kDevice, failure(), kStart);
    EXPECT_EQ(board.nextDue(), kStart + 5s);
    board.notPaired(kDevice, kStart);
    EXPECT_EQ(board.nextDue(), kStart + 5s) << "the pair record may come at any time";
}

TEST(DeviceBoard, OneBadWatchHidesNoOtherAndWhatGoesIsForgotten)
{
    auto board = boardWithDevice();
    EXPECT_THAT(board.answered(kDevice, info(TDWDevicePairingStatePaired), kStart),
        ElementsAre("W-1", "W-2"));
    board.companionAnswered(kDevice, "W-1", failure());
    board.companionAnswered(kDevice, "W-2",
        Value(Dictionary { { kTDWDeviceInfoDeviceName, "Wrist" },
            { kTDWDeviceInfoBattery, Dictionary { { kTDWBatteryCurrentCapacity, 40 } } } }));
    EXPECT_THAT(textOf(board, 100),
        AllOf(HasSubstr("A phone\\u001b[2J with a~"), HasSubstr("#.........   7 %"),
            HasSubstr("  watch W-1"), HasSubstr("no answer: No.\n"), HasSubstr("  watch Wrist"),
            HasSubstr("####......  40 %"), HasSubstr("2 min"), HasSubstr("USB")));

    board.received({ Type::Attached, { 2, kDevice } }, kStart);
    board.received({ Type::Detached, { 1, kDevice } }, kStart);
    EXPECT_EQ(board.devices().size(), 1U);
    board.received({ Type::Detached, { 2, kDevice } }, kStart);
    EXPECT_TRUE(board.devices().empty());
    EXPECT_THAT(board.answered(kDevice, info(TDWDevicePairingStatePaired), kStart), ElementsAre());
}

TEST(BoardText, FitsEveryTerminalWithTheNameAndTheBatteryFirst)
{
    auto board = boardWithDevice();
    (void)board.answered(kDevice, info(TDWDevicePairingStatePaired), kStart);
    for (const std::size_t columns : { 200U, 100U, 80U, 60U, 40U, 20U }) {
        const auto lines = boardLines(board, { .columns = columns, .now = kStart });
        for (const auto& line : lines)
            EXPECT_LE(displayWidth(line), columns) << line;
        EXPECT_THAT(lines, Contains(AllOf(HasSubstr("A phone"), HasSubstr("  7 %")))) << columns;
    }
    EXPECT_THAT(textOf(board, 80), HasSubstr("CONNECTION"));
    EXPECT_THAT(textOf(board, 40), Not(HasSubstr("CONNECTION")));
}

TEST(BoardText, CutsWhatIsTooLongAndLeavesColoursWhole)
{
    EXPECT_EQ(fitted("abc", 3, Glyphs::Unicode), "abc");
    EXPECT_EQ(fitted("abcd", 3, Glyphs::Unicode), "ab…");
    EXPECT_EQ(fitted("\x1b[31mäb\x1b[0m c", 3, Glyphs::Ascii), "\x1b[31mäb\x1b[0m~\x1b[0m");
    EXPECT_EQ(fitted("🌊🌊", 3, Glyphs::Unicode), "🌊…");
    EXPECT_EQ(fitted("abc", 0, Glyphs::Unicode), "");
}

TEST(BoardText, MoreLinesThanTheTerminalHasAreScrolled)
{
    const std::vector<std::string> all { "head", "1", "2", "3", "4", "5" };
    std::size_t first = 0;
    EXPECT_EQ(pageOf(all, 6, first), all);
    EXPECT_THAT(pageOf(all, 4, first), ElementsAre("head", "1", "2", "(1 to 2 of 5)"));
    first = 99;
    EXPECT_THAT(pageOf(all, 4, first), ElementsAre("head", "4", "5", "(4 to 5 of 5)"));
    EXPECT_EQ(first, 3U);
    EXPECT_THAT(pageOf(all, 1, first), ElementsAre("4"));
}

TEST(Screen, KnowsTheKeysOfTerminals)
{
    EXPECT_THAT(keysIn("\x1b[Bx\x1b[5~q"), ElementsAre(Key::Down, Key::PageUp, Key::Quit));
    EXPECT_THAT(keysIn("\x1bOAG\x1b"), ElementsAre(Key::Up, Key::Last));
}

} // namespace tdw::cli
