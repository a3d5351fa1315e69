#include "CapturedStream.h"
#include "EndToEnd/Processes.h"
#include "EndToEnd/RunningTool.h"
#include "Host/TDWStreamingInvocation.h"
#include "Platform/Counter.h"
#include "Server/TDWEventsServer.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/Testing.h"

#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>

using namespace tdw;
using namespace std::chrono_literals;
using namespace matchers;

namespace {

const std::string kServers = TIDEWELL_BUILD_DIR "/libexec/tidewell";
constexpr auto kBound = 30s;
constexpr const char* kEndOfStream = "(end)";

const std::string kTablet = "f1d0000000000000000000000000000000000001";

/// A phone on the cable, and a tablet that is nowhere yet and has never been paired.
std::string scenario(const std::string& faults = "", const std::string& multiplexer = "debian12")
{
    return R"({ "multiplexer": ")" + multiplexer + R"(", "devices": [ { "udid": ")" + kPhone
        + R"(" },
        { "udid": ")"
        + kTablet + R"(", "connections": [], "state": "unpaired" } ],
        "faults": [)"
        + faults + "] }";
}

/// A running events server.
struct EventStream : RunningTool {
    explicit EventStream(Pipe output = *Pipe::create())
        : RunningTool({}, output.writer.descriptor(), kServers + "/tdw_events")
        , reader(std::move(output.reader))
    {
    }

    /// The next line as it arrives, or the end.
    std::string next()
    {
        std::string line = ::readLine(reader.descriptor());
        return line.empty() ? kEndOfStream : line;
    }

    Termination end()
    {
        const auto termination = process->waitUntilExit(kBound);
        EXPECT_TRUE(termination) << "the server lives on";
        return termination.value_or(Termination { -1, false });
    }

    /// Whether the server is past the moment from which a signal ends it in order.
    bool catches(int signalNumber) const
    {
        std::ifstream status(directoryOf(process->identifier()) / "status");
        for (std::string word; status >> word;) {
            if (word == "SigCgt:" && status >> word)
                return (std::stoull(word, nullptr, 16) >> (signalNumber - 1) & 1U) != 0;
        }
        return false;
    }

    FileHandle reader;
};

/// How often `part` stands in `text`; other lines may come between.
int occurrences(const std::string& text, const std::string& part)
{
    int count = 0;
    for (auto at = text.find(part); at != text.npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

std::string line(int type, int connection, const std::string& udid)
{
    return std::to_string(type) + "," + std::to_string(connection) + "," + udid;
}

} // namespace

TEST(EventsServer, ReportsDevicesAsTheyComeAndGoAndArePaired)
{
    for (const std::string multiplexer : { "debian12", "debian13" }) {
        const SimulatedDevices devices(scenario("", multiplexer));
        const auto waitFor = [&](const std::string& members) {
            devices.control(R"({"command":"wait","at":"mux",)" + members + "}");
        };
        EventStream events;
        EXPECT_EQ(events.next(), line(1, 1, kPhone));
        devices.detach(kPhone);
        EXPECT_EQ(events.next(), line(2, 1, kPhone));
        devices.attach(kPhone, "network");
        EXPECT_EQ(events.next(), line(1, 2, kPhone));
        devices.attach(kTablet);
        EXPECT_EQ(events.next(), line(1, 1, kTablet));
        waitFor(R"("request":"ReadBUID")"); // It has been asked why there is no record.
        EXPECT_EQ(SimulatedDevices::run("tdw_pairing", { "pair", kTablet }).status, 0);
        EXPECT_EQ(events.next(), line(3, 1, kTablet)) << multiplexer;
        // Told once, though the record is looked for again.
        const std::string reading = R"("request":"ReadPairRecord","device":")" + kTablet + '"';
        const int count = occurrences(devices.log(R"("at":"mux",)" + reading), R"("request":"Rea)");
        devices.detach(kTablet);
        devices.attach(kTablet);
        waitFor(reading + R"(,"count":)" + std::to_string(count + 1));
        devices.detach(kPhone);
        EXPECT_EQ(events.next(), line(2, 1, kTablet)) << multiplexer;
        EXPECT_EQ(events.next(), line(1, 1, kTablet));
        EXPECT_EQ(events.next(), line(2, 2, kPhone));
    }
}

TEST(EventsServer, GoesOnAfterAMalformedRecord)
{
    const SimulatedDevices devices(scenario());
    EventStream events;
    EXPECT_EQ(events.next(), line(1, 1, kPhone));
    devices.inject(R"("at":"mux","fault":"no-serial-number","request":"Attached","count":1)");
    devices.attach(kTablet);
    // The library gives the connection up, and all devices with it, and starts again.
    EXPECT_EQ(events.next(), line(2, 1, kPhone));
    EXPECT_THAT((std::array { events.next(), events.next() }),
        UnorderedElementsAre(line(1, 1, kPhone), line(1, 1, kTablet)));
}

TEST(EventsServer, EndsInOrderOnASignal)
{
    const SimulatedDevices devices(scenario());
    const std::pair<int, std::string> signals[] = { { SIGINT, "Received SIGINT, terminating" },
        { SIGTERM, "Received SIGTERM, terminating" },
        { SIGABRT, "Received SIGABRT, terminating" } };
    for (const auto& [number, message] : signals) {
        EventStream events;
        EXPECT_EQ(events.next(), line(1, 1, kPhone));
        const auto start = std::chrono::steady_clock::now();
        events.process->sendSignal(number);
        EXPECT_NE(events.lineWith(message), "");
        events.process->sendSignal(number);
        EXPECT_EQ(events.end(), (Termination { 0, false }));
        EXPECT_THAT(std::chrono::steady_clock::now() - start, Ge(250ms));
        EXPECT_NE(events.lineWith(message), "");
        EXPECT_EQ(events.next(), kEndOfStream) << "the device is still there";
    }
}

TEST(EventsServer, EndsInOrderFromTheFirstMomentOn)
{
    const SimulatedDevices devices(scenario());
    for (int i = 0; i < 4; ++i) {
        EventStream events;
        EXPECT_TRUE(becomesTrue([&] { return events.catches(SIGTERM); }));
        events.process->sendSignal(SIGTERM);
        EXPECT_EQ(events.end(), (Termination { 0, false }));
        EXPECT_NE(events.lineWith("Received SIGTERM, terminating"), "");
    }
}

TEST(EventsServer, SurvivesAMultiplexerThatComesLateAndGoes)
{
    const SimulatedDevices devices(scenario(R"({"at":"mux","fault":"absent"})"));
    EventStream events;
    EXPECT_TRUE(becomesTrue([&] { return events.catches(SIGABRT); }));
    devices.clearFaults();
    EXPECT_EQ(events.next(), line(1, 1, kPhone));
    devices.inject(R"("at":"mux","fault":"absent")");
    EXPECT_EQ(events.next(), line(2, 1, kPhone));
    devices.clearFaults();
    EXPECT_EQ(events.next(), line(1, 1, kPhone));
}

TEST(EventsServer, EndsWithItsReader)
{
    const SimulatedDevices devices(scenario());
    std::array<int, 2> sockets {};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()), 0);
    std::array outputs { *Pipe::create(), Pipe { FileHandle(sockets[0]), FileHandle(sockets[1]) } };
    for (Pipe& output : outputs) {
        EventStream events(std::move(output));
        EXPECT_EQ(events.next(), line(1, 1, kPhone));
        events.reader.close();
        EXPECT_EQ(events.end(), (Termination { 0, false }));
    }
    Pipe unread = *Pipe::create();
    unread.reader.close();
    EXPECT_EQ(EventStream(std::move(unread)).end(), (Termination { 0, false })) << "from the start";
}

TEST(EventsServer, EndsThoughItsLinesAreNotTaken)
{
    std::string list;
    for (int i = 100; i < 250; ++i)
        list += std::string(list.empty() ? "" : ",") + R"({"udid":"f1d0000000000000000000000000000)"
            + R"(000000)" + std::to_string(i) + R"("})";
    const SimulatedDevices devices(R"({"devices":[)" + list + "]}");
    Pipe pipe = *Pipe::create();
    const int capacity = fcntl(pipe.writer.descriptor(), F_SETPIPE_SZ, 4096);
    EventStream events(std::move(pipe));
    EXPECT_TRUE(becomesTrue([&] {
        int bytes = 0;
        ioctl(events.reader.descriptor(), FIONREAD, &bytes);
        return bytes > capacity - 100;
    }));
    events.process->sendSignal(SIGTERM);
    EXPECT_EQ(events.end(), (Termination { 0, false }));
    std::string last;
    for (std::string next = events.next(); next != kEndOfStream; next = events.next()) {
        EXPECT_EQ(next.size(), line(1, 1, kTablet).size()) << "no part of a line";
        last = next;
    }
    EXPECT_NE(last, "");
}

TEST(EventsServer, TellsItsHostWhyItCannotSubscribe)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs more address space than the test leaves";
#endif
    const SimulatedDevices devices(scenario());
    // Room for the stacks of two threads: the server has two queues, the third is the library's.
    constexpr rlim_t kStack = rlim_t { 1 } << 30;
    rlimit oldStack {};
    rlimit oldSpace {};
    getrlimit(RLIMIT_STACK, &oldStack);
    getrlimit(RLIMIT_AS, &oldSpace);
    const rlimit stack { kStack, oldStack.rlim_max };
    const rlimit space { kStack * 5 / 2, oldSpace.rlim_max };
    ASSERT_EQ(setrlimit(RLIMIT_STACK, &stack), 0);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &space), 0);

    std::vector<std::string> lines;
    std::optional<Error> error;
    Counter completions;
    const auto failure = TDWInvokeStreamingServer(
        "tdw_events", Bundle(kServers), {}, Queue::serial("wait"), Queue::serial("callback"),
        [&](const std::string& text) { lines.push_back(text); },
        [&](const std::optional<Error>& result) {
            error = result;
            completions.add();
        });
    setrlimit(RLIMIT_STACK, &oldStack);
    setrlimit(RLIMIT_AS, &oldSpace);
    ASSERT_FALSE(failure);
    ASSERT_TRUE(completions.reaches(1));
    EXPECT_EQ(error, TDWErrorCreate("idevice_events_subscribe", IDEVICE_E_UNKNOWN_ERROR));
    EXPECT_THAT(lines, Contains("</plist>")) << "standard output has the envelope, too";
}

TEST(EventsServer, WritesOneLineAnEventAndNothingElse)
{
    CapturedStream output(STDOUT_FILENO);
    const CapturedStream warnings(STDERR_FILENO);
    const std::tuple<int, int, const char*> events[] = { { 1, 0, kPhone.c_str() },
        { 2, 2, "odd,one" }, { 1, 1, "x\n2,1,y" }, { 1, 1, nullptr } };
    for (const auto& [type, connection, udid] : events) {
        const idevice_event_t event { static_cast<idevice_event_type>(type), udid,
            static_cast<idevice_connection_type>(connection) };
        _TDWEventsServerCallback(&event, nullptr);
    }
    EXPECT_EQ(output.text(), line(1, 0, kPhone) + "\n2,2,odd,one\n");
}

TEST(EventsServer, HandlesNoOtherSignal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(registerTerminationSignalHandler(SIGHUP, "SIGHUP"), testing::ExitedWithCode(1),
        "^FATAL: Missing signal handler dispatch source global for signal 1\n$");
}
