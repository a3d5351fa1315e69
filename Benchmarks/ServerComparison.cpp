// Whole server processes against the libimobiledevice tools that tell the same, on the same
// simulated device, in turns:
//
//     build/release/bin/tdwsimulator run -- build/release/benchmarks/ServerComparison [RUNS]
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
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Command = std::vector<std::string>;

struct Comparison {
    const char* name;
    Command ours;
    std::vector<Command> theirs;
    double wallLimit;
    double processorLimit;
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

Cost costOf(const Command& command)
{
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);

    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    const int failure
        = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage {};
    if (failure != 0 || wait4(child, &status, 0, &usage) < 0 || status != 0) {
        std::fprintf(stderr, "%s failed: is a simulator running around this?\n", arguments[0]);
        std::exit(EXIT_FAILURE);
    }
    const std::chrono::duration<double, std::milli> wall = std::chrono::steady_clock::now() - start;
    return { wall.count(), milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime) };
}

Cost sumOf(const std::vector<Command>& commands)
{
    Cost sum;
    for (const Command& command : commands) {
        const Cost cost = costOf(command);
        sum.wall += cost.wall;
        sum.processor += cost.processor;
    }
    return sum;
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
        ours.push_back(costOf(comparison.ours));
        theirs.push_back(sumOf(comparison.theirs));
    }
    report(comparison.name, "wall", median(ours, &Cost::wall), median(theirs, &Cost::wall),
        comparison.wallLimit);
    report(comparison.name, "processor", median(ours, &Cost::processor),
        median(theirs, &Cost::processor), comparison.processorLimit);
}

} // namespace

int main(int argc, char** argv)
{
    const std::string servers = std::string(TIDEWELL_BUILD_DIR) + "/libexec/tidewell/";
    // The trusted phone of the default household.
    const std::string device = "00008130-00FACADE0010001C";
    const Command everything { "ideviceinfo", "-u", device };
    const Command battery { "ideviceinfo", "-u", device, "-q", "com.apple.mobile.battery" };
    const Command wireless { "ideviceinfo", "-u", device, "-q",
        "com.apple.mobile.wireless_lockdown" };
    const std::array comparisons {
        Comparison { "tdw_list", { servers + "tdw_list" }, { { "idevice_id", "-l" } }, 1.15, 1.15 },
        Comparison { "tdw_battery", { servers + "tdw_battery", device }, { battery }, 0.30, 1.15 },
        Comparison { "tdw_info", { servers + "tdw_info", device, "1" },
            { everything, battery, wireless }, 0.15, 0.45 },
    };
    // The simulator is this program's parent, and the measured programs are its children.
    pin(getppid(), 0);
    pin(getpid(), 1);
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 40;
    std::printf("%-12s %-9s %11s %13s %7s   (medians of %d runs)\n", "server", "time", "ours",
        "theirs", "ratio", runs);
    for (const Comparison& comparison : comparisons)
        compare(comparison, runs);
    return EXIT_SUCCESS;
}
