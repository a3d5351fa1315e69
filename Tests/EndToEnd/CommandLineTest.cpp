#include "EndToEnd/RunningTool.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

using namespace tdw;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

/// The tool in an installation with one executable more; returns its path.
std::string installedTool(const std::filesystem::path& directory, const std::string& executable)
{
    for (const std::string& file :
        { std::string("bin/tidewell"), std::string("lib/libtidewell.so.1"), executable }) {
        std::filesystem::create_directories((directory / file).parent_path());
        std::filesystem::copy(kBuild / file, directory / file);
    }
    return directory / "bin/tidewell";
}

std::string waitForPairing(const SimulatedDevices& devices)
{
    return devices.control(
        R"({"command":"wait","at":"lockdown","request":"Pair","device":")" + kStranger + R"("})");
}

} // namespace

TEST(CommandLine, ListsDevicesForPeopleAndForPrograms)
{
    const Household devices;
    EXPECT_EQ(tidewell({ "list" }).output,
        "UDID                       CONNECTION\n" + kPhone + "  USB, network\n" + kLockedTablet
            + "  USB\n" + kStranger + "  USB\n");
    EXPECT_THAT(tidewell({ "list", "--json", "--direct" }).output,
        StartsWith(R"({"Devices":[{"UDID":")" + kPhone + R"(","Connection":1},{"UDID":)"));

    for (const std::string& udid : { kPhone, kLockedTablet, kStranger })
        devices.control(R"({"command":"detach","device":")" + udid + R"("})");
    const auto none = tidewell({ "list" });
    EXPECT_EQ(none.output, "");
    EXPECT_THAT(none.standardError, StartsWith("No device can be reached"));
    EXPECT_EQ(none.termination, Termination {});
    EXPECT_EQ(tidewell({ "list", "--json" }).output, "{\"Devices\":[]}\n");
}

TEST(CommandLine, SaysWhatIsWrongWithTheMultiplexer)
{
    const Household devices;
    const struct {
        const char* fault;
        const char* words;
    } rows[] = {
        { "absent", "does not exist: usbmuxd is not running" },
        { "drop", "answers, but not as usbmuxd does" },
        { "no-serial-number", "its list of devices cannot be read" },
    };
    for (const auto& row : rows) {
        devices.control(
            std::string(R"({"command":"inject-fault","at":"mux","fault":")") + row.fault + R"("})");
        const auto run = tidewell({ "list", "--json" });
        EXPECT_THAT(run.standardError,
            AllOf(StartsWith("tidewell: Cannot list the devices: "), HasSubstr(row.words)));
        EXPECT_THAT(run.output, StartsWith(R"({"error":{"domain":")"));
        EXPECT_EQ(run.termination.status, 5);
        devices.control(R"({"command":"clear-fault"})");
    }
}

TEST(CommandLine, OutputThatCannotBeWrittenIsAFailure)
{
    const Household devices;
    const FileHandle full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    const auto run = RunningTool({ "list" }, full.descriptor()).finish();
    EXPECT_THAT(run.standardError, HasSubstr("standard output: No space left on device"));
    EXPECT_EQ(run.termination.status, 7);

    // A reader that has seen enough is no news to anybody.
    Pipe pipe = *Pipe::create();
    pipe.reader.close();
    const auto unread = RunningTool({ "list" }, pipe.writer.descriptor()).finish();
    EXPECT_EQ(unread.standardError, "");
    EXPECT_EQ(unread.termination, (Termination { SIGPIPE, true }));
}

TEST(CommandLine, FindsADeviceByItsNameWithoutAskingStrangers)
{
    const Household devices;
    const auto run = tidewell({ "info", "robin's iphone" });
    EXPECT_THAT(run.output,
        AllOf(StartsWith("Name               Robin’s iPhone\n"), HasSubstr(kPhone),
            HasSubstr(" 76 %\n"), HasSubstr("Pairing            paired\n")));
    EXPECT_EQ(run.standardError, "");

    const auto nobody = tidewell({ "info", "Sam's iPhone" });
    EXPECT_EQ(nobody.termination.status, 2);
    EXPECT_THAT(nobody.standardError, HasSubstr("No device matches \"Sam's iPhone\""));
    EXPECT_THAT(
        devices.control(R"({"command":"log","at":"lockdown","device":")" + kStranger + R"("})"),
        HasSubstr(R"("entries":[])"));
}

TEST(CommandLine, ADeviceThatDoesNotTrustIsToldApart)
{
    const Household devices;
    const auto locked = tidewell({ "battery", kLockedTablet, "--json" });
    EXPECT_THAT(locked.output, HasSubstr(R"(Lockdown","code":-17,)"));
    EXPECT_THAT(locked.standardError, HasSubstr("The device is locked.\n"));
    EXPECT_EQ(locked.termination.status, 3);

    const auto info = tidewell({ "info", kLockedTablet });
    EXPECT_EQ(info.termination.status, 0);
    EXPECT_THAT(info.output, HasSubstr("Pairing        the device is locked\n"));
    EXPECT_THAT(info.standardError, StartsWith("tidewell: warning: The device is locked.\n"));
}

TEST(CommandLine, PairsOnceTheUserTrustsAndUnpairs)
{
    const Household devices;
    RunningTool pairing({ "pair", "00008110" });
    waitForPairing(devices);
    devices.control(
        R"({"command":"answer-trust","answer":"accept","device":")" + kStranger + R"("})");
    const auto run = pairing.finish();
    EXPECT_EQ(run.termination, Termination {});
    EXPECT_THAT(run.output,
        AllOf(HasSubstr("Tap Trust on the device"), HasSubstr(kStranger + "\" trusts this")));
    EXPECT_THAT(tidewell({ "battery", kStranger }).output, HasSubstr(" 31 %  charging\n"));

    EXPECT_EQ(tidewell({ "unpair", kStranger, "--json" }).output, "{\"PairingState\":5}\n");
    const auto again = tidewell({ "unpair", kStranger });
    EXPECT_EQ(again.termination.status, 3);
    EXPECT_THAT(again.standardError, HasSubstr("nothing to undo"));
}

TEST(CommandLine, PairingEndsInTimeWhateverTheDeviceDoes)
{
    const Household devices;
    devices.control(
        R"({"command":"inject-fault","at":"lockdown","request":"Pair","fault":"hang"})");
    const auto start = std::chrono::steady_clock::now();
    const auto run = tidewell({ "pair", kStranger, "--timeout", "1" });
    EXPECT_EQ(run.termination.status, 4);
    EXPECT_THAT(run.standardError, HasSubstr("has not answered within 1 s"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

TEST(CommandLine, PairingCanBeInterrupted)
{
    const Household devices;
    RunningTool pairing({ "pair", kStranger });
    waitForPairing(devices);
    pairing.process->sendSignal(SIGINT);
    const auto run = pairing.finish();
    EXPECT_EQ(run.termination, (Termination { SIGINT, true }));
    EXPECT_THAT(run.output, HasSubstr("Interrupted"));
}

TEST(CommandLine, ChangesSettingsOverTheCable)
{
    const Household devices;
    EXPECT_EQ(tidewell({ "wifi", kPhone, "off", "--json" }).output, "{}\n");
    EXPECT_THAT(tidewell({ "buddy", kPhone, "a [b]" }).output, HasSubstr("is \"a [b]\" now"));
    EXPECT_THAT(tidewell({ "info", kPhone, "--json" }).output,
        AllOf(HasSubstr(R"("EnableWifiConnections":false)"),
            HasSubstr(R"("WirelessBuddyID":"a [b]")"), Not(HasSubstr("warnings"))));

    devices.control(R"({"command":"detach","connection":"usb","device":")" + kPhone + R"("})");
    for (const auto& arguments : { std::vector<std::string> { "wifi", kPhone, "on" },
             { "info", kPhone, "--connection", "usb" } }) {
        const auto run = tidewell(arguments);
        EXPECT_EQ(run.termination.status, 2);
        EXPECT_THAT(run.standardError, HasSubstr("cannot be reached over USB (only: network)"));
    }
    EXPECT_THAT(tidewell({ "battery", kPhone }).output, HasSubstr(" 76 %"));
}

TEST(CommandLine, AnIncompleteInstallationSaysWhatIsMissing)
{
    const Household devices;
    const auto program = installedTool(devices.directory(), "libexec/tidewell/tidewell-service");
    for (const char* road : { "--json", "--direct" }) {
        const auto run = tidewell({ "list", road }, program);
        EXPECT_EQ(run.termination.status, 6);
        EXPECT_THAT(run.standardError, HasSubstr("Cannot start \"tdw_list\""));
    }
}

TEST(CommandLine, AServiceThatCannotBeReachedIsToldApart)
{
    const Household devices;
    const auto program = installedTool(devices.directory(), "libexec/tidewell/tdw_list");
    const auto run = tidewell({ "list", "--json" }, program);
    EXPECT_EQ(run.termination.status, 8);
    EXPECT_THAT(run.output, StartsWith(R"({"error":{)"));
    EXPECT_THAT(run.standardError,
        AllOf(HasSubstr("The service of Tidewell cannot be reached"), HasSubstr("tidewell-service"),
            HasSubstr("With --direct the request works")));
    EXPECT_EQ(tidewell({ "list", "--direct" }, program).termination, Termination {});
}
