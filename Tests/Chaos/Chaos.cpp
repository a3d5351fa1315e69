// Requests of every kind from many clients, while the service, its servers and the multiplexer are
// killed, stopped and garbled, and devices come and go. In the end every request has had exactly
// one answer in its time, what listeners know is what is there, and nothing is left.
//
//     Chaos SECONDS [SEED]

#include "Client/DeviceMonitor.h"
#include "Client/ServiceMessages.h"
#include "Client/TidewellServiceClient.h"
#include "EndToEnd/Processes.h"
#include "EndToEnd/SimulatedDevices.h"
#include "Platform/Messages/ServiceStart.h"
#include "Platform/System/LocalSocket.h"
#include "ProcessResources.h"
#include "Support/Testing.h"

#include <atomic>
#include <cstdio>
#include <list>
#include <random>
#include <set>

using namespace tdw;
using namespace std::chrono_literals;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// Longer than any request's time, the start of a service and the pauses of this program together.
constexpr auto kAnswerBound = 90s;
constexpr std::size_t kClients = 8;
constexpr std::size_t kRequestsOfClient = 4;

const std::vector<std::string> kDevices { "00008130-00FACADE0010001C", "00008130-00FACADE0020001C",
    "00008130-00FACADE0030001C" };

std::string scenario()
{
    std::string devices;
    for (const std::string& udid : kDevices)
        devices += (devices.empty() ? "" : ",") + (R"({"udid":")" + udid + R"("})");
    return R"({"devices":[)" + devices + "]}";
}

/// One request and what came of it.
struct Asked {
    std::string name;
    Clock::time_point start = Clock::now();
    std::atomic<int> answers = 0;
    std::atomic<Clock::rep> duration = 0;
};

class Chaos {
public:
    explicit Chaos(unsigned seed)
        : m_random(seed)
        , m_devices(scenario())
        , m_runtime(m_devices.directory() / "runtime")
    {
        fs::create_directory(m_runtime);
        fs::permissions(m_runtime, fs::perms(0700));
        (void)setenv("XDG_RUNTIME_DIR", m_runtime.c_str(), 1);
        for (const std::string& udid : kDevices)
            m_present.insert({ 1, udid });
        for (std::size_t i = 0; i < kClients; ++i)
            m_clients.push_back(TidewellServiceClient::initWithQueue(m_queue));
        for (int i = 0; i < 3; ++i)
            m_monitors.push_back(DeviceMonitor::start(m_queue, {}));
    }

    void run(std::chrono::seconds duration)
    {
        const auto end = Clock::now() + duration;
        while (Clock::now() < end) {
            askWhereFree();
            disturb();
            std::this_thread::sleep_for(std::chrono::milliseconds(number(10, 300)));
        }
    }

    /// @return how many things are not as they should be
    int settle()
    {
        for (const pid_t process : m_stopped)
            (void)kill(process, SIGCONT);
        m_devices.clearFaults();
        check("every request has exactly one answer in its time",
            becomesTrue(
                [&] {
                    return std::ranges::all_of(
                        m_asked, [](const Asked& asked) { return asked.answers > 0; });
                },
                kAnswerBound));
        for (const Asked& asked : m_asked) {
            const Clock::duration duration(asked.duration.load());
            if (asked.answers != 1 || duration > kAnswerBound)
                check(asked.name + " had " + std::to_string(asked.answers) + " answers, after "
                        + std::to_string(duration / 1s) + " seconds",
                    false);
        }
        check("listeners know what is there", becomesTrue([&] {
            return std::ranges::all_of(m_monitors,
                [&](const DeviceMonitor& monitor) { return monitor.devices() == m_present; });
        }));
        m_monitors.clear();
        for (const auto& client : m_clients)
            client->invalidate();
        m_clients.clear();
        check("no process is left",
            becomesTrue([&] { return processesWith(m_runtime.string()).empty(); }));
        for (const auto& entry : fs::directory_iterator(m_runtime / "tidewell"))
            if (entry.path().extension() != ".lock")
                check("left: " + entry.path().string(), false);
        (void)std::printf("%zu requests, %d disturbances\n", m_asked.size(), m_disturbances);
        return m_failures;
    }

private:
    int number(int first, int last) { return std::uniform_int_distribution(first, last)(m_random); }
    const std::string& anyDevice()
    {
        return kDevices[static_cast<std::size_t>(number(0, static_cast<int>(kDevices.size()) - 1))];
    }

    void check(const std::string& what, bool holds)
    {
        if (holds)
            return;
        ++m_failures;
        (void)std::fprintf(stderr, "Failed: %s\n", what.c_str());
    }

    void askWhereFree()
    {
        std::vector<std::size_t> busy(m_clients.size());
        for (const auto& [client, asked] : m_outstanding)
            busy[client] += asked->answers == 0 ? 1 : 0;
        std::erase_if(m_outstanding, [](const auto& entry) { return entry.second->answers > 0; });
        for (std::size_t i = 0; i < m_clients.size(); ++i) {
            for (; busy[i] < kRequestsOfClient; ++busy[i])
                ask(i);
        }
    }

    void ask(std::size_t index)
    {
        TidewellServiceClient& client = *m_clients[index];
        Asked& asked = m_asked.emplace_back();
        m_outstanding.emplace_back(index, &asked);
        const auto done = [&asked](const Value&) {
            asked.duration = (Clock::now() - asked.start).count();
            ++asked.answers;
        };
        const std::string& udid = anyDevice();
        const bool isOn = number(0, 1) == 1;
        const std::pair<const char*, std::function<void()>> kinds[] = {
            { "list",
                [&] {
                    client.deviceListWithCompletionHandler(done);
                } },
            { "info",
                [&] {
                    client.deviceInfoWithUDID(udid, isOn, 0, done);
                } },
            { "battery",
                [&] {
                    client.deviceBatteryWithUDID(udid, 0, done);
                } },
            { "watches",
                [&] {
                    client.companionDevicesForDeviceWithUDID(udid, 0, {}, done);
                } },
            { "their batteries",
                [&] {
                    client.companionBatteriesForDeviceWithUDID(udid, 0, {}, done);
                } },
            { "wireless",
                [&] {
                    client.setWirelessEnabled(isOn, udid, done);
                } },
            { "pair",
                [&] {
                    client.pairDeviceWithUDID(udid, done);
                } },
            { "wallpaper",
                [&] {
                    client.getWallpaperPreviewImageForDeviceWithUDID(udid, 0, 0, 200, done);
                } },
        };
        const auto& [name, request] = kinds[number(0, static_cast<int>(std::size(kinds)) - 1)];
        asked.name = name;
        request();
    }

    void disturb()
    {
        ++m_disturbances;
        for (const pid_t process : m_stopped)
            (void)kill(process, SIGCONT);
        m_stopped.clear();
        switch (number(0, 6)) {
        case 0:
            return garbleService();
        case 1:
        case 2:
            return signalSomeProcess();
        case 3:
            return injectFault();
        case 4:
            return m_devices.clearFaults();
        default:
            return moveDevice();
        }
    }

    /// The service, a server or the events server: what runs at that moment.
    void signalSomeProcess()
    {
        const auto processes = processesWith(m_runtime.string());
        if (processes.empty())
            return;
        const pid_t process = processes[static_cast<std::size_t>(
            number(0, static_cast<int>(processes.size()) - 1))];
        const bool stops = number(0, 1) == 1;
        (void)kill(process, stops ? SIGSTOP : SIGKILL);
        if (stops)
            m_stopped.push_back(process);
    }

    void garbleService()
    {
        const auto path = serviceSocketPath(tidewellService());
        auto socket = path ? connectToLocalSocket(*path) : Result<FileHandle>(path.error());
        std::string bytes(static_cast<std::size_t>(number(1, 5000)), '\0');
        std::ranges::generate(bytes, [&] { return static_cast<char>(number(-128, 127)); });
        // What a service does not take at once may stay: it may be a stopped one.
        if (socket)
            (void)::send(
                socket->descriptor(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }

    void injectFault()
    {
        static constexpr const char* kFaults[] = {
            R"("at":"mux","fault":"absent")",
            R"("at":"mux","fault":"garbage","count":2)",
            R"("at":"mux","fault":"drop","count":2)",
            R"("at":"mux","fault":"delay","milliseconds":500,"count":3)",
            R"("at":"lockdown","fault":"garbage","count":2)",
            R"("at":"lockdown","fault":"hang","count":1)",
            R"("at":"lockdown","fault":"truncate","count":2)",
            R"("at":"tls","fault":"drop","count":2)",
        };
        m_devices.inject(kFaults[number(0, static_cast<int>(std::size(kFaults)) - 1)]);
    }

    void moveDevice()
    {
        const DevicePath path { 1, anyDevice() };
        const bool isThere = m_present.contains(path);
        if (isThere) {
            m_devices.detach(path.udid);
            m_present.erase(path);
        } else {
            m_devices.attach(path.udid);
            m_present.insert(path);
        }
    }

    std::mt19937 m_random;
    const SimulatedDevices m_devices;
    const fs::path m_runtime;
    const Queue m_queue = Queue::serial("callbacks");
    std::set<DevicePath> m_present;
    std::vector<std::shared_ptr<TidewellServiceClient>> m_clients;
    std::vector<DeviceMonitor> m_monitors;
    std::list<Asked> m_asked;
    std::vector<std::pair<std::size_t, const Asked*>> m_outstanding;
    std::vector<pid_t> m_stopped;
    int m_disturbances = 0;
    int m_failures = 0;
};

} // namespace

int main(int count, char** arguments)
{
    (void)std::signal(SIGPIPE, SIG_IGN);
    const std::chrono::seconds duration(count > 1 ? std::atol(arguments[1]) : 60);
    const unsigned seed = count > 2 ? static_cast<unsigned>(std::strtoul(arguments[2], nullptr, 10))
                                    : std::random_device()();
    (void)std::printf(
        "Chaos for %ld seconds, seed %u\n", static_cast<long>(duration.count()), seed);
    (void)std::fflush(stdout);
    const auto before = ProcessResources::now();
    int failures = 0;
    {
        Chaos chaos(seed);
        chaos.run(duration);
        failures = chaos.settle();
    }
    if (!ProcessResources::settleWithin(before)) {
        (void)std::fprintf(stderr, "Failed: descriptors, threads or children are left\n");
        ++failures;
    }
    (void)std::printf("%s\n", failures == 0 ? "Nothing was lost." : "Something was lost.");
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
