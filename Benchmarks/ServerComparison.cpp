// Whole server processes against programs of libimobiledevice that tell the same, on the same
// simulated devices, in turns:
//
//     build/release/bin/tdwsimulator run -- build/release/benchmarks/ServerComparison [RUNS]
//     build/release/bin/tdwsimulator run --scenario Benchmarks/watches.json --
//         build/release/benchmarks/ServerComparison watches [RUNS]
//
// The devices get a processor of their own: where the scheduler runs the simulator in the client's
// turn, its answer is there before the client looks, which no device behind a cable can do.
//
// Medians of wall and processor time, and their ratios beside what they should stay under. It only
// reports: a loaded machine gives other figures.

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Command = std::vector<std::string>;

/// How several commands are run.
enum class Order { InTurn, AtOnce };

struct Comparison {
    const char* name;
    std::vector<Command> ours;
    std::vector<Command> theirs;
    double wallLimit;
    double processorLimit;
    Order ourOrder = Order::InTurn;
};

/// Milliseconds.
struct Cost {
    double wall = 0;
    double processor = 0;
};

void pin(pid_t process, std::size_t processor)
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(processor, &processors);
    if (sched_setaffinity(process, sizeof processors, &processors) != 0)
        std::perror("Cannot give the devices a processor of their own");
}

double milliseconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

using Clock = std::chrono::steady_clock;

[[noreturn]] void giveUp(const Command& command)
{
    std::fprintf(stderr, "%s failed: are the simulated devices around this?\n", command[0].c_str());
    std::exit(EXIT_FAILURE);
}

pid_t start(const Command& command)
{
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int failure
        = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0)
        giveUp(command);
    return child;
}

/// Waits for the end and returns the processor time.
double finish(pid_t child, const Command& command)
{
    int status = 0;
    rusage usage {};
    if (wait4(child, &status, 0, &usage) < 0 || status != 0)
        giveUp(command);
    return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

Cost costOf(const std::vector<Command>& commands, Order order)
{
    const auto begin = Clock::now();
    Cost cost;
    std::vector<pid_t> children;
    for (const Command& command : commands) {
        children.push_back(start(command));
        if (order == Order::InTurn)
            cost.processor += finish(children.back(), command);
    }
    if (order == Order::AtOnce) {
        for (std::size_t i = 0; i < children.size(); ++i)
            cost.processor += finish(children[i], commands[i]);
    }
    cost.wall = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    return cost;
}

double median(const std::vector<Cost>& costs, double Cost::*part)
{
    std::vector<double> values;
    for (const Cost& cost : costs)
        values.push_back(cost.*part);
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void report(const char* name, const char* what, double ours, double theirs, double limit)
{
    std::printf("%-12s %-9s %8.2f ms %10.2f ms %7.2f   (at most %.2f)\n", name, what, ours, theirs,
        ours / theirs, limit);
}

void compare(const Comparison& comparison, int runs)
{
    std::vector<Cost> ours;
    std::vector<Cost> theirs;
    for (int run = 0; run < runs; ++run) {
        ours.push_back(costOf(comparison.ours, comparison.ourOrder));
        theirs.push_back(costOf(comparison.theirs, Order::InTurn));
    }
    report(comparison.name, "wall", median(ours, &Cost::wall), median(theirs, &Cost::wall),
        comparison.wallLimit);
    report(comparison.name, "processor", median(ours, &Cost::processor),
        median(theirs, &Cost::processor), comparison.processorLimit);
}

std::string serverPath(const char* name)
{
    return std::string(TIDEWELL_BUILD_DIR) + "/libexec/tidewell/" + name;
}

/// The trusted phone of the default household, which is also the first of the two with watches.
const std::string kPhone = "00008130-00FACADE0010001C";
const std::string kPhoneWithSlowWatches = "00008110-00FACADE0012002E";

std::vector<Comparison> deviceComparisons()
{
    const Command everything { "ideviceinfo", "-u", kPhone };
    const Command battery { "ideviceinfo", "-u", kPhone, "-q", "com.apple.mobile.battery" };
    const Command wireless { "ideviceinfo", "-u", kPhone, "-q",
        "com.apple.mobile.wireless_lockdown" };
    return {
        { "tdw_list", { { serverPath("tdw_list") } }, { { "idevice_id", "-l" } }, 1.15, 1.15 },
        { "tdw_battery", { { serverPath("tdw_battery"), kPhone } }, { battery }, 0.30, 1.15 },
        { "tdw_info", { { serverPath("tdw_info"), kPhone, "1" } },
            { everything, battery, wireless }, 0.15, 0.45 },
    };
}

/// The same watches of a phone, asked by the server and by the loop.
Comparison watchComparison(const char* name, const Command& watches)
{
    Command ours { serverPath("tdw_companion"), kPhone, "1" };
    Command theirs { std::string(TIDEWELL_BUILD_DIR) + "/benchmarks/CompanionLoop", kPhone };
    ours.insert(ours.end(), watches.begin(), watches.end());
    theirs.insert(theirs.end(), watches.begin(), watches.end());
    return { name, { ours }, { theirs }, 0.30, 1.15 };
}

std::vector<Comparison> watchComparisons()
{
    const Command phone { serverPath("tdw_companion"), kPhone, "1" };
    const Command slow { serverPath("tdw_companion"), kPhoneWithSlowWatches, "1" };
    return {
        watchComparison("one watch", { "watch-1" }),
        watchComparison("three", { "watch-1", "watch-2", "watch-3" }),
        { "two phones", { phone, slow }, { slow }, 1.10, 2.20, Order::AtOnce },
    };
}

} // namespace

int main(int argc, char** argv)
{
    const bool isAboutWatches = argc > 1 && argv[1] == std::string_view("watches");
    const char* count = argc > (isAboutWatches ? 2 : 1) ? argv[argc - 1] : "40";
    const int runs = std::max(1, std::atoi(count));
    // The simulator is this program's parent, and the measured programs are its children.
    pin(getppid(), 0);
    pin(getpid(), 1);
    std::printf("%-12s %-9s %11s %13s %7s   (medians of %d runs)\n", "server", "time", "ours",
        "theirs", "ratio", runs);
    for (const Comparison& comparison : isAboutWatches ? watchComparisons() : deviceComparisons())
        compare(comparison, runs);
    return EXIT_SUCCESS;
}
