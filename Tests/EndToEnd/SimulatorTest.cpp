#include "SimulatorProcess.h"
#include "Support/Testing.h"

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

} // namespace

TEST_F(SimulatorTest, ShowsTheHouseholdToTheTools)
{
    const SimulatorProcess simulator;
    ASSERT_TRUE(simulator.isRunning());
    const std::pair<std::vector<std::string>, std::string> rows[] = {
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
    for (const auto& [command, expected] : rows) {
        const ToolRun outcome = simulator.run(command);
        EXPECT_EQ(outcome.output, expected) << testing::PrintToString(command);
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

TEST_F(SimulatorTest, ADeviceThatLeavesEndsItsConnectionsAndComesBackWithANewIdentifier)
{
    // It leaves between the answer that accepts the port of a service and the connection to it.
    const SimulatorProcess simulator;
    simulator.control({ "inject-fault", "at=mux", "request=Connect", "nth=2", "fault=delay",
        "milliseconds=3000" });
    auto request = std::async(std::launch::async, [&] {
        return simulator.run(
            { TIDEWELL_BUILD_DIR "/bin/tidewell", "--direct", "companions", kPhone });
    });
    simulator.control(
        { "wait", "request=Connect", "device=" + kPhone, "count=3", "milliseconds=30000" });
    simulator.control({ "detach", "device=" + kPhone });
    EXPECT_THAT(request.get().output, HasSubstr("was disconnected"));
    EXPECT_EQ(simulator.run({ "idevice_id", "-l" }).output, kTablet + "\n" + kGuest + "\n");
    EXPECT_THAT(
        simulator.control({ "attach", "device=00008130" }).output, HasSubstr(R"("deviceID":5)"))
        << "the beginning is enough";
    EXPECT_THAT(simulator.control({ "attach", "device=000081" }).output, HasSubstr("000081"));
}

TEST_F(SimulatorTest, AnswersTheLibraryWhereNoServerAsks)
{
    // The library writes to connections that the device has closed.
    std::signal(SIGPIPE, SIG_IGN);
    const SimulatorProcess simulator;
    for (const auto& [name, value] : simulator.environment())
        setenv(name.c_str(), value.c_str(), 1);
    idevice_t device = nullptr;
    ASSERT_EQ(idevice_new(&device, kPhone.c_str()), IDEVICE_E_SUCCESS);
    lockdownd_client_t lockdown = nullptr;
    ASSERT_EQ(lockdownd_client_new_with_handshake(device, &lockdown, "test"), LOCKDOWN_E_SUCCESS);
    EXPECT_EQ(lockdownd_set_value(lockdown, "com.apple.mobile.wireless_lockdown", "SupportsWifi",
                  plist_new_bool(0)),
        LOCKDOWN_E_IMMUTABLE_VALUE);
    lockdownd_client_free(lockdown);

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
        return runCommandBounded({ kSimulator, "run", "--", "sh", "-c", script });
    };
    const ToolRun outcome = run("idevice_id -n; echo $XDG_RUNTIME_DIR; exit 7");
    EXPECT_EQ(outcome.termination, (Termination { 7, false }));
    EXPECT_THAT(outcome.output, HasSubstr(kPhone));
    const auto runtime = outcome.output.substr(outcome.output.find('/'));
    EXPECT_FALSE(std::filesystem::exists(
        std::filesystem::path(runtime.substr(0, runtime.find('\n'))).parent_path()));
    EXPECT_EQ(run("kill -TERM $$").termination, (Termination { 128 + SIGTERM, false }));
    EXPECT_EQ(run("kill -INT $PPID; read forever < /dev/zero; exit 0").termination,
        (Termination { 128 + SIGINT, false }));
    EXPECT_THAT(
        runCommandBounded({ kSimulator, "run", "--scenario", "/no/file", "--", "true" }).output,
        testing::StartsWith("tdwsimulator: Cannot read /no/file"));
}
