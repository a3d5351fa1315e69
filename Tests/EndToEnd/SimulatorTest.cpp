#include "SimulatorProcess.h"
#include "Support/Testing.h"

#include <libimobiledevice/companion_proxy.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <libimobiledevice/sbservices.h>
#include <plist/plist.h>

#include <future>

using namespace tdw;
using namespace std::chrono_literals;
using namespace matchers;

// The command-line tools of the device library are the judges: they know nothing of simulators.

namespace {

const std::string kPhone = "00008130-00FACADE0010001C";
const std::string kTablet = "00008103-00FACADE0011003A";
const std::string kGuest = "00008110-00FACADE0012002E";

class SimulatorTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (runCommandBounded({ "sh", "-c", "command -v idevice_id" }).termination.status != 0)
            GTEST_SKIP() << "the tools of libimobiledevice are not installed";
    }
};

std::string scenarioWithTrust(std::string_view trust)
{
    return R"({"devices": [{"udid": ")" + kPhone + R"(", "state": "unpaired", "trust": ")"
        + std::string(trust) + "\"}]}";
}

} // namespace

TEST_F(SimulatorTest, ShowsTheHouseholdToTheTools)
{
    const SimulatorProcess simulator;
    ASSERT_TRUE(simulator.isRunning());
    struct Row {
        std::vector<std::string> command;
        std::string expected;
    };
    const Row rows[] = {
        { { "idevice_id", "-l" }, kPhone + "\n" + kTablet + "\n" + kGuest + "\n" },
        { { "idevice_id", "-n" }, kPhone + "\n" },
        { { "ideviceinfo", "-u", kPhone, "-k", "UniqueChipID" }, "70591799010263068\n" },
        { { "ideviceinfo", "-u", kPhone, "-q", "com.apple.mobile.battery", "-k",
              "BatteryCurrentCapacity" },
            "76\n" },
        { { "ideviceinfo", "-n", "-u", kPhone, "-k", "ProductType" }, "iPhone16,1\n" },
        { { "ideviceinfo", "-s", "-u", kTablet, "-k", "DeviceName" }, "Kitchen iPad “Küche” 🌊\n" },
        { { "idevicename", "-u", kPhone }, "Robin’s iPhone\n" },
        { { "idevicename", "-u", kPhone, "Another name" }, "device name set to 'Another name'\n" },
        { { "idevicename", "-n", "-u", kPhone }, "Another name\n" },
        { { "idevicepair", "-u", kPhone, "validate" },
            "SUCCESS: Validated pairing with device " + kPhone + "\n" },
    };
    for (const Row& row : rows) {
        const CommandOutcome outcome = simulator.run(row.command);
        EXPECT_EQ(outcome.output, row.expected) << testing::PrintToString(row.command);
        EXPECT_EQ(outcome.termination, (Termination { 0, false }));
    }
    // Releases of the tool write real numbers in two ways.
    EXPECT_THAT(
        simulator.run({ "ideviceinfo", "-u", kPhone, "-k", "TimeZoneOffsetFromUTC" }).output,
        AnyOf("7200.000000\n", "7200\n"));
    // A host without a session learns little.
    EXPECT_THAT(simulator.run({ "ideviceinfo", "-s", "-u", kTablet }).output,
        AllOf(HasSubstr("ProductType: iPad13,16"), Not(HasSubstr("SerialNumber"))));
}

TEST_F(SimulatorTest, AnswersPairingAsItsTrustBehaviourSays)
{
    struct Row {
        std::string trust;
        std::string expected;
    };
    const Row rows[] = {
        { "trusts", "SUCCESS: Paired with device" },
        { "asks", "Please accept the trust dialog" },
        { "denies", "denied the trust dialog" },
        { "locked", "passcode is set" },
        { "find-my", "error code -37" },
        { "managed", "error code -38" },
        { "managed-challenge", "error code -39" },
        { "usb-only", "SUCCESS: Paired with device" },
    };
    for (const Row& row : rows) {
        const SimulatorProcess simulator(scenarioWithTrust(row.trust));
        EXPECT_THAT(simulator.run({ "idevicepair", "pair" }).output, HasSubstr(row.expected))
            << row.trust;
    }
}

TEST_F(SimulatorTest, PairsWhenTheDialogIsAcceptedAndForgetsAHostThatUnpairs)
{
    const SimulatorProcess simulator;
    const auto pair = [&](const std::string& verb) {
        return simulator.run({ "idevicepair", "-u", kGuest, verb }).output;
    };
    EXPECT_THAT(pair("pair"), HasSubstr("Please accept the trust dialog"));
    EXPECT_THAT(simulator.control({ "list" }).output, HasSubstr(R"("dialogShown":true)"));
    // It leaves at the tap, and comes back.
    simulator.control({ "answer-trust", "device=" + kGuest, "answer=accept" });
    simulator.control({ "wait", "request=Attached", "device=" + kGuest, "count=2" });
    EXPECT_THAT(pair("pair"), HasSubstr("SUCCESS"));
    EXPECT_EQ(simulator.run({ "ideviceinfo", "-u", kGuest, "-k", "SerialNumber" }).output,
        "TWSIM10003\n");
    EXPECT_THAT(pair("unpair"), HasSubstr("SUCCESS"));
    simulator.control({ "answer-trust", "device=" + kGuest, "answer=deny" });
    EXPECT_THAT(pair("pair"), HasSubstr("denied the trust dialog"));
}

TEST_F(SimulatorTest, KnowsAHostNoMoreAfterForgettingIt)
{
    const SimulatorProcess simulator;
    simulator.control({ "set-trust", "device=" + kPhone, "trust=forgot-host" });
    EXPECT_THAT(simulator.run({ "ideviceinfo", "-u", kPhone }).output, HasSubstr("-21"));
    EXPECT_THAT(simulator.run({ "idevicepair", "-u", kPhone, "pair" }).output,
        HasSubstr("SUCCESS: Paired"));
    EXPECT_EQ(simulator.run({ "ideviceinfo", "-u", kPhone, "-k", "SerialNumber" }).output,
        "TWSIM10001\n");
}

TEST_F(SimulatorTest, FailsWhereFaultsAreInjectedAndRecoversAfterThem)
{
    const SimulatorProcess simulator;
    const std::vector<std::string> rows[] = {
        { "at=lockdown", "request=GetValue", "fault=drop" },
        { "at=lockdown", "request=GetValue", "fault=truncate" },
        { "at=lockdown", "request=GetValue", "fault=garbage" },
        { "at=lockdown", "request=GetValue", "fault=wrong-type", "key=DeviceName" },
        { "at=lockdown", "request=GetValue", "fault=missing-key", "key=DeviceName" },
        { "at=lockdown", "request=GetValue", "fault=not-a-dictionary" },
        { "at=lockdown", "request=GetValue", "fault=error", "error=GetProhibited" },
        { "at=lockdown", "request=QueryType", "fault=close-after-reply" },
        { "at=lockdown", "request=StartSession", "fault=error", "error=InvalidHostID" },
        { "at=tls", "fault=drop" },
        { "at=tls", "fault=garbage" },
        { "at=mux", "request=Accept", "fault=drop" },
        { "at=mux", "request=ListDevices", "fault=no-serial-number" },
        { "at=mux", "request=Connect", "fault=truncate", "bytes=16" },
        { "at=mux", "fault=absent" },
    };
    const std::vector<std::string> readName { "ideviceinfo", "-u", kPhone, "-k", "DeviceName" };
    for (std::vector<std::string> fault : rows) {
        const std::string title = testing::PrintToString(fault);
        fault.insert(fault.begin(), "inject-fault");
        EXPECT_THAT(simulator.control(fault).output, HasSubstr(R"("ok":true)")) << title;
        // A release of the library tries what fails again and again, for ever.
        EXPECT_THAT(simulator.run(readName, 5s).output, Not(HasSubstr("Robin"))) << title;
        simulator.control({ "clear-fault" });
        EXPECT_EQ(simulator.run(readName).output, "Robin’s iPhone\n") << "after " << title;
    }
}

TEST_F(SimulatorTest, UnplugsADeviceInTheMiddleOfARequestAndGivesItANewIdentifier)
{
    const SimulatorProcess simulator;
    simulator.control({ "inject-fault", "at=lockdown", "request=StartSession", "fault=detach" });
    EXPECT_THAT(simulator.run({ "ideviceinfo", "-u", kPhone, "-k", "DeviceName" }).output,
        Not(HasSubstr("Robin")));
    EXPECT_THAT(
        simulator.control({ "wait", "request=Detached", "device=" + kPhone, "milliseconds=5000" })
            .output,
        HasSubstr(R"("DeviceID":1)"));
    EXPECT_EQ(simulator.run({ "idevice_id", "-l" }).output, kTablet + "\n" + kGuest + "\n");
    EXPECT_THAT(
        simulator.control({ "attach", "device=00008130" }).output, HasSubstr(R"("deviceID":5)"))
        << "the beginning is enough";
    EXPECT_THAT(simulator.control({ "attach", "device=000081" }).output, HasSubstr("000081"));

    // It leaves between the answer that accepts the port of a service and the connection to it.
    const SimulatorProcess other;
    other.control({ "inject-fault", "at=mux", "request=Connect", "nth=2", "fault=delay",
        "milliseconds=500" });
    auto request = std::async(std::launch::async, [&] {
        return other.run({ TIDEWELL_BUILD_DIR "/bin/tidewell", "--direct", "companions", kPhone });
    });
    other.control(
        { "wait", "request=Connect", "device=" + kPhone, "count=3", "milliseconds=5000" });
    other.control({ "detach", "device=" + kPhone });
    EXPECT_THAT(request.get().output, HasSubstr("was disconnected"));
    EXPECT_EQ(other.run({ "idevice_id", "-l" }).output, kTablet + "\n" + kGuest + "\n");
}

TEST_F(SimulatorTest, ServesWatchesWallpapersAndWirelessSettingsToTheLibrary)
{
    // The library writes to connections that the device has closed.
    std::signal(SIGPIPE, SIG_IGN);
    const SimulatorProcess simulator;
    for (const auto& [name, value] : simulator.environment())
        setenv(name.c_str(), value.c_str(), 1);
    idevice_t device = nullptr;
    ASSERT_EQ(idevice_new(&device, kPhone.c_str()), IDEVICE_E_SUCCESS);

    const auto watchValue = [&](const char* key) {
        companion_proxy_client_t companion = nullptr;
        plist_t value = nullptr;
        uint64_t number = 0;
        companion_proxy_client_start_service(device, &companion, "test");
        const auto code = companion_proxy_get_value_from_registry(
            companion, "00008301-00FACADE00130026", key, &value);
        if (value != nullptr)
            plist_get_uint_val(value, &number);
        plist_free(value);
        companion_proxy_client_free(companion);
        return std::pair(static_cast<int>(code), number);
    };
    // The library hands out the dictionary around the value or the value itself, by its release.
    EXPECT_EQ(watchValue("BatteryCurrentCapacity").first, COMPANION_PROXY_E_SUCCESS);
    EXPECT_EQ(watchValue("NoSuchKey").first, COMPANION_PROXY_E_UNSUPPORTED_KEY);

    lockdownd_client_t lockdown = nullptr;
    ASSERT_EQ(lockdownd_client_new_with_handshake(device, &lockdown, "test"), LOCKDOWN_E_SUCCESS);
    const auto write = [&](const char* key) {
        return lockdownd_set_value(
            lockdown, "com.apple.mobile.wireless_lockdown", key, plist_new_bool(0));
    };
    EXPECT_EQ(write("EnableWifiConnections"), LOCKDOWN_E_SUCCESS);
    EXPECT_EQ(write("SupportsWifi"), LOCKDOWN_E_IMMUTABLE_VALUE);
    lockdownd_client_free(lockdown);
    EXPECT_EQ(simulator
                  .run({ "ideviceinfo", "-u", kPhone, "-q", "com.apple.mobile.wireless_lockdown",
                      "-k", "EnableWifiConnections" })
                  .output,
        "false\n");

    // Only systems before 16 answer the command that the library has.
    simulator.control({ "set-value", "device=" + kPhone, "key=ProductVersion", R"(value="15.8")" });
    sbservices_client_t springboard = nullptr;
    sbservices_client_start_service(device, &springboard, "test");
    char* image = nullptr;
    uint64_t size = 0;
    EXPECT_EQ(sbservices_get_home_screen_wallpaper_pngdata(springboard, &image, &size),
        SBSERVICES_E_SUCCESS);
    EXPECT_EQ(std::string_view(image, 4), "\x89PNG");
    free(image); // NOLINT: the library's own allocation
    sbservices_client_free(springboard);
    idevice_free(device);
}

TEST_F(SimulatorTest, RunsACommandWithDevicesAroundItAndLeavesNothingBehind)
{
    const auto run = [](const std::string& script) {
        return runCommandBounded({ simulatorExecutable(), "run", "--", "sh", "-c", script });
    };
    const CommandOutcome outcome = run("idevice_id -n; echo $XDG_RUNTIME_DIR; exit 7");
    EXPECT_EQ(outcome.termination, (Termination { 7, false }));
    EXPECT_THAT(outcome.output, HasSubstr(kPhone));
    const auto runtime = outcome.output.substr(outcome.output.find('/'));
    EXPECT_FALSE(std::filesystem::exists(
        std::filesystem::path(runtime.substr(0, runtime.find('\n'))).parent_path()));
    EXPECT_EQ(run("kill -TERM $$").termination, (Termination { 128 + SIGTERM, false }));
    EXPECT_EQ(run("kill -INT $PPID; read forever < /dev/zero; exit 0").termination,
        (Termination { 128 + SIGINT, false }));
    EXPECT_THAT(
        runCommandBounded({ simulatorExecutable(), "run", "--scenario", "/no/file", "--", "true" })
            .output,
        testing::StartsWith("tdwsimulator: Cannot read /no/file"));
}
