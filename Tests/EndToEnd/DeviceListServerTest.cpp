#include "EndToEnd/SimulatedDevices.h"
#include "Interfaces/TDWDeviceList.h"
#include "Support/TDWErrorHelpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>

using namespace tdw;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Ge;
using testing::Le;

namespace {

constexpr const char* kTwoDevices = R"({ "devices": [
    { "udid": "00008130-00FACADE0001001C", "connections": ["usb", "network"] },
    { "udid": "f1d0000000000000000000000000000000000001", "connections": ["network"] } ] })";

Value item(const char* udid, int connection)
{
    return Dictionary { { kTDWDeviceListItemUDID, udid },
        { kTDWDeviceListItemConnection, connection } };
}

Error unreachable()
{
    return TDWErrorCreate("idevice_get_device_list_extended", -3);
}

/// The exit status of the server tool started with exactly these strings.
int statusOf(std::array<const char*, 2> arguments, const posix_spawn_file_actions_t* actions)
{
    pid_t child = 0;
    int status = -1;
    const std::string tool = std::string(TIDEWELL_BUILD_DIR) + "/libexec/tidewell/tdwserver";
    EXPECT_EQ(posix_spawn(&child, tool.c_str(), actions, nullptr,
                  const_cast<char* const*>(arguments.data()), environ),
        0);
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace

TEST(DeviceListServer, ListsEachConnectionOfEachDevice)
{
    const SimulatedDevices devices(kTwoDevices);
    const auto answer = devices.run("tdw_list", { "ignored", "arguments" });
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.standardError, "");
    EXPECT_EQ(answer.payload,
        Value(Dictionary { { kTDWDevicesKey,
            Array { item("00008130-00FACADE0001001C", 1), item("00008130-00FACADE0001001C", 2),
                item("f1d0000000000000000000000000000000000001", 2) } } }));
    EXPECT_EQ(answer.deviceID, std::nullopt);

    // The judge of the simulator: software written elsewhere.
    EXPECT_EQ(devices.outputOf("/usr/bin/idevice_id", { "-l" }), "00008130-00FACADE0001001C\n");

    devices.control(R"({"command":"detach","device":"00008130-00FACADE0001001C"})");
    devices.control(R"({"command":"detach","device":"f1d0000000000000000000000000000000000001"})");
    EXPECT_EQ(devices.run("tdw_list").payload, Value(Dictionary { { kTDWDevicesKey, Array {} } }));
}

TEST(DeviceListServer, AnswersWithAnErrorWhateverTheMultiplexerDoes)
{
    const SimulatedDevices devices(kTwoDevices);
    for (const char* fault : { "drop", "truncate", "no-serial-number" }) {
        devices.control(
            std::string(R"({"command":"inject-fault","at":"mux","fault":")") + fault + R"("})");
        const auto answer = devices.run("tdw_list");
        EXPECT_EQ(answer.error, unreachable()) << fault << answer.output;
        EXPECT_EQ(answer.status, 253) << fault;
        devices.control(R"({"command":"clear-fault"})");
    }
    EXPECT_EQ(devices.run("tdw_list").status, 0) << "and recovers when the multiplexer does";
}

TEST(DeviceListServer, SaysThatThereIsNoMultiplexer)
{
    const SimulatedDevices devices(kTwoDevices);
    devices.control(R"({"command":"inject-fault","at":"mux","fault":"absent"})");
    const auto answer = devices.run("tdw_list");
    EXPECT_EQ(answer.error, unreachable());
    EXPECT_EQ(answer.status, 253);
    devices.control(R"({"command":"clear-fault"})");
    EXPECT_EQ(devices.run("tdw_list").status, 0);
}

class DeviceListServerWithoutAnAnswer : public testing::TestWithParam<const char*> { };

TEST_P(DeviceListServerWithoutAnAnswer, EndsByItsClock)
{
    const SimulatedDevices devices(kTwoDevices);
    devices.control(
        std::string(R"({"command":"inject-fault","at":"mux","fault":")") + GetParam() + R"("})");
    const auto answer = devices.run("tdw_list");
    EXPECT_THAT(answer.duration, AllOf(Ge(9s), Le(14s)));
    // The library may give up at the same moment; whichever comes first is the only answer.
    ASSERT_TRUE(answer.error) << answer.output;
    if (answer.status == 1)
        EXPECT_EQ(*answer.error, TDWErrorCreateWithMessage("Server timeout.", 1));
    else
        EXPECT_EQ(*answer.error, unreachable());
}

INSTANTIATE_TEST_SUITE_P(
    Faults, DeviceListServerWithoutAnAnswer, testing::Values("hang", "garbage"));

TEST(ServerTool, RefusesNamesThatAreNoServers)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/full", O_WRONLY, 0);
    EXPECT_EQ(statusOf({ "tdwserver", nullptr }, &actions), 123);
    EXPECT_EQ(statusOf({ "tdw_test", nullptr }, &actions), 123);
    EXPECT_EQ(statusOf({ "tdw_LIST", nullptr }, &actions), 123);
    EXPECT_EQ(statusOf({ nullptr, nullptr }, &actions), 111);
    EXPECT_EQ(statusOf({ "/bin/", nullptr }, &actions), 111);
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(SimulatedDevices::run("tdwserver").output, "");
}

TEST(ServerTool, KeepsTheEnvelopeOutOfTheDevicesConnection)
{
    // With standard output closed, the connection to the multiplexer would become descriptor 1.
    const SimulatedDevices devices(kTwoDevices);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addclose(&actions, STDOUT_FILENO);
    EXPECT_EQ(statusOf({ "tdw_list", nullptr }, &actions), 1) << "the answer was not delivered";
    posix_spawn_file_actions_destroy(&actions);
}
