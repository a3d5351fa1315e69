// What the service costs on top of the servers, how soon events arrive, and what many requests at
// once cost:
//
//     build/release/benchmarks/ServiceComparison scenario > crowd.json
//     build/release/bin/tdwsimulator run --scenario crowd.json --
//         build/release/benchmarks/ServiceComparison [RUNS]
//
// It only reports: a loaded machine gives other figures.

#include "Client/ServiceMessages.h"
#include "Client/TidewellServiceClient.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Messages/ServiceStart.h"
#include "Platform/System/LocalSocket.h"
#include "Platform/System/Process.h"
#include "Platform/Values/PropertyList.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <numeric>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace tdw;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kSlowDevices = 64;
constexpr int kBurst = 1000;
const std::string kPhone = "00008130-00FACADE0001001C";

std::string udid(char kind, int number)
{
    std::array<char, 64> text {};
    (void)std::snprintf(text.data(), text.size(), "f1d0%c%035d", kind, number);
    return text.data();
}

/// A phone; devices that answer late; devices that are attached only when told to.
void writeScenario()
{
    std::string devices
        = R"({ "udid": ")" + kPhone + R"(", "battery": {"BatteryCurrentCapacity": 80} })";
    std::string faults;
    for (int i = 0; i < kSlowDevices; ++i) {
        devices += ",\n{ \"udid\": \"" + udid('a', i) + "\" }";
        faults += std::string(i == 0 ? "" : ",\n")
            + R"({ "at": "lockdown", "fault": "delay", "milliseconds": 20, "device": ")"
            + udid('a', i) + "\" }";
    }
    for (int i = 0; i <= kBurst; ++i)
        devices += ",\n{ \"udid\": \"" + udid('b', i) + "\", \"connections\": [] }";
    std::printf(
        "{ \"devices\": [\n%s ],\n\"faults\": [\n%s ] }\n", devices.c_str(), faults.c_str());
}

[[noreturn]] void giveUp(const std::string& reason)
{
    std::fprintf(stderr, "ServiceComparison: %s\n", reason.c_str());
    std::exit(EXIT_FAILURE);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

double milliseconds(Clock::duration duration)
{
    return Milliseconds(duration).count();
}

double timed(const std::function<void()>& work)
{
    const auto start = Clock::now();
    work();
    return milliseconds(Clock::now() - start);
}

void runServer(const std::string& name, std::vector<std::string> arguments)
{
    const FileHandle null(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    LaunchOptions launch;
    launch.executable = std::string(TIDEWELL_BUILD_DIR) + "/libexec/tidewell/" + name;
    launch.arguments = std::move(arguments);
    launch.standardOutput = null.descriptor();
    auto server = Process::launch(launch);
    if (!server || server->waitUntilExit() != Termination {})
        giveUp(name + " failed: are the simulated devices around this?");
}

/// Waits until something that was asked for has come that many times.
class Countdown {
public:
    explicit Countdown(int count)
        : m_left(count)
    {
    }
    void arrive()
    {
        const std::lock_guard lock(m_mutex);
        if (--m_left <= 0)
            m_done.notify_all();
    }
    void wait()
    {
        std::unique_lock lock(m_mutex);
        if (!m_done.wait_for(lock, 60s, [this] { return m_left <= 0; }))
            giveUp(std::to_string(m_left) + " did not come");
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_done;
    int m_left;
};

TidewellServiceClient::CompletionHandler counting(Countdown& countdown)
{
    return [&countdown](const Value& envelope) {
        std::optional<Error> error;
        if (!TDWResponseUnwrap(envelope, error))
            giveUp(error->failureReason());
        countdown.arrive();
    };
}

void compareRequests(TidewellServiceClient& client, int runs)
{
    std::vector<double> list;
    std::vector<double> listThroughService;
    std::vector<double> battery;
    std::vector<double> batteryThroughService;
    for (int run = 0; run < runs; ++run) {
        list.push_back(timed([] { runServer("tdw_list", {}); }));
        listThroughService.push_back(timed([&] {
            Countdown done(1);
            client.deviceListWithCompletionHandler(counting(done));
            done.wait();
        }));
        battery.push_back(timed([] { runServer("tdw_battery", { kPhone, "1" }); }));
        batteryThroughService.push_back(timed([&] {
            Countdown done(1);
            client.deviceBatteryWithUDID(kPhone, 1, counting(done));
            done.wait();
        }));
    }
    std::printf("list:    %.2f ms through the service, %.2f ms alone: %.2f ms more (at most 2)\n",
        median(listThroughService), median(list), median(listThroughService) - median(list));
    std::printf("battery: %.2f ms through the service, %.2f ms alone: %.2f of it (at most 1.15)\n",
        median(batteryThroughService), median(battery),
        median(batteryThroughService) / median(battery));
}

std::string environmentVariable(const char* name, std::string_view prefix)
{
    const char* value = std::getenv(name);
    if (!value || !std::string_view(value).starts_with(prefix))
        giveUp(std::string(name) + " is not set: are the simulated devices around this?");
    return value + prefix.size();
}

/// When things came, by what they are called.
class Arrivals {
public:
    void add(const std::string& name)
    {
        const auto now = Clock::now();
        const std::lock_guard lock(m_mutex);
        if (m_times.emplace(name, now).second)
            m_changed.notify_all();
    }
    Clock::time_point of(const std::string& name)
    {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, 60s, [&] { return m_times.contains(name); }))
            giveUp(name + " did not come");
        return m_times.at(name);
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::string, Clock::time_point> m_times;
};

/// Listens to the multiplexer beside the events server, to know when it notified its listeners.
void listenToMultiplexer(FileHandle socket, Arrivals& attached)
{
    constexpr std::string_view kListen
        = R"(<plist version="1.0"><dict><key>MessageType</key><string>Listen</string></dict></plist>)";
    const std::array<std::uint32_t, 4> header { static_cast<std::uint32_t>(16 + kListen.size()), 1,
        8, 1 };
    if (!socket.write(std::as_bytes(std::span(header)))
        || !socket.write(std::as_bytes(std::span(kListen))))
        giveUp("cannot listen to the multiplexer");
    while (true) {
        std::array<std::uint32_t, 4> frame {};
        if (recv(socket.descriptor(), frame.data(), sizeof frame, MSG_WAITALL) != sizeof frame)
            return;
        Data payload(frame[0] - sizeof frame);
        if (recv(socket.descriptor(), payload.data(), payload.size(), MSG_WAITALL)
            != static_cast<ssize_t>(payload.size()))
            return;
        const auto message = decodePropertyList(payload);
        const Value* properties = message ? message->asDictionary()->find("Properties") : nullptr;
        const Value* serial
            = properties ? properties->asDictionary()->find("SerialNumber") : nullptr;
        if (serial)
            attached.add(*serial->asString());
    }
}

std::string attachRequest(int number)
{
    return R"({"command":"attach","connection":"usb","device":")" + udid('b', number) + "\"}\n";
}

void measureEvents(TidewellServiceClient& client)
{
    Arrivals notified;
    Arrivals handled;
    Countdown subscribed(1);
    client.subscribeToDeviceEventsWithEventHandler(
        [&](const std::string& event) {
            if (event.starts_with("1,1,"))
                handled.add(event.substr(4));
        },
        [&](const std::optional<Error>& error) {
            if (error)
                giveUp(error->failureReason());
            subscribed.arrive();
        });
    subscribed.wait();
    FileHandle socket
        = *connectToLocalSocket(environmentVariable("USBMUXD_SOCKET_ADDRESS", "UNIX:"));
    const int descriptor = socket.descriptor();
    std::thread listener(
        [&, s = std::move(socket)]() mutable { listenToMultiplexer(std::move(s), notified); });
    (void)notified.of(kPhone);
    FileHandle control = *connectToLocalSocket(environmentVariable("TDWSIMULATOR_CONTROL", ""));
    // The answers are of no interest, and must not fill the socket.
    std::thread answers([&] { (void)readDescriptorToEnd(control.descriptor()); });
    const auto attach = [&](const std::string& requests) {
        if (!control.write(std::as_bytes(std::span(requests))))
            giveUp("cannot attach devices");
    };
    const auto delay = [&](int number) {
        return milliseconds(handled.of(udid('b', number)) - notified.of(udid('b', number)));
    };

    std::vector<double> single;
    for (int i = 0; i < 100; ++i) {
        attach(attachRequest(i));
        single.push_back(delay(i));
    }
    std::string burst;
    for (int i = 100; i < kBurst; ++i)
        burst += attachRequest(i);
    for (int i = 0; i < 100; ++i)
        burst += R"({"command":"detach","connection":"usb","device":")" + udid('b', i) + "\"}\n";
    burst += attachRequest(kBurst);
    attach(burst);
    double worst = 0;
    for (int i = 100; i <= kBurst; ++i)
        worst = std::max(worst, delay(i));
    std::printf(
        "events:  median %.2f ms from the multiplexer's notification to the handler (under 2)\n",
        median(single));
    std::printf(
        "burst:   %.2f ms for the last of %d changes, %.2f ms for the latest of them (under "
        "20), none lost\n",
        delay(kBurst), kBurst + 1, worst);
    ::shutdown(descriptor, SHUT_RDWR);
    ::shutdown(control.descriptor(), SHUT_RDWR);
    listener.join();
    answers.join();
}

double processorTime(int who)
{
    rusage usage {};
    (void)getrusage(who, &usage);
    const auto part = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    };
    return part(usage.ru_utime) + part(usage.ru_stime);
}

pid_t serviceProcess()
{
    const auto socket
        = connectToService(tidewellService(), StartPolicy::Fail, [] { return false; });
    ucred peer {};
    socklen_t length = sizeof peer;
    if (!socket || getsockopt(socket->descriptor(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0)
        giveUp("there is no service");
    return peer.pid;
}

/// The processor time of a process, and where wanted of the children that it has waited for.
enum class Children { Without, With };

double processorTimeOf(pid_t process, Children children = Children::With)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(file, text);
    // The fields behind the name, which may hold anything; the first of them is the state.
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string ignored;
    for (int i = 0; i < 11; ++i)
        fields >> ignored;
    double ticks = 0;
    for (int i = 0; i < (children == Children::With ? 4 : 2); ++i) {
        double part = 0;
        fields >> part;
        ticks += part;
    }
    return ticks * 1e3 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

void compareCrowd(TidewellServiceClient& client)
{
    const double processorBefore = processorTime(RUSAGE_CHILDREN);
    std::vector<double> alone;
    for (int i = 0; i < kSlowDevices; ++i)
        alone.push_back(timed([&] { runServer("tdw_info", { udid('a', i), "1" }); }));
    const double inTurn = processorTime(RUSAGE_CHILDREN) - processorBefore;

    const pid_t service = serviceProcess();
    const double serviceBefore = processorTimeOf(service);
    const double simulatorBefore = processorTimeOf(getppid());
    const double wall = timed([&] {
        Countdown done(kSlowDevices);
        for (int i = 0; i < kSlowDevices; ++i)
            client.deviceInfoWithUDID(udid('a', i), false, 1, counting(done));
        done.wait();
    });
    const double atOnce = processorTimeOf(service) - serviceBefore;
    const double simulator = processorTimeOf(getppid()) - simulatorBefore;
    std::printf(
        "crowd:   %.0f ms of processor time for %d at once, %.0f ms in turn: %.2f of it (at "
        "most 1.1)\n",
        atOnce, kSlowDevices, inTurn, atOnce / inTurn);
    std::printf("         %.0f ms of wall time for all of them, %.0f ms for one alone, %.0f ms in "
                "turn; servers and devices need %.0f ms of %ld processors\n",
        wall, median(alone), std::accumulate(alone.begin(), alone.end(), 0.0), atOnce + simulator,
        sysconf(_SC_NPROCESSORS_ONLN));
}

void measureRest()
{
    const pid_t service = serviceProcess();
    const double before = processorTimeOf(service, Children::Without);
    const auto start = Clock::now();
    std::this_thread::sleep_until(start + 5s);
    const double used = processorTimeOf(service, Children::Without) - before;
    std::ifstream file("/proc/" + std::to_string(service) + "/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    std::printf("rest:    %.0f ms of processor time in 5 s, %.1f MiB resident (under 12)\n", used,
        resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024 / 1024);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && argv[1] == std::string_view("scenario")) {
        writeScenario();
        return EXIT_SUCCESS;
    }
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 40;
    const auto client = TidewellServiceClient::initWithQueue(Queue::serial("callbacks"));
    Countdown started(1);
    client->deviceListWithCompletionHandler(counting(started));
    started.wait();
    compareRequests(*client, runs);
    compareCrowd(*client);
    measureEvents(*client);
    client->invalidateTerminatingService(false);
    measureRest();
    return EXIT_SUCCESS;
}
