#include "EndToEnd/RunningTool.h"
#include "Interfaces/TidewellVersion.h"
#include "Support/Testing.h"

using namespace tdw;
using namespace matchers;

// The command line where it has to do with the service: the same answers by both roads, the stream
// of events, and looking after the service itself.

namespace {

using Lines = std::vector<std::string>;

std::string event(const std::string& word, const std::string& udid, int connection = 1)
{
    return R"({"Event":")" + word + R"(","UDID":")" + udid + R"(","Connection":)"
        + std::to_string(connection);
}

/// As many lines of events, without their dates.
Lines readEvents(RunningTool& tool, std::size_t count)
{
    Lines events;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string line = tool.readLine();
        events.push_back(line.substr(0, line.find(",\"Date\"")));
    }
    return events;
}

Lines eventsOfHousehold()
{
    return { event("attached", kPhone), event("attached", kPhone, 2),
        event("attached", kLockedTablet), event("attached", kStranger) };
}

} // namespace

TEST(ServiceCommands, BothRoadsGiveTheSameAnswers)
{
    const Household devices;
    for (const Lines& words : { Lines { "list" }, { "info", kPhone }, { "info", "robin's iphone" },
             { "battery", kPhone }, { "battery", kLockedTablet }, { "info", "no such device" } }) {
        for (const char* form : { "--json", "--connection=any" }) {
            auto arguments = words;
            if (words.front() == "info" || form == std::string("--json"))
                arguments.emplace_back(form);
            const auto service = tidewell(arguments);
            arguments.emplace_back("--direct");
            const auto direct = tidewell(arguments);
            // Errors carry the moment at which they happened.
            const auto withoutDates = [](const std::string& text) {
                return text.substr(0, text.find("\"date\":"));
            };
            EXPECT_EQ(withoutDates(service.output), withoutDates(direct.output)) << words.back();
            EXPECT_EQ(service.standardError, direct.standardError);
            EXPECT_EQ(service.termination, direct.termination);
        }
    }
    EXPECT_NE(PrivateRuntime::servicePid(), 0) << "nothing went through a service";
}

TEST(ServiceCommands, AServiceOfAnotherMultiplexerIsNotAsked)
{
    const Household devices;
    EXPECT_THAT(tidewell({ "list" }).output, HasSubstr(kStranger));
    const auto service = PrivateRuntime::servicePid();
    const std::string address = getenv("USBMUXD_SOCKET_ADDRESS");
    setenv("USBMUXD_SOCKET_ADDRESS", "UNIX:/nonexistent/usbmuxd", 1);
    EXPECT_THAT(tidewell({ "list" }).standardError, HasSubstr("/nonexistent/usbmuxd"));
    setenv("USBMUXD_SOCKET_ADDRESS", address.c_str(), 1);
    EXPECT_EQ(PrivateRuntime::servicePid(), service) << "it serves those who started it";
}

TEST(ServiceCommands, EventsAreToldAsTheyHappen)
{
    const Household devices;
    for (const Lines& road : { Lines(), { "--direct" } }) {
        Lines arguments { "events", "--json" };
        arguments.insert(arguments.end(), road.begin(), road.end());
        RunningTool tool(arguments);
        EXPECT_THAT(readEvents(tool, 4), UnorderedElementsAreArray(eventsOfHousehold()));
        devices.detach(kLockedTablet);
        EXPECT_EQ(readEvents(tool, 1).front(), event("detached", kLockedTablet));
        devices.attach(kLockedTablet);
        EXPECT_EQ(readEvents(tool, 1).front(), event("attached", kLockedTablet));
        tool.process->sendSignal(road.empty() ? SIGINT : SIGTERM);
        EXPECT_EQ(tool.finish().termination, Termination {});

        Pipe output = *Pipe::create();
        RunningTool unread(arguments, output.writer.descriptor());
        output.writer.close();
        EXPECT_NE(::readLine(output.reader.descriptor()), "");
        output.reader.close();
        const auto run = unread.finish();
        EXPECT_EQ(run.termination, Termination {}) << "it ends with its reader";
        EXPECT_EQ(run.standardError, "");
    }
}

TEST(ServiceCommands, EventsGoOnAfterTheServiceIsKilled)
{
    const Household devices;
    RunningTool tool({ "events", "--json" });
    EXPECT_THAT(readEvents(tool, 4), UnorderedElementsAreArray(eventsOfHousehold()));
    for (int round = 0; round < 2; ++round) {
        // What happens while there is no service is told by the next one; what stays is not.
        const pid_t service = PrivateRuntime::servicePid();
        ASSERT_GT(service, 0);
        kill(service, SIGKILL);
        round == 0 ? devices.detach(kLockedTablet) : devices.attach(kLockedTablet);
        std::string said;
        std::string line;
        while (!(line = tool.readLine()).empty() && !line.starts_with('{'))
            said += line + "\n";
        EXPECT_THAT(said, HasSubstr("tidewell: warning: No events come until there is a service"));
        EXPECT_THAT(line, StartsWith(event(round == 0 ? "detached" : "attached", kLockedTablet)));
    }
    devices.detach(kStranger);
    EXPECT_EQ(readEvents(tool, 1).front(), event("detached", kStranger));
}

TEST(ServiceCommands, AServiceThatIsStoppedIsSaidToBeAndCanBeEnded)
{
    const Household devices;
    EXPECT_EQ(tidewell({ "list" }).termination, Termination {});
    kill(PrivateRuntime::servicePid(), SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    expectFailure({ "list" }, 8, AllOf(HasSubstr("does not answer"), HasSubstr("service stop")));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    EXPECT_EQ(tidewell({ "list", "--direct" }).termination, Termination {});
    EXPECT_EQ(tidewell({ "service", "stop" }).output, "The service has ended.\n");
    EXPECT_EQ(tidewell({ "list" }).termination, Termination {});
}

TEST(ServiceCommands, StatusStartsNoServiceAndStopEndsIt)
{
    const Household devices;
    for (int i = 0; i < 2; ++i) {
        expectFailure({ "service", "status" }, 8, StartsWith("tidewell: No service runs."));
    }
    EXPECT_EQ(tidewell({ "service", "stop" }).output, "No service ran.\n");

    EXPECT_EQ(tidewell({ "list" }).termination, Termination {});
    const std::string service = std::to_string(PrivateRuntime::servicePid());
    devices.inject(R"("at":"lockdown","domain":"com.apple.mobile.battery","fault":"hang")");
    const RunningTool busy({ "battery", kPhone });
    devices.control("wait", { { "at", "lockdown" }, { "request", "GetValue" } });
    RunningTool events({ "events" });
    EXPECT_THAT(events.readLine(), HasSubstr("attached"));
    // The service may be listing the devices for the subscriber.
    EXPECT_THAT(tidewell({ "service", "status", "--json" }).output,
        MatchesRegex(R"(\{"Running":true,"ProcessID":)" + service
            + R"(,"Uptime":[0-9]{1,2},"ResidentMemory":[0-9]{7,},"Requests":[12],"Subscribers":1,)"
            + R"("Multiplexer":")" + std::string(getenv("USBMUXD_SOCKET_ADDRESS"))
            + R"(","Version":")" + TidewellVersionString + "\"\\}\n"));
    EXPECT_THAT(tidewell({ "service", "status" }).output,
        AllOf(StartsWith("Service      running\nProcess      " + service), HasSubstr(" MiB\n")));
    EXPECT_EQ(tidewell({ "service", "stop" }).output, "The service has ended.\n");
    EXPECT_NE(access(("/proc/" + service + "/exe").c_str(), F_OK), 0) << "it has not ended";
}
