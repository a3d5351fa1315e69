#include "Client/DeviceMonitor.h"
#include "EndToEnd/DaemonTest.h"
#include "EndToEnd/Household.h"
#include "EndToEnd/RunningTool.h"
#include "Mailbox.h"
#include "Platform/Queues/Queue.h"
#include "Support/Testing.h"

using namespace tdw;
using namespace matchers;

namespace {

/// A phone that asks its user, leaves the bus at the tap and comes back.
const std::string kAsking
    = R"({"devices": [{"udid": ")" + kPhone + R"(", "state": "unpaired", "trust": "asks"}]})";

std::string phoneWith(const std::string& content)
{
    return R"({"devices": [{"udid": ")" + kPhone + "\"" + content + "}]}";
}

} // namespace

TEST_F(DaemonTest, EveryServerAnswersThroughIt)
{
    const std::tuple<std::string, std::vector<std::string>, std::string> rows[] = {
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
    if (geteuid() == 0) {
        // With an ordinary user's rights: every user may use the socket, the records are the
        // daemon's.
        std::filesystem::permissions(m_simulator->directory(), std::filesystem::perms(0755));
        const std::pair<const char*, const char*> steps[]
            = { { "unpair", "<integer>5</integer>" }, { "pair", "<integer>3</integer>" } };
        for (const auto& [action, state] : steps) {
            EXPECT_THAT(m_simulator
                            ->run({ "setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                serverPath("tdw_pairing"), action, kPhone })
                            .output,
                HasSubstr(state))
                << "a locked phone can forget, and cannot trust";
        }
    }
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
    Mailbox<ToolRun> failures;
    for (int done = 0; done < runs; done += kAtOnce) {
        std::vector<std::jthread> threads;
        for (int i = 0; i < std::min(kAtOnce, runs - done); ++i) {
            threads.emplace_back([&] {
                const auto outcome = server("tdw_battery", { kPhone, "1" });
                if (outcome.termination != Termination {})
                    failures.put(outcome);
            });
        }
    }
    EXPECT_TRUE(failures.isEmpty()) << failures.take()->output;
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

TEST_F(DaemonTest, WhoFollowsDevicesIsToldWhateverTheDaemonDoes)
{
    start(phoneWith(""));
    const PrivateRuntime runtime;
    for (const auto& [name, value] : m_simulator->environment())
        setenv(name.c_str(), value.c_str(), 1);
    RunningTool events({ "events", "--direct" });
    RunningTool watch({ "watch" });
    Mailbox<DeviceEvent::Type> calls;
    std::optional<DeviceMonitor> monitor = DeviceMonitor::start(Queue::serial("callbacks"),
        { .event = [&](const DeviceEvent& event) { calls.put(event.type); }, .outage = {} });
    const auto expectAll = [&](DeviceEvent::Type type) {
        const std::string word
            = type == DeviceEvent::Type::Attached ? "  attached  " : "  detached  ";
        EXPECT_THAT(events.lineWith("tached"), HasSubstr(word + "USB      " + kPhone));
        EXPECT_THAT(watch.lineWith("tached"), HasSubstr(word + "USB      " + kPhone));
        EXPECT_EQ(calls.take(), type);
    };
    const auto expectThere = [&] {
        expectAll(DeviceEvent::Type::Attached);
        EXPECT_EQ(server("tdw_battery", { kPhone, "1" }).termination, (Termination { 0, false }));
    };
    const auto expectGone = [&] {
        expectAll(DeviceEvent::Type::Detached);
        EXPECT_THAT(server("tdw_list").output, HasSubstr("<key>error</key>"));
        EXPECT_TRUE(std::filesystem::is_socket(m_simulator->multiplexer())) << "it keeps its file";
    };
    const auto restart = [&] {
        (void)control({ "inject-fault", "at=mux", "fault=absent" });
        (void)control({ "clear-fault" });
    };
    expectThere();
    // Restarted while there is no request.
    restart();
    expectAll(DeviceEvent::Type::Detached);
    expectThere();
    // Killed: it stays away until it is started.
    const auto log = control({ "log", "at=daemon", "request=Started" }).output;
    kill(std::atoi(log.substr(log.rfind("\"ProcessID\":") + 12).c_str()), SIGKILL);
    waitFor("Ended");
    expectGone();
    restart();
    expectThere();
    EXPECT_THAT(control({ "log", "at=daemon", "request=Attached" }).output,
        Not(HasSubstr("\"DeviceID\":2")))
        << "each counts from one";
    // Its last device leaves.
    (void)control({ "detach", "device=" + kPhone });
    waitFor("Ended", {}, 2);
    expectGone();
    (void)control({ "attach", "device=" + kPhone });
    expectThere();
    events.process->sendSignal(SIGTERM);
    watch.process->sendSignal(SIGTERM);
    unsetenv("USBMUXD_SOCKET_ADDRESS");
}

TEST_F(DaemonTest, APhoneThatCannotBeGreetedIsNotShown)
{
    const std::pair<std::string, std::string> faults[]
        = { { kPhone, R"("at": "usb", "request": "Version", "fault": "hang")" },
              { kStranger, R"("at": "usb", "request": "Open", "fault": "drop")" },
              { kWatch, R"("at": "lockdown", "fault": "hang")" } };
    std::string devices;
    for (const auto& [udid, fault] : faults)
        devices += R"({"udid": ")" + udid + R"(", "faults": [{)" + fault + "}]}, ";
    start(R"({"devices": [)" + devices + R"({"udid": ")" + kLockedTablet + "\"}]}");
    EXPECT_EQ(m_simulator->run({ "idevice_id", "-l" }).output, kLockedTablet + "\n");
}

TEST_F(DaemonTest, APhoneThatForgotThisHostLosesItsRecordAndIsPairedWithByItself)
{
    start(phoneWith(R"(, "trust": "forgot-host-tls")"));
    // The daemon removes the record that TLS refuses. Debian 13's then hangs until the phone is
    // connected again.
    if (release() == "debian13") {
        waitFor("StartSession", kPhone, 1, "lockdown");
        (void)control({ "detach", "device=" + kPhone });
        waitFor("Ended");
        (void)control({ "attach", "device=" + kPhone });
    }
    waitFor("Attached", kPhone);
    EXPECT_EQ(server("tdw_battery", { kPhone, "1" }).termination, (Termination { 0, false }));
    EXPECT_THAT(control({ "log", "at=lockdown", "request=Pair" }).output,
        HasSubstr("\"request\":\"Pair\""));
}
