#include "EndToEnd/RunningTool.h"
#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

#include <set>

using namespace tdw;
using namespace std::chrono_literals;
using namespace matchers;

namespace {

/// The tool in an installation with one executable more; returns its path.
std::string installedTool(const std::filesystem::path& directory, const std::string& executable)
{
    for (const std::string& file : { std::string("bin/tidewell"), executable }) {
        std::filesystem::create_directories((directory / file).parent_path());
        std::filesystem::copy(kBuild / file, directory / file);
    }
    return directory / "bin/tidewell";
}

void waitFor(const SimulatedDevices& devices, const char* request, const std::string& device)
{
    devices.control("wait", { { "at", "lockdown" }, { "request", request }, { "device", device } });
}

void acceptTrust(const SimulatedDevices& devices, const std::string& device)
{
    devices.control("answer-trust", { { "answer", "accept" }, { "device", device } });
}

/// Whether a process waits for something.
bool sleeps(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string stat;
    std::getline(file, stat);
    return stat.find(") S ") != std::string::npos;
}

std::string requestsTo(const SimulatedDevices& devices, const std::string& device)
{
    return devices.control("log", { { "at", "lockdown" }, { "device", device } });
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
        devices.detach(udid);
    const auto none = tidewell({ "list" });
    EXPECT_EQ(none.output, "");
    EXPECT_THAT(none.standardError, StartsWith("No device can be reached"));
    EXPECT_EQ(none.termination, Termination {});
    EXPECT_EQ(tidewell({ "list", "--json" }).output, "{\"Devices\":[]}\n");
}

TEST(CommandLine, WritesNoJsonKeyThatTheManualLacks)
{
    const Household devices;
    const TemporaryDirectory directory;
    std::string output;
    for (std::vector<std::string> words : std::vector<std::vector<std::string>> { { "list" },
             { "info", kPhone }, { "info", kLockedTablet }, { "battery", kPhone },
             { "battery", kLockedTablet }, { "companions", kPhone }, { "wifi", kPhone, "off" },
             { "wallpaper", kPhone, "-o", directory.path() / "lock.png" }, { "doctor" },
             { "unpair", kPhone }, { "service", "status" }, { "service", "stop" } }) {
        words.emplace_back("--json");
        output += tidewell(std::move(words)).output;
    }
    const std::string page = contentsOf(TIDEWELL_SOURCE_DIR "/Tools/tidewell/tidewell-json.5");
    std::set<std::string> missing;
    std::size_t found = 0;
    for (std::size_t end = 0; (end = output.find("\":", end + 1)) != std::string::npos; ++found) {
        const std::size_t start = output.rfind('"', end - 1) + 1;
        const std::string key = output.substr(start, end - start);
        // The stages of a request are values rather than keys.
        const std::size_t object = output.rfind('{', start);
        if (!output.substr(0, object).ends_with("\"Milliseconds\":")
            && page.find("\n.TP\n.B " + key + "\n") == std::string::npos)
            missing.insert(key);
    }
    EXPECT_THAT(missing, testing::IsEmpty());
    EXPECT_GT(found, 100U);
}

TEST(CommandLine, HasToolsWhoseEveryOptionIsInTheirManuals)
{
    const std::pair<std::vector<std::string>, const char*> tools[] = {
        { { kBuild / "bin/tdwsimulator", "run" }, "tdwsimulator/tdwsimulator.1" },
        { { kBuild / "bin/tdwsimulator", "serve" }, "tdwsimulator/tdwsimulator.1" },
        { { kBuild / "bin/tdwsimulator", "control" }, "tdwsimulator/tdwsimulator.1" },
        { { kBuild / "bin/tdwsimulator", "record" }, "tdwsimulator/tdwsimulator.1" },
        { { kBuild / "libexec/tidewell/tidewell-service" }, "tidewell-service/tidewell-service.8" },
    };
    for (auto [command, page] : tools) {
        std::string manual = contentsOf(TIDEWELL_SOURCE_DIR "/Tools/" + std::string(page));
        std::erase(manual, '\\');
        command.emplace_back("--help");
        const std::string help = runCommandBounded(command).output;
        for (std::size_t at = 0; (at = help.find("--", at)) != std::string::npos; at += 2) {
            const auto end = help.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", at);
            const std::string option = help.substr(at, end - at);
            EXPECT_THAT(manual, HasSubstr(option)) << page;
        }
        EXPECT_THAT(help, HasSubstr("--help"));
    }
}

TEST(CommandLine, SaysWhatIsWrongWithTheMultiplexer)
{
    const Household devices;
    const std::pair<const char*, const char*> rows[] = {
        { "absent", "is not listened on: usbmuxd is not running" },
        { "drop", "answers, but not as usbmuxd does" },
        { "no-serial-number", "its list of devices cannot be read" },
    };
    for (const auto& [fault, words] : rows) {
        devices.control("inject-fault", { { "at", "mux" }, { "fault", fault } });
        const auto run = expectFailure({ "list", "--json" }, 5,
            AllOf(StartsWith("tidewell: Cannot list the devices: "), HasSubstr(words)));
        EXPECT_THAT(run.output, StartsWith(R"({"error":{"domain":")"));
        devices.clearFaults();
    }
}

TEST(CommandLine, OutputThatCannotBeWrittenIsAFailure)
{
    const Household devices;
    const FileHandle full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    const auto run = RunningTool({ "list" }, full.descriptor()).finish();
    EXPECT_THAT(run.standardError, HasSubstr("standard output: No space left on device"));
    EXPECT_EQ(run.termination.status, 7);

    // A reader that has seen enough is not reported.
    Pipe pipe = *Pipe::create();
    pipe.reader.close();
    const auto unread = RunningTool({ "list" }, pipe.writer.descriptor()).finish();
    EXPECT_EQ(unread.standardError, "");
    EXPECT_EQ(unread.termination, (Termination { SIGPIPE, true }));
}

TEST(CommandLine, ADeviceThatDoesNotTrustIsToldApart)
{
    const Household devices;
    const auto locked = expectFailure(
        { "battery", kLockedTablet, "--json" }, 3, HasSubstr("The device is locked.\n"));
    EXPECT_THAT(locked.output, HasSubstr(R"(Lockdown","code":-17,)"));

    const auto info = tidewell({ "info", kLockedTablet });
    EXPECT_EQ(info.termination.status, 0);
    EXPECT_THAT(info.output, HasSubstr("Pairing        the device is locked\n"));
    EXPECT_THAT(info.standardError, StartsWith("tidewell: warning: The device is locked.\n"));

    // Sessions work before the first unlocking, and services do not.
    devices.control(
        R"({"command":"set-trust","trust":"before-first-unlock","device":")" + kPhone + R"("})");
    EXPECT_THAT(tidewell({ "battery", kPhone }).output, HasSubstr(" 76 %"));
    for (const auto& words : { std::vector<std::string> { "companions", kPhone },
             { "wallpaper", kPhone, "-o", "-" }, { "info", kPhone } }) {
        EXPECT_THAT(tidewell(words).standardError, HasSubstr("unlock it once.")) << words.front();
    }
}

TEST(CommandLine, AnUnknownPhoneOnTheNetworkIsToBeConnectedFirst)
{
    const Household devices(R"({"devices": [{"udid": ")" + kPhone
        + R"(", "connections": ["network"], "state": "unpaired"}]})");
    for (const char* command : { "info", "battery", "companions" }) {
        const auto run = tidewell({ command, kPhone });
        EXPECT_THAT(run.standardError, AllOf(HasSubstr("cable"), Not(HasSubstr("prohibited"))));
        EXPECT_EQ(run.termination.status, command == std::string("info") ? 0 : 3) << command;
    }
}

TEST(CommandLine, FindsADeviceByItsNameAndOnlyPairMakesOneAskItsUser)
{
    const Household devices;
    const auto run = tidewell({ "info", "robin's iphone" });
    EXPECT_THAT(run.output,
        AllOf(StartsWith("Name               Robin’s iPhone\n"), HasSubstr(kPhone),
            HasSubstr(" 76 %\n"), HasSubstr("Pairing            paired\n")));
    EXPECT_EQ(run.standardError, "");

    expectFailure({ "info", "Sam's iPhone" }, 2, HasSubstr("No device matches \"Sam's iPhone\""));
    EXPECT_THAT(requestsTo(devices, kStranger), HasSubstr(R"("entries":[])"));

    for (const auto& words : { std::vector<std::string> { "battery", kStranger },
             { "companions", kStranger }, { "wallpaper", kStranger, "-o", "-" },
             { "wifi", kStranger, "on" }, { "buddy", kStranger, "x" } }) {
        expectFailure(words, 3, HasSubstr("This computer is not paired with the device."));
    }
    EXPECT_THAT(tidewell({ "info", kStranger }).output,
        AllOf(StartsWith("Name           Sam"), HasSubstr("Pairing        not paired\n")));
    EXPECT_THAT(requestsTo(devices, kStranger), Not(HasSubstr(R"("request":"Pair")")));
    // A locked device says so, whatever it is asked.
    expectFailure(
        { "wallpaper", kLockedTablet, "-o", "-" }, 3, HasSubstr("The device is locked.\n"));
}

TEST(CommandLine, ADeviceThatGoesOrFallsSilentIsToldApart)
{
    const Household devices;
    devices.inject(
        R"("at":"lockdown","request":"GetValue","fault":"hang","device":")" + kPhone + '"');
    RunningTool pulled({ "battery", kPhone });
    waitFor(devices, "GetValue", kPhone);
    devices.detach(kPhone);
    const auto run = pulled.finish();
    EXPECT_EQ(run.termination.status, 9);
    EXPECT_THAT(run.output, AllOf(HasSubstr("was disconnected"), Not(HasSubstr("unpair"))));

    devices.attach(kPhone);
    const auto start = std::chrono::steady_clock::now();
    expectFailure(
        { "info", "Robin's iPhone" }, 4, AllOf(HasSubstr("do not answer"), HasSubstr(kPhone)));
    EXPECT_THAT(tidewell({ "info", "küchen" }).standardError, HasSubstr("do not answer"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 40s) << "all devices are asked at once";
}

TEST(CommandLine, ADeviceOnTheCableThatUsbmuxdDoesNotShowIsNamed)
{
    const Household devices;
    const TemporaryDirectory sysfs;
    const std::string longSerial = std::string(40, 'f') + std::string(1, '\0') + "rest";
    const std::array<std::string, 3> bus[] = { { "05ac", "12a8", "000081400000000000000001" },
        { "05ac", "12ab", longSerial }, { "05ac", "12a8", "0000813000FACADE0010001C" },
        { "05ac", "0221", "keyboard" }, { "18d1", "12a8", "other" }, { "05ac", "12a8", "" } };
    for (const auto& [vendor, product, serial] : bus) {
        const auto device = sysfs.path() / "bus/usb/devices" / (product + serial.substr(0, 24));
        std::filesystem::create_directories(device);
        std::ofstream(device / "idVendor") << vendor << "\n";
        std::ofstream(device / "idProduct") << product << "\n";
        if (!serial.empty())
            std::ofstream(device / "serial") << serial << "\n";
    }
    setenv("SYSFS_PATH", sysfs.path().c_str(), 1);
    const auto run = tidewell({ "list" });
    unsetenv("SYSFS_PATH");
    EXPECT_EQ(run.termination.status, 0);
    EXPECT_THAT(run.output, HasSubstr(kPhone));
    EXPECT_THAT(run.standardError,
        AllOf(HasSubstr("usbmuxd does not show it: \"00008140-0000000000000001\""),
            HasSubstr("show it: \"" + std::string(40, 'f') + '"'), HasSubstr("restart usbmuxd"),
            Not(HasSubstr(kPhone)), Not(HasSubstr("keyboard")), Not(HasSubstr("other"))));
}

TEST(CommandLine, FewDescriptorsOrLittleMemoryAreAnErrorLikeAnyOther)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs more than the test leaves";
#endif
    const Household devices;
    for (const std::string limit : { "--nofile=4", "--nofile=6", "--nofile=8", "--as=25165824" }) {
        const auto run = tidewell({ limit, kBuild / "bin/tidewell", "list" }, "/usr/bin/prlimit");
        EXPECT_FALSE(run.termination.bySignal) << limit;
        EXPECT_THAT(run.standardError, Not(HasSubstr("terminate"))) << limit;
    }
}

TEST(CommandLine, PairsWithAPhoneThatLeavesAtTheTapAndUnpairs)
{
    const Household devices;
    RunningTool pairing({ "pair", "00008110" });
    waitFor(devices, "Pair", kStranger);
    acceptTrust(devices, kStranger);
    const auto run = pairing.finish();
    EXPECT_EQ(run.termination, Termination {});
    EXPECT_THAT(run.output,
        AllOf(HasSubstr("Tap Trust on the device"), HasSubstr(kStranger + "\" trusts this")));
    EXPECT_THAT(tidewell({ "battery", kStranger }).output, HasSubstr(" 31 %  charging\n"));

    EXPECT_EQ(tidewell({ "unpair", kStranger, "--json" }).output, "{\"PairingState\":5}\n");
    expectFailure({ "unpair", kStranger }, 3, HasSubstr("nothing to undo"));

    // One that trusts without a question leaves before it has answered.
    devices.control("set-trust", { { "trust", "trusts" }, { "device", kStranger } });
    EXPECT_EQ(tidewell({ "pair", kStranger }).termination, Termination {});

    for (const char* trust : { "after-first-unlock", "managed" }) {
        devices.control("set-trust", { { "trust", trust }, { "device", kPhone } });
        EXPECT_EQ(tidewell({ "pair", kPhone }).termination, Termination {})
            << "trusts already, and refuses to pair: " << trust;
    }
}

TEST(CommandLine, PairingTellsRefusalsApart)
{
    const Household devices;
    const std::tuple<const char*, const char*, const char*> rows[] = {
        { "find-my", "in lost mode", R"("code":-37)" },
        { "managed", "is managed", R"("code":-38)" },
        { "denies", "tapped Don't Trust", R"("code":3)" },
    };
    for (const auto& [trust, words, code] : rows) {
        devices.control("set-trust", { { "trust", trust }, { "device", kStranger } });
        const auto run = expectFailure({ "pair", kStranger, "--json" }, 3, HasSubstr(words));
        EXPECT_THAT(run.output, HasSubstr(code));
    }
    // It trusts this computer, and a file is in the way of the records.
    const auto records = devices.directory() / "lib" / "lockdown";
    std::filesystem::remove_all(records);
    std::ofstream(records) << "in the way";
    devices.control(R"({"command":"set-trust","trust":"trusts","device":")" + kPhone + R"("})");
    EXPECT_THAT(
        tidewell({ "pair", kPhone }).standardError, HasSubstr("usbmuxd cannot write its records"));
}

TEST(CommandLine, PairingEndsInTimeWhateverTheDeviceDoes)
{
    const Household devices;
    devices.inject(R"("at":"lockdown","request":"Pair","fault":"hang")");
    const auto start = std::chrono::steady_clock::now();
    expectFailure(
        { "pair", kStranger, "--timeout", "1" }, 4, HasSubstr("has not answered within 1 s"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 15s) << "not by the server's clock of 20 s";
}

TEST(CommandLine, EveryCommandEndsAtOnceOnCtrlCWhateverHangs)
{
    const Household devices;
    const std::string file = devices.directory() / "written";
    using Commands = std::vector<std::vector<std::string>>;
    // A place of the simulator, or the service.
    const std::pair<std::string, Commands> places[] = {
        { "mux",
            { { "list" }, { "list", "--direct" }, { "info", "Robin's iPhone" }, { "pair", kPhone },
                { "events" }, { "watch" }, { "doctor" }, { "report", "-o", file } } },
        { "lockdown",
            { { "info", kPhone }, { "info", kPhone, "--direct" }, { "info", "Robin's iPhone" },
                { "battery", kPhone }, { "companions", kPhone },
                { "wallpaper", kPhone, "-o", file }, { "pair", kStranger }, { "unpair", kPhone },
                { "wifi", kPhone, "on" }, { "buddy", kPhone, "x" }, { "watch" },
                { "doctor", kPhone }, { "report", "-o", file } } },
        { "service",
            { { "list" }, { "info", kPhone }, { "events" }, { "watch" }, { "doctor" },
                { "service", "status" }, { "service", "stop" } } },
    };
    for (const auto& [place, commands] : places) {
        ASSERT_EQ(tidewell({ "list" }).termination, Termination {});
        const pid_t service = PrivateRuntime::servicePid();
        const std::string site = R"("at":")" + (place == "service" ? "mux" : place) + '"';
        if (place == "service")
            kill(service, SIGSTOP);
        else
            devices.inject(site + R"(,"fault":"hang")");
        for (const auto& words : commands) {
            const std::string log = devices.log(site);
            const auto last = std::stoull(log.substr(log.rfind(R"("last":)") + 7));
            RunningTool tool(words);
            if (place == "service")
                EXPECT_TRUE(becomesTrue([&] { return sleeps(tool.process->identifier()); }));
            else
                devices.control(
                    R"({"command":"wait",)" + site + R"(,"after":)" + std::to_string(last) + "}");
            const auto signalled = std::chrono::steady_clock::now();
            tool.process->sendSignal(SIGINT);
            const auto run = tool.finish();
            const auto taken = std::chrono::steady_clock::now() - signalled;
            EXPECT_LT(taken, 2s) << place << ": " << testing::PrintToString(words) << run.output;
        }
        kill(service, SIGCONT);
        devices.clearFaults();
    }
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(CommandLine, ChangesSettingsOverTheCable)
{
    const Household devices;
    EXPECT_EQ(tidewell({ "wifi", kPhone, "off", "--json" }).output, "{}\n");
    EXPECT_THAT(tidewell({ "buddy", kPhone, "a [b]" }).output, HasSubstr("is \"a [b]\" now"));
    EXPECT_THAT(tidewell({ "info", kPhone, "--json" }).output,
        AllOf(HasSubstr(R"("EnableWifiConnections":false)"),
            HasSubstr(R"("WirelessBuddyID":"a [b]")"), Not(HasSubstr("warnings"))));

    devices.control("detach", { { "connection", "usb" }, { "device", kPhone } });
    for (const auto& arguments : { std::vector<std::string> { "wifi", kPhone, "on" },
             { "info", kPhone, "--connection", "usb" } }) {
        expectFailure(arguments, 2, HasSubstr("cannot be reached over USB (only: network)"));
    }
    EXPECT_THAT(tidewell({ "battery", kPhone }).output, HasSubstr(" 76 %"));
}

TEST(CommandLine, AnIncompleteInstallationSaysWhatIsMissing)
{
    const Household devices;
    const auto serverless
        = installedTool(devices.directory() / "serverless", "libexec/tidewell/tidewell-service");
    for (const char* road : { "--json", "--direct" })
        expectFailure({ "list", road }, 6, HasSubstr("Cannot start \"tdw_list\""), serverless);

    EXPECT_EQ(tidewell({ "service", "stop" }).termination, Termination {});
    const auto program
        = installedTool(devices.directory() / "serviceless", "libexec/tidewell/tdw_list");
    const auto run = expectFailure({ "list", "--json" }, 8,
        AllOf(HasSubstr("The service of Tidewell cannot be reached"), HasSubstr("tidewell-service"),
            HasSubstr("With --direct the request works")),
        program);
    EXPECT_THAT(run.output, StartsWith(R"({"error":{)"));
    EXPECT_EQ(tidewell({ "list", "--direct" }, program).termination, Termination {});
}
