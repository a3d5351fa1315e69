#include "Client/ServiceMessages.h"
#include "Client/TidewellServiceClient.h"
#include "EndToEnd/PrivateRuntime.h"
#include "EndToEnd/Processes.h"
#include "EndToEnd/RunningTool.h"
#include "Interfaces/TDWResponse.h"
#include "Interfaces/TidewellVersion.h"
#include "Mailbox.h"
#include "Platform/Messages/Message.h"
#include "Platform/Messages/ServiceStart.h"
#include "Platform/System/LocalSocket.h"
#include "Platform/System/Process.h"
#include "Support/Testing.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cmath>

using namespace tdw;
using namespace std::chrono_literals;
using namespace matchers;

namespace {

namespace fs = std::filesystem;

/// What others may notice of a busy service. Sanitizers make it slow and large.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr auto kAnswerBound = 20s;
constexpr int kManyClients = 40;
constexpr int kRequestsAtOnce = 16;
constexpr std::size_t kResidentBound = std::size_t { 4 } << 30;
#else
constexpr auto kAnswerBound = 8s; // before the first of the other requests comes to its end
constexpr int kManyClients = 100;
constexpr int kRequestsAtOnce = 80;
constexpr std::size_t kResidentBound = std::size_t { 60 } << 20;
#endif

constexpr const char* kTablet = "00008130-00FACADE0002001C";
constexpr const char* kTool = TIDEWELL_BUILD_DIR "/bin/tidewell";
constexpr const char* kService = TIDEWELL_BUILD_DIR "/libexec/tidewell/tidewell-service";
const std::string kPhoneArrives = "1,1," + kPhone;
const std::string kTabletArrives = std::string("1,1,") + kTablet;

/// A phone on the cable, and a tablet that is nowhere yet.
const std::string kScenario = R"({ "devices": [ { "udid": ")" + kPhone
    + R"(", "battery": {"BatteryCurrentCapacity": 80} }, { "udid": ")" + kTablet
    + R"(", "connections": [] } ] })";

/// Everything that the tests start has a runtime directory of its own. At the end of each test the
/// service is told to go, and must leave nothing of itself or of its servers.
class ServiceTest : public testing::Test {
protected:
    ServiceTest()
        : m_devices(kScenario)
    {
    }

    ~ServiceTest() override
    {
        ask();
        client->invalidate();
        EXPECT_TRUE(becomesTrue([&] { return processes().empty(); }))
            << commandOf(processes().front());
        std::vector<std::string> left;
        for (const auto& entry : fs::directory_iterator(m_runtime.path() / "tidewell"))
            left.push_back(entry.path().extension());
        EXPECT_THAT(left, ElementsAre(".lock"));
    }

    std::vector<pid_t> processes() const { return processesWith(m_runtime.path()); }

    /// The processes that run a server.
    std::vector<pid_t> servers(const std::string& name) const
    {
        std::vector<pid_t> found = processes();
        std::erase_if(found, [&](pid_t process) { return commandOf(process) != name; });
        return found;
    }

    pid_t waitForServer(const std::string& name)
    {
        EXPECT_TRUE(becomesTrue([&] { return !servers(name).empty(); })) << name;
        return servers(name).front();
    }

    static pid_t serviceProcess() { return PrivateRuntime::servicePid(); }

    auto intoMailbox()
    {
        return [this](const Value& envelope) {
            std::optional<Error> error;
            const auto payload = TDWResponseUnwrap(envelope, error);
            answers.put(payload ? payload->debugDescription() : error->failureReason());
        };
    }

    /// One request to the end; it works.
    void ask()
    {
        client->deviceListWithCompletionHandler(intoMailbox());
        EXPECT_THAT(*answers.take(), HasSubstr("Devices"));
    }

    void askForBattery() { client->deviceBatteryWithUDID(kPhone, 1, intoMailbox()); }

    void subscribe()
    {
        client->subscribeToDeviceEventsWithEventHandler(
            [this](const std::string& event) { events.put(event); },
            [this](const std::optional<Error>& error) {
                answers.put(error ? error->failureReason() : "subscribed");
            });
        EXPECT_EQ(answers.take(), "subscribed");
        EXPECT_EQ(events.take(), kPhoneArrives);
    }

    void slowDown(const std::string& fault) const
    {
        m_devices.inject(R"("at":"lockdown","domain":"com.apple.mobile.battery","fault":)" + fault);
    }

    /// A connection of its own to the service.
    struct Proxy {
        Proxy() { connection->activate({}); }
        Proxy(const Proxy&) = delete;
        Proxy& operator=(const Proxy&) = delete;
        ~Proxy() { connection->invalidate(); }

        const std::shared_ptr<Connection> connection = Connection::toService(tidewellService());
        ServiceProxy proxy { connection, nullptr };
    };

    static FileHandle connectToSocket() { return *connectToLocalSocket(socketPath()); }
    static fs::path socketPath() { return *serviceSocketPath(tidewellService()); }

    /// The service with so many descriptors at most; it writes a byte when it is ready.
    static RunningTool limitedService(int descriptors)
    {
        return RunningTool({ "-c",
                               "ulimit -n " + std::to_string(descriptors) + "; exec "
                                   + std::string(kService) + " --on-demand" },
            std::nullopt, "/bin/sh");
    }
    static RunningTool readyLimitedService(int descriptors)
    {
        RunningTool service = limitedService(descriptors);
        char byte = 0;
        EXPECT_EQ(read(service.pipe.reader.descriptor(), &byte, 1), 1);
        return service;
    }

    const SimulatedDevices m_devices;
    const PrivateRuntime m_runtime;
    const Queue m_callbacks = Queue::serial("callbacks");
    const std::shared_ptr<TidewellServiceClient> client
        = TidewellServiceClient::initWithQueue(m_callbacks);
    Mailbox<std::string> answers;
    Mailbox<std::string> events;
};

} // namespace

TEST_F(ServiceTest, SaysWhyARequestHasNoAnswer)
{
    ask();
    Proxy service;
    const std::tuple<const char*, double, const char*> rows[] = {
        { "../libexec/tidewell/tdw_list", 10, "There is no server" },
        { "tdw_events", 10, "There is no server" },
        { "", 10, "There is no server" },
        { "tdw_list", -1, "seconds" },
        { "tdw_list", std::nan(""), "seconds" },
        { "tdw_test", 10, "Server executable not found for \"tdw_test\"" },
    };
    for (const auto& [server, timeout, reason] : rows) {
        service.proxy.invokeServer(server, {}, timeout, intoMailbox());
        EXPECT_THAT(*answers.take(), HasSubstr(reason)) << server;
    }
    slowDown(R"("hang")");
    service.proxy.invokeServer("tdw_battery", { kPhone, "1" }, 0.0, intoMailbox());
    EXPECT_EQ(answers.take(), "Server timeout.");
    EXPECT_THAT(servers("tdw_battery"), IsEmpty());
    askForBattery();
    kill(waitForServer("tdw_battery"), SIGKILL);
    EXPECT_EQ(answers.take(), "Server tdw_battery terminated unexpectedly with code 9");
}

TEST_F(ServiceTest, IsReachedThroughAnEndpointToo)
{
    Mailbox<Endpoint> endpoints;
    for (int i = 0; i < 2; ++i)
        client->getServiceEndpointWithCompletionHandler(
            [&](const std::optional<Endpoint>& endpoint, const std::optional<Error>&) {
                endpoints.put(*endpoint);
            });
    const Endpoint endpoint = *endpoints.take();
    EXPECT_EQ(endpoints.take(), endpoint);
    struct stat status { };
    ASSERT_EQ(stat(endpoint.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);

    const auto other = TidewellServiceClient::initWithEndpoint(endpoint, m_callbacks);
    other->deviceListWithCompletionHandler(intoMailbox());
    EXPECT_THAT(*answers.take(), HasSubstr(kPhone));
    other->invalidateTerminatingService(false);
}

TEST_F(ServiceTest, IsReplacedWhenItIsKilledDuringARequest)
{
    slowDown(R"("delay","milliseconds":1000,"count":1)");
    askForBattery();
    const pid_t server = waitForServer("tdw_battery");
    killAndWait(serviceProcess());
    EXPECT_THAT(*answers.take(), HasSubstr("interrupted"));
    ask();
    // The server's output has no reader any more; it ends all the same.
    EXPECT_TRUE(becomesTrue([&] { return commandOf(server) != "tdw_battery"; }));
}

TEST_F(ServiceTest, IsReplacedWhenItIsKilledDuringASubscription)
{
    subscribe();
    askForBattery();
    (void)answers.take();
    for (int i = 0; i < 3; ++i) {
        killAndWait(serviceProcess());
        m_devices.attach(kTablet);
        // The next request renews the subscription, which tells of all devices again.
        EXPECT_TRUE(becomesTrue([&] {
            client->deviceListWithCompletionHandler(intoMailbox());
            return answers.take()->find("Devices") != std::string::npos;
        }));
        std::vector<std::string> seen { *events.take(), *events.take() };
        EXPECT_THAT(seen, testing::UnorderedElementsAre(kPhoneArrives, kTabletArrives));
        m_devices.detach(kTablet);
        EXPECT_EQ(events.take(), std::string("2,1,") + kTablet);
    }
    EXPECT_TRUE(becomesTrue([&] { return servers("tdw_events").size() == 1; }))
        << "an events server without its service ends";
}

TEST_F(ServiceTest, IsMetAgainByARequestRightAfterItWasTerminated)
{
    // An application may ignore the ends of its children; starting a service is one.
    const auto previous = signal(SIGCHLD, SIG_IGN);
    ask();
    for (int i = 0; i < 40; ++i) {
        client->invalidate();
        for (int request = 0; request < 3; ++request)
            client->deviceListWithCompletionHandler(intoMailbox());
        for (int request = 0; request < 3; ++request)
            EXPECT_THAT(*answers.take(), HasSubstr("Devices"));
    }
    (void)signal(SIGCHLD, previous);
}

TEST_F(ServiceTest, HidesTheEndsOfEventsServersWithoutAStorm)
{
    subscribe();
    const auto start = std::chrono::steady_clock::now();
    constexpr int kKills = 4;
    for (int i = 0; i < kKills; ++i)
        killAndWait(waitForServer("tdw_events"));
    // What happens while no server watches is told afterwards, and nothing else.
    m_devices.detach(kPhone);
    EXPECT_EQ(events.take(), "2,1," + kPhone);
    m_devices.attach(kTablet);
    EXPECT_EQ(events.take(), kTabletArrives);
    // Each pause is twice the one before.
    EXPECT_GE(std::chrono::steady_clock::now() - start, (1 + 2 + 4 + 8) * 100ms);
    EXPECT_TRUE(events.isEmpty());
}

TEST_F(ServiceTest, KeepsOneEventsServerForAllSubscribersAndNoneForNone)
{
    subscribe();
    {
        const auto other = TidewellServiceClient::initWithClient(*client);
        Mailbox<std::string> others;
        other->subscribeToDeviceEventsWithEventHandler(
            [&](const std::string& event) { others.put(event); },
            [](const std::optional<Error>& error) { EXPECT_FALSE(error); });
        EXPECT_EQ(others.take(), kPhoneArrives) << "what is there already";
        m_devices.attach(kTablet);
        EXPECT_EQ(others.take(), kTabletArrives);
        EXPECT_EQ(events.take(), kTabletArrives);
        EXPECT_EQ(servers("tdw_events").size(), 1u);
        other->invalidateTerminatingService(false);
    }
    client->invalidateTerminatingService(false);
    EXPECT_TRUE(becomesTrue([&] { return servers("tdw_events").empty(); }));
}

TEST_F(ServiceTest, OutlivesClientsThatVanishOrSendNonsense)
{
    askForBattery(); // So that all threads are there.
    (void)answers.take();
    const pid_t service = serviceProcess();
    const auto before = resourcesOf(service);
    const auto frame = [](const Message& message) {
        return textOf(*encodeMessage(message));
    };
    std::string requests;
    for (std::uint64_t i = 1; i <= 50; ++i)
        requests += frame({ "invokeServer:withArguments:timeout:reply:", i,
            { "tdw_battery", Array { kPhone, "1" }, 10.0 } });
    const std::string unknown = frame({ "x", 0, {} });

    // More than a socket holds of what is answered by nothing.
    std::string flood;
    while (flood.size() < std::size_t { 1 } << 20)
        flood += unknown;
    for (const std::string& bytes :
        { std::string("garbage that is no frame at all"), std::string("\xff\xff\xff\xff", 4),
            std::string(4, '\0'), requests.substr(0, 150), requests, unknown, flood })
        EXPECT_TRUE(connectToSocket().write(bytesOf(bytes)));
    ask();
    EXPECT_TRUE(becomesTrue([&] {
        const auto [descriptors, threads] = resourcesOf(service);
        return descriptors <= before.first && threads <= before.second;
    })) << resourcesOf(service).first
        << " descriptors after " << before.first << ", " << resourcesOf(service).second
        << " threads after " << before.second;
    EXPECT_THAT(servers("tdw_battery"), IsEmpty());
    EXPECT_EQ(serviceProcess(), service);
}

TEST_F(ServiceTest, ServesManyClientsAtOnce)
{
    std::vector<std::shared_ptr<TidewellServiceClient>> clients;
    for (int i = 0; i < kManyClients; ++i) {
        clients.push_back(TidewellServiceClient::initWithClient(*client));
        clients.back()->deviceListWithCompletionHandler(intoMailbox());
    }
    for (std::size_t i = 0; i < clients.size(); ++i)
        EXPECT_THAT(*answers.take(), HasSubstr(kPhone));
    for (const auto& each : clients)
        each->invalidateTerminatingService(false);
    const auto pid = serviceProcess();
    EXPECT_TRUE(becomesTrue([&] { return resourcesOf(pid).first < 40; }));
}

TEST_F(ServiceTest, AnswersOthersWhateverOneClientAsksFor)
{
    slowDown(R"("hang")");
    ask();
    const pid_t service = serviceProcess();
    const auto busy = TidewellServiceClient::initWithClient(*client);
    for (int i = 0; i < 200; ++i)
        busy->deviceBatteryWithUDID(kPhone, 1, nullptr);
    ASSERT_TRUE(becomesTrue([&] { return servers("tdw_battery").size() >= 20; }));

    // Requests that are too long, asked by one that never reads, and clients that ask for nothing.
    FileHandle silent = connectToSocket();
    const Data frame = *encodeMessage({ "invokeServer:withArguments:timeout:reply:", 1,
        { "tdw_battery", Array { std::string(std::size_t { 1 } << 20, 'x') }, 10.0 } });
    for (int i = 0; i < 500; ++i)
        ASSERT_TRUE(silent.write(frame));
    rlimit limit {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit raised { limit.rlim_max, limit.rlim_max };
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    const std::size_t count = std::min<std::size_t>(4'000, limit.rlim_max - 500);
    std::vector<FileHandle> idle;
    while (idle.size() < count)
        if (auto socket = connectToLocalSocket(socketPath()))
            idle.push_back(*std::move(socket));
    EXPECT_TRUE(becomesTrue(
        [&] { return resourcesOf(service).first >= static_cast<std::ptrdiff_t>(count); }));

    const auto start = std::chrono::steady_clock::now();
    ask();
    EXPECT_LT(std::chrono::steady_clock::now() - start, kAnswerBound);
    const std::string statm = contentsOf(directoryOf(service) / "statm");
    const std::size_t resident = std::stoul(statm.substr(statm.find(' ')));
    EXPECT_LT(resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), kResidentBound);
    idle.clear();
    setrlimit(RLIMIT_NOFILE, &limit);
    busy->invalidateTerminatingService(false);
}

TEST_F(ServiceTest, StartsCleanWhateverItsStarterHas)
{
    const auto starter = runToEnd("/bin/sh",
        { "-c",
            "ulimit -S -n 77; ulimit -S -t 1000; umask 0; export LD_PRELOAD= LEAKED=1; "
            "exec taskset 1 \"$0\" list",
            kTool });
    EXPECT_EQ(starter.termination, Termination {});
    subscribe();
    const fs::path service = directoryOf(serviceProcess());
    const fs::path server = directoryOf(waitForServer("tdw_events"));
    for (const fs::path& process : { service, server }) {
        // Only root may read that of a server.
        if (process == service || geteuid() == 0) {
            const std::string environment = contentsOf(process / "environ");
            EXPECT_THAT(environment, Not(HasSubstr("LEAKED")));
            EXPECT_THAT(environment, Not(HasSubstr("LD_PRELOAD")));
            EXPECT_THAT(environment, HasSubstr("XDG_RUNTIME_DIR"));
        }
        EXPECT_THAT(contentsOf(process / "status"), HasSubstr("Umask:\t0077"));
        EXPECT_THAT(
            contentsOf(process / "limits"), testing::ContainsRegex("Max cpu time  *unlimited"));
    }
    rlimit limit {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const std::string files = "Max open files  *";
    EXPECT_THAT(contentsOf(service / "limits"),
        testing::ContainsRegex(files + std::to_string(limit.rlim_max)));
    EXPECT_THAT(contentsOf(server / "limits"), testing::ContainsRegex(files + "1024"));
    EXPECT_EQ(contentsOf(service / "comm"), "tidewell-servic\n") << "as much as the system keeps";
}

TEST_F(ServiceTest, ServesAllWithFewDescriptorsOrSaysThatItCannot)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs more than the test leaves";
#endif
    for (const int descriptors : { 4, 6, 8, 10 }) {
        const auto run = limitedService(descriptors).finish();
        EXPECT_EQ(run.termination, (Termination { 1, false })) << descriptors;
        EXPECT_THAT(
            run.output, AllOf(HasSubstr("Too many open files"), Not(HasSubstr("terminate called"))))
            << descriptors;
    }
    RunningTool service = readyLimitedService(64);
    std::vector<std::shared_ptr<TidewellServiceClient>> clients { client };
    for (int i = 0; i < 9; ++i)
        clients.push_back(TidewellServiceClient::initWithClient(*client));
    for (int i = 0; i < 100; ++i)
        clients[static_cast<std::size_t>(i) % clients.size()]->deviceListWithCompletionHandler(
            intoMailbox());
    for (int i = 0; i < 100; ++i)
        EXPECT_THAT(*answers.take(), HasSubstr("Devices"));
    for (std::size_t i = 1; i < clients.size(); ++i)
        clients[i]->invalidateTerminatingService(false);
    client->invalidate();
    EXPECT_EQ(service.process->waitUntilExit(30s), Termination {});
}

TEST_F(ServiceTest, ServesOneClientOfManyThreadsOnTheApplicationsOwnLoop)
{
    Mailbox<std::function<void()>> loop;
    const auto shared = TidewellServiceClient::initWithQueue(
        CallbackQueue([&loop](std::function<void()> block) { loop.put(std::move(block)); }));
    constexpr int kThreads = 8;
    constexpr int kRequests = kRequestsAtOnce / kThreads;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            for (int j = 0; j < kRequests; ++j)
                shared->deviceListWithCompletionHandler(intoMailbox());
        });
    for (int i = 0; i < kThreads * kRequests; ++i) {
        EXPECT_TRUE(answers.isEmpty()) << "nothing runs but on the loop";
        (*loop.take())();
        EXPECT_THAT(*answers.take(), HasSubstr(kPhone));
    }
    for (std::thread& thread : threads)
        thread.join();
    shared->invalidateTerminatingService(false);
}

TEST_F(ServiceTest, RefusesAPeerOfAnotherUser)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can act for another user";
    ask();
    const fs::path path = socketPath();
    for (fs::path open = path; open != m_devices.directory().parent_path();
         open = open.parent_path())
        fs::permissions(open, fs::perms(0777));
    // The system takes the thread's user for the peer's.
    std::thread([&] {
        ASSERT_EQ(syscall(SYS_setresuid, -1, 65534, -1), 0);
        FileHandle socket = *connectToLocalSocket(path);
        EXPECT_TRUE(socket.readToEnd()->empty()) << "closed without a word";
    }).join();
    fs::permissions(path.parent_path(), fs::perms(0700));
    fs::permissions(m_runtime.path(), fs::perms(0700));
}

TEST_F(ServiceTest, IsStartedOnceHoweverManyAskForIt)
{
    for (int round = 0; round < 30; ++round) {
        {
            const auto race = [] {
                EXPECT_EQ(tidewell({ "list" }).termination, Termination {});
            };
            const std::jthread one(race);
            const std::jthread other(race);
        }
        EXPECT_EQ(servers("tidewell-service").size(), 1u) << "round " << round;
        ask();
        client->invalidate();
        EXPECT_TRUE(becomesTrue([&] { return processes().empty(); }));
    }
}

TEST_F(ServiceTest, LeavesWhenItsNameIsGoneOrNoClientComes)
{
    ask();
    client->invalidateTerminatingService(false);
    EXPECT_TRUE(becomesTrue([] { return serviceProcess() != 0; })) << "it stays for a while";
    fs::remove_all(m_runtime.path() / "tidewell");
    EXPECT_TRUE(becomesTrue([&] { return processes().empty(); }));

    EXPECT_EQ(runToEnd(kService, { "--idle", "0" }).termination, Termination {});
}

TEST_F(ServiceTest, ReportsOnceThatItRunsOutOfDescriptors)
{
    RunningTool service = readyLimitedService(60);

    Mailbox<std::int64_t> uptimes;
    client->setServiceReachedResourceLimit(
        [&](const Value& uptime) { uptimes.put(*uptime.asInt64()); });
    ask();
    std::vector<FileHandle> crowd;
    for (int i = 0; i < 40; ++i)
        crowd.push_back(connectToSocket());
    // It looks once in a second at most, when something happens.
    EXPECT_TRUE(becomesTrue([&] {
        ask();
        return !uptimes.isEmpty();
    }));
    EXPECT_GE(*uptimes.take(), 0);
    crowd.clear();
    ask();
    EXPECT_TRUE(uptimes.isEmpty());
    client->invalidate();
    EXPECT_EQ(service.process->waitUntilExit(30s), Termination {});
}
