#include "Server/TDWServerImplementation.h"

#include "Server/TDWServerLockdown.h"

#include <gtest/gtest.h>

#include <unistd.h>

TEST(TDWServerImplementation, ReadsTheConnectionTypeAsALooseNumber)
{
    const struct {
        const char* text;
        int options;
    } cases[] = { { "1", 2 }, { "2", 4 }, { " +2", 4 }, { "2nd", 4 }, { "0", 6 }, { "3", 6 },
        { "-1", 6 }, { "", 6 }, { "usb", 6 }, { "4294967297", 6 }, { "1.9", 2 } };
    for (const auto& row : cases) {
        const char* arguments[] = { "tdw_info", "udid", row.text };
        EXPECT_EQ(TDWParseDeviceOptionsFromArguments(3, const_cast<char**>(arguments)), row.options)
            << row.text;
        EXPECT_EQ(TDWParseDeviceOptionsFromArguments(2, const_cast<char**>(arguments)), 6);
    }
}

TEST(TDWServerImplementation, MapsLockdownCodesToPairingStates)
{
    const struct {
        int code;
        TDWDevicePairingState state;
    } cases[] = { { -17, TDWDevicePairingStateLocked }, { -35, TDWDevicePairingStateLocked },
        { -37, TDWDevicePairingStateLocked }, { -19, TDWDevicePairingStatePending },
        { -18, TDWDevicePairingStateDenied }, { -29, TDWDevicePairingStateNotPaired },
        { -31, TDWDevicePairingStateNotPaired }, { -38, TDWDevicePairingStateNotPaired },
        { -39, TDWDevicePairingStateNotPaired }, { 0, TDWDevicePairingStateNotPaired } };
    for (const auto& row : cases)
        EXPECT_EQ(TDWDevicePairingStateFromLockdownErrorCode(row.code), row.state) << row.code;
}

// Each clock ends its process, so each has one of its own.
class TDWServerClock : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

using TDWServerClockDeathTest = TDWServerClock;

TEST_F(TDWServerClockDeathTest, FiresOnceItsIntervalIsOver)
{
    EXPECT_EXIT(
        {
            TDWServerSetTimeoutInterval(0.1);
            TDWServerInitialize();
            pause();
        },
        testing::ExitedWithCode(1), "^$");
}

TEST_F(TDWServerClockDeathTest, DoesNothingWhenStoppedInTime)
{
    EXPECT_EXIT(
        {
            TDWServerStopTimeoutClock(); // before any start
            TDWServerSetTimeoutInterval(0.5);
            TDWServerInitialize();
            TDWServerStopTimeoutClock();
            TDWServerStopTimeoutClock();
            alarm(1);
            pause();
        },
        testing::KilledBySignal(SIGALRM), "^$");
}

TEST_F(TDWServerClockDeathTest, DoesNotRunWithANegativeInterval)
{
    EXPECT_EXIT(
        {
            TDWServerSetTimeoutInterval(-1.0);
            TDWServerInitialize();
            TDWServerStopTimeoutClock();
            alarm(1);
            pause();
        },
        testing::KilledBySignal(SIGALRM), "^$");
}

TEST_F(TDWServerClockDeathTest, ComplainsAboutASecondStartAndStopsWithOneStop)
{
    EXPECT_EXIT(
        {
            TDWServerSetTimeoutInterval(0.3);
            TDWServerInitialize();
            _TDWServerStartTimeoutClock();
            TDWServerStopTimeoutClock();
            alarm(1);
            pause();
        },
        testing::KilledBySignal(SIGALRM),
        "^\\[ERROR\\] \\(Source/Server/TDWServerImplementation.cpp:[0-9]+\\) Invoked timeout clock "
        "start function more than once in the lifetime of the process!\n$");
}
