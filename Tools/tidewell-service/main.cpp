#include "Client/ServiceMessages.h"
#include "Interfaces/TidewellVersion.h"
#include "Launch.h"
#include "Platform/Messages/ServiceStart.h"
#include "Platform/System/DescriptorLimit.h"
#include "Platform/System/Log.h"
#include "Platform/Values/Utf8.h"
#include "Service.h"

#include <systemd/sd-daemon.h>

#include <fcntl.h>
#include <getopt.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>

namespace {

namespace service = tdw::service;
using tdw::Result;

/// How long a service that was started for a client stays after the last one.
constexpr std::chrono::seconds kDefaultIdleBound { 60 };

constexpr int kUsageStatus = 64;

constexpr const char* kHelp
    = "Usage: tidewell-service [--foreground] [--verbose] [--idle SECONDS]\n"
      "       tidewell-service --on-demand [--idle SECONDS]\n"
      "       tidewell-service --launch\n"
      "\n"
      "Runs the requests of Tidewell's clients. Clients start it by themselves,\n"
      "and so does systemd where its socket unit is enabled.\n"
      "\n"
      "  --foreground    Stay in the foreground, the default where it is started by hand\n"
      "  --verbose       Log each client, request and events server to standard error\n"
      "  --launch        Start it in the background, and end when it can be reached\n"
      "  --on-demand     Say on standard output when it can be reached, go to the\n"
      "                  background, and end when there is no client\n"
      "  --idle SECONDS  Stay that long without a client, instead of 60 seconds, or for\n"
      "                  ever where it was started by hand\n"
      "  --help          Show the options\n"
      "  --version       Show the version\n";

struct Arguments {
    enum class Action { Serve, Launch, Help, Version, Refuse };
    Action action = Action::Serve;
    bool isOnDemand = false;
    bool isForeground = false;
    bool isVerbose = false;
    std::optional<std::chrono::seconds> idleBound {};
};

std::optional<std::chrono::seconds> secondsIn(const char* text)
{
    constexpr std::int64_t kLongest = std::int64_t { 365 } * 24 * 3600;
    std::int64_t seconds = 0;
    const char* end = text + std::strlen(text);
    const auto result = std::from_chars(text, end, seconds);
    if (result.ec != std::errc() || result.ptr != end || seconds < 0 || seconds > kLongest)
        return std::nullopt;
    return std::chrono::seconds(seconds);
}

void say(const std::string& text)
{
    (void)std::fputs(("tidewell-service: " + text + "\n").c_str(), stderr);
}

Arguments parse(int argc, char** argv)
{
    enum Option {
        Launch = 'l',
        OnDemand = 'd',
        Foreground = 'f',
        Verbose = 'b',
        Idle = 'i',
        Help = 'h',
        Version = 'v'
    };
    const option options[] = {
        { "launch", no_argument, nullptr, Launch },
        { "on-demand", no_argument, nullptr, OnDemand },
        { "foreground", no_argument, nullptr, Foreground },
        { "verbose", no_argument, nullptr, Verbose },
        { "idle", required_argument, nullptr, Idle },
        { "help", no_argument, nullptr, Help },
        { "version", no_argument, nullptr, Version },
        {},
    };
    using Action = Arguments::Action;
    Arguments arguments;
    int found = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread yet
    while ((found = getopt_long(argc, argv, "h", options, nullptr)) != -1) {
        switch (found) {
        case Launch:
            arguments.action = Action::Launch;
            break;
        case OnDemand:
            arguments.isOnDemand = true;
            break;
        case Foreground:
            arguments.isForeground = true;
            break;
        case Verbose:
            arguments.isVerbose = true;
            break;
        case Idle:
            arguments.idleBound = secondsIn(optarg);
            if (!arguments.idleBound) {
                say("\"" + tdw::withControlCharactersEscaped(optarg)
                    + "\" is no number of seconds");
                return { .action = Action::Refuse };
            }
            break;
        case Help:
            return { .action = Action::Help };
        case Version:
            return { .action = Action::Version };
        default:
            return { .action = Action::Refuse };
        }
    }
    if (optind < argc) {
        say("There is no argument \"" + tdw::withControlCharactersEscaped(argv[optind]) + "\"");
        return { .action = Action::Refuse };
    }
    if (arguments.isOnDemand && (arguments.isForeground || arguments.isVerbose)) {
        say("--on-demand goes to the background, without --foreground and --verbose");
        return { .action = Action::Refuse };
    }
    return arguments;
}

/// Ends the process where the system refuses what it cannot do without, instead of with a core.
[[noreturn]] void endWithReason() noexcept
{
    const std::exception_ptr thrown = std::current_exception();
    try {
        if (thrown)
            std::rethrow_exception(thrown);
        say("The system refuses a thread");
    } catch (const std::exception& error) {
        say(std::string("Cannot go on: ") + error.what());
    } catch (...) {
        say("Cannot go on");
    }
    std::_Exit(EXIT_FAILURE);
}

/// What the whole process has from its start on.
void setUpProcess(bool isVerbose)
{
    std::set_terminate(endWithReason);
    // The name that `ps` shows; it would be that of the link the service was started through.
    (void)::prctl(PR_SET_NAME, "tidewell-service");
    (void)std::signal(SIGPIPE, SIG_IGN);
    // Where it is ignored, the statuses of the servers are lost.
    (void)std::signal(SIGCHLD, SIG_DFL);
    tdw::raiseDescriptorLimit();
    // Large messages go back to the system at once.
    constexpr int kLargeBlock = 128 * 1024;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs yet
    (void)::mallopt(M_MMAP_THRESHOLD, kLargeBlock);
    if (isVerbose)
        tdw::Log::beVerbose();
}

/// The servers are installed beside this program.
tdw::Bundle ownBundle()
{
    std::error_code error;
    return tdw::Bundle(std::filesystem::read_symlink("/proc/self/exe", error).parent_path());
}

[[noreturn]] void endProcess()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): what other threads use is never destroyed
    std::exit(EXIT_SUCCESS);
}

/// Listens where systemd has set a socket up, or at the service's own name.
Result<void> beginListening(
    service::Service& running, int inherited, const std::filesystem::path& path)
{
    if (inherited > 0) {
        for (int i = 0; i < inherited; ++i)
            TDW_TRY(running.adopt(tdw::FileHandle(SD_LISTEN_FDS_START + i)));
        return {};
    }
    return running.listen(path, TDW_TRY(service::lockForListening(path)));
}

Result<std::vector<tdw::SignalSource>> endOnSignals(
    const std::shared_ptr<service::Service>& running)
{
    std::vector<tdw::SignalSource> sources;
    for (const int number : { SIGTERM, SIGINT }) {
        sources.push_back(TDW_TRY(tdw::SignalSource::create(number, tdw::Queue::main(),
            { .event = [running] { running->terminate(); }, .cancel = {} })));
        sources.back().resume();
    }
    return sources;
}

Result<void> serve(const Arguments& arguments)
{
    // First of all: it takes the variables away, which are not meant for the servers.
    const int inherited = sd_listen_fds(1);
    setUpProcess(arguments.isVerbose);

    const auto path = TDW_TRY(tdw::serviceSocketPath(tdw::tidewellService()));
    std::optional<std::chrono::milliseconds> idleBound = arguments.idleBound;
    if (!idleBound && (arguments.isOnDemand || inherited > 0))
        idleBound = kDefaultIdleBound;
    const auto running = TDW_TRY(service::Service::create({ .bundle = ownBundle(),
        .directory = path.parent_path(),
        .idleBound = idleBound,
        .exit = [] {
            endProcess();
        } }));

    const auto listening = beginListening(*running, inherited, path);
    const bool isThereAlready = !listening && listening.error().code() == EEXIST;
    if (!listening && !(isThereAlready && arguments.isOnDemand))
        return listening.error();
    const auto signals = TDW_TRY(endOnSignals(running));
    if (arguments.isOnDemand)
        service::becomeBackgroundProcess();
    // A service runs, which is all that was wanted.
    if (isThereAlready)
        endProcess();
    // The variable goes, so that no server can speak for the service.
    (void)sd_notify(1, "READY=1");
    tdw::dispatchMain();
}

} // namespace

int main(int argc, char** argv)
{
    const Arguments arguments = parse(argc, argv);
    switch (arguments.action) {
    case Arguments::Action::Help:
        return std::fputs(kHelp, stdout) < 0 ? EXIT_FAILURE : EXIT_SUCCESS;
    case Arguments::Action::Version:
        return std::printf("tidewell-service %s\n", TidewellVersionString) < 0 ? EXIT_FAILURE
                                                                               : EXIT_SUCCESS;
    case Arguments::Action::Refuse:
        return kUsageStatus;
    default:
        break;
    }
    const auto result = arguments.action == Arguments::Action::Launch
        ? service::launchInBackground()
        : serve(arguments);
    if (!result)
        say(tdw::withControlCharactersEscaped(result.error().failureReason()));
    return EXIT_FAILURE;
}
