#include "EndToEnd/DaemonTest.h"
#include "EndToEnd/Household.h"

#include <poll.h>

#include <cstdlib>
#include <future>

using namespace tdw;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

/// A phone that asks its user, leaves the bus at the tap and comes back.
const std::string kAsking = R"({"devices": [{"udid": ")" + kPhone
    + R"(", "state": "unpaired", "trust": "asks", "reconnectAfterTrust": true}]})";

std::string phoneWith(const std::string& content)
{
    return R"({"devices": [{"udid": ")" + kPhone + "\"" + content + "}]}";
}

} // namespace

TEST_F(DaemonTest, EveryServerAnswersThroughIt)
{
    const struct {
        std::string server;
        std::vector<std::string> arguments;
        std::string expected;
    } rows[] = {
        { "tdw_list", {}, kPhone },
        { "tdw_info", { kPhone, "1", "--include-companion-identifiers" }, "Robin’s iPhone" },
        { "tdw_battery", { kPhone, "1" }, "<integer>76</integer>" },
        { "tdw_companion", { kPhone, "1" }, kWatch },
        { "tdw_companion_battery", { kPhone, "1" }, "<integer>83</integer>" },
        { "tdw_config",
            { kPhone, "com.apple.mobile.wireless_lockdown", "EnableWifiConnections", "0" },
            "response" },
        { "tdw_wallpaper", { kPhone, "1", "homescreen" }, "<data>" },
    };
    for (const auto& [name, arguments, expected] : rows) {
        const auto outcome = server(name, arguments);
        EXPECT_EQ(outcome.termination, (Termination { 0, false })) << name;
        EXPECT_THAT(outcome.output, HasSubstr(expected)) << name;
    }
    EXPECT_THAT(
        server("tdw_pairing", { "pair", kStranger }).output, HasSubstr("<integer>1</integer>"))
        << "its user is being asked";
    // The tools of the device library see the same devices, as the kernel numbers them.
    EXPECT_THAT(m_simulator->run({ "idevice_id", "-l" }).output,
        AllOf(HasSubstr(kPhone), HasSubstr(kLockedTablet), HasSubstr(kStranger)));
    EXPECT_THAT(control({ "log", "at=daemon", "request=Attached", "device=" + kPhone }).output,
        HasSubstr("\"LocationID\":65538"));
}

TEST_F(DaemonTest, ManyRequestsAtOnceNeitherFailNorAskTheUser)
{
    start(phoneWith(""));
    const char* wanted = std::getenv("TIDEWELL_PARALLEL_RUNS"); // NOLINT(concurrency-mt-unsafe)
    const int runs = wanted != nullptr ? std::atoi(wanted) : 64;
    constexpr int kAtOnce = 32;
    int failures = 0;
    std::string firstFailure;
    for (int done = 0; done < runs; done += kAtOnce) {
        std::vector<std::future<CommandOutcome>> outcomes;
        for (int i = 0; i < std::min(kAtOnce, runs - done); ++i) {
            outcomes.push_back(std::async(std::launch::async, [this] {
                return server("tdw_battery", { kPhone, "1" });
            }));
        }
        for (auto& outcome : outcomes) {
            const CommandOutcome result = outcome.get();
            if (result.termination == Termination { 0, false })
                continue;
            ++failures;
            if (firstFailure.empty())
                firstFailure = result.output;
        }
    }
    EXPECT_EQ(failures, 0) << "of " << runs << ", the first: " << firstFailure;
    EXPECT_THAT(control({ "log", "at=lockdown", "request=Pair" }).output,
        Not(HasSubstr("\"request\":\"Pair\"")));
}

TEST_F(DaemonTest, PairsWhenItsUserTapsAndThePhoneMoves)
{
    start(kAsking);
    EXPECT_THAT(control({ "list" }).output,
        AllOf(HasSubstr("\"dialogShown\":true"), HasSubstr("\"pairRecord\":false")));
    ASSERT_EQ(
        control({ "answer-trust", "device=" + kPhone, "answer=accept" }).termination.status, 0);
    waitFor("Detached");
    waitFor("Attached", kPhone, 2);
    EXPECT_THAT(control({ "list" }).output, HasSubstr("\"pairRecord\":true"));
    EXPECT_THAT(server("tdw_battery", { kPhone, "1" }).output, HasSubstr("<integer>80</integer>"));
}

TEST_F(DaemonTest, APulledCableIsAnErrorAndNotAHang)
{
    for (const std::string place : { "lockdown", "tls", "com.apple.companion_proxy" }) {
        start(R"({"devices": [{"udid": ")" + kLockedTablet + R"("}, {"udid": ")" + kPhone
            + R"(", "watches": [{"udid": ")" + kWatch + R"("}]}]})");
        (void)control({ "inject-fault", "at=" + place, "fault=detach" });
        const auto outcome = server("tdw_companion", { kPhone, "1" });
        EXPECT_FALSE(outcome.termination.bySignal) << place;
        EXPECT_THAT(outcome.output, HasSubstr("<key>error</key>")) << place;
        waitFor("Detached", kPhone);
    }
}

TEST_F(DaemonTest, EndsWithItsLastDeviceAndComesBackWithTheNext)
{
    start(phoneWith(""));
    (void)control({ "detach", "device=" + kPhone });
    waitFor("Ended");
    EXPECT_TRUE(std::filesystem::is_socket(m_simulator->multiplexer())) << "it keeps its file";
    EXPECT_THAT(server("tdw_list").output, HasSubstr("<key>error</key>"));
    (void)control({ "attach", "device=" + kPhone });
    waitFor("Attached", kPhone, 2);
    EXPECT_THAT(server("tdw_list").output, HasSubstr(kPhone));
}

TEST_F(DaemonTest, ARestartNumbersDevicesFromOneAndEventsGoOn)
{
    start(phoneWith(""));
    auto pipe = *Pipe::create();
    LaunchOptions launch;
    launch.executable = TIDEWELL_BUILD_DIR "/libexec/tidewell/tdw_events";
    launch.environment = m_simulator->environment();
    launch.standardOutput = pipe.writer.descriptor();
    auto events = Process::launch(launch);
    ASSERT_TRUE(events);
    pipe.writer.close();
    const auto nextEvent = [&pipe] {
        std::string line;
        pollfd entry { pipe.reader.descriptor(), POLLIN, 0 };
        char character = 0;
        while (poll(&entry, 1, 20'000) == 1 && read(pipe.reader.descriptor(), &character, 1) == 1
            && character != '\n')
            line += character;
        return line;
    };
    EXPECT_EQ(nextEvent(), "1,1," + kPhone);
    (void)control({ "inject-fault", "at=mux", "fault=absent" });
    EXPECT_EQ(nextEvent(), "2,1," + kPhone);
    EXPECT_THAT(server("tdw_list").output, HasSubstr("<key>error</key>"));
    (void)control({ "clear-fault" });
    EXPECT_EQ(nextEvent(), "1,1," + kPhone);
    EXPECT_THAT(control({ "log", "at=daemon", "request=Attached" }).output,
        Not(HasSubstr("\"DeviceID\":2")));
    EXPECT_EQ(server("tdw_battery", { kPhone, "1" }).termination, (Termination { 0, false }));
    (void)control({ "detach", "device=" + kPhone });
    EXPECT_EQ(nextEvent(), "2,1," + kPhone);
    events->sendSignal(SIGTERM);
}

TEST_F(DaemonTest, APhoneThatCannotBeGreetedIsNotShown)
{
    for (const std::string fault : { R"({"at": "usb", "request": "Version", "fault": "hang"})",
             R"({"at": "usb", "request": "Open", "fault": "drop"})",
             R"({"at": "lockdown", "fault": "hang"})" }) {
        start(R"({"devices": [{"udid": ")" + kPhone + R"(", "faults": [)" + fault
            + R"(]}, {"udid": ")" + kLockedTablet + R"("}]})");
        EXPECT_EQ(m_simulator->run({ "idevice_id", "-l" }).output, kLockedTablet + "\n") << fault;
    }
}

TEST_F(DaemonTest, APhoneThatForgotThisHostLosesItsRecordAndAsksByItself)
{
    start(phoneWith(R"(, "trust": "forgot-host-tls")"));
    // The daemon removes the record that TLS refuses, and pairs with a phone that trusts at once.
    EXPECT_EQ(server("tdw_battery", { kPhone, "1" }).termination, (Termination { 0, false }));
    EXPECT_THAT(control({ "log", "at=lockdown", "request=Pair" }).output,
        HasSubstr("\"request\":\"Pair\""));
}
