#include "Commands/Commands.h"
#include "Platform/System/FileHandle.h"
#include "Usb/MuxDaemon.h"

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <csignal>

using tdw::Result;
using namespace tdw::simulator;

namespace {

/// Statuses of the simulator's own failures; `run` otherwise ends with its command's.
constexpr int kFailure = 1;
constexpr int kUsageFailure = 2;

constexpr const char* kDaemon = "/usr/sbin/usbmuxd";

void print(int descriptor, const std::string& text)
{
    (void)tdw::writeToDescriptor(descriptor, std::as_bytes(std::span(text)));
}

void addScenarioOptions(CLI::App& command, ScenarioOptions& options)
{
    command
        .add_option("--scenario", options.file,
            "The file that describes the devices; without it, a household of three")
        ->type_name("FILE");
    const std::map<std::string, AddressLayout> layouts { { "bsd", AddressLayout::Bsd },
        { "linux", AddressLayout::Linux } };
    command
        .add_option("--network-address-layout", options.addressLayout,
            "How addresses of network devices are laid out: bsd or linux; without it, as the "
            "scenario says or the device library wants")
        ->type_name("LAYOUT")
        ->transform(CLI::Transformer(layouts));
    command.add_flag_callback(
        "--usb", [&options] { options.daemon = options.daemon.value_or(kDaemon); },
        "Put the system's own multiplexer daemon before the devices, which are on a virtual bus "
        "then; devices on the network are not shown");
    command
        .add_option("--daemon", options.daemon,
            "The daemon's executable, instead of " + std::string(kDaemon) + "; implies --usb")
        ->type_name("FILE");
}

} // namespace

int main(int argumentCount, char** arguments)
{
    // A reader that goes away must not end the simulator.
    std::signal(SIGPIPE, SIG_IGN);

    CLI::App app("Simulated iOS devices that speak the real wire protocols", "tdwsimulator");
    app.set_version_flag("--version", "tdwsimulator " TDWSIMULATOR_VERSION);
    app.require_subcommand(1);

    ScenarioOptions options;
    std::vector<std::string> words;
    std::string directory;
    std::optional<std::string> socket;

    CLI::App* run = app.add_subcommand("run", "Run a command with simulated devices around it");
    addScenarioOptions(*run, options);
    run->add_option("COMMAND", words, "The command and its arguments")->required();
    run->positionals_at_end();

    CLI::App* serve = app.add_subcommand("serve", "Simulate devices until SIGINT or SIGTERM");
    addScenarioOptions(*serve, options);
    serve->add_option("--directory", directory, "Where the sockets are made")
        ->type_name("DIRECTORY")
        ->required();

    CLI::App* control = app.add_subcommand("control", "Change a running simulation");
    control->add_option("--socket", socket, "The control socket; else $TDWSIMULATOR_CONTROL")
        ->type_name("PATH");
    control->add_option("REQUEST", words, "A command and its name=value arguments, or JSON")
        ->required();

    RecordOptions recording;
    CLI::App* record = app.add_subcommand("record",
        "Read real devices and write a scenario of them, with false names, numbers and keys");
    record->add_option("UDID", recording.udids, "The devices");
    record->add_flag("--all", recording.all, "Every device that is connected");
    record->add_option("-o,--output", recording.output, "The scenario's file; - is standard output")
        ->type_name("FILE")
        ->required();
    record->add_flag_callback(
        "--force", [&recording] { recording.overwrite = tdw::Overwrite::Yes; },
        "Overwrite a file that is there");
    record->add_flag("--wallpaper", recording.withWallpaper,
        "Ask for the wallpapers, too; their sizes are all that is written");
    record
        ->add_option("--timeout", recording.timeoutSeconds, "How long a device may be silent (10)")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 600));

    // For `--usb` alone, which starts the daemon by it.
    std::string daemon;
    CLI::App* become = app.add_subcommand("become-daemon")->group("");
    become->add_option("DIRECTORY", directory)->required();
    become->add_option("PROGRAM", daemon)->required();

    try {
        app.parse(argumentCount, arguments);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        print(STDERR_FILENO, std::string("tdwsimulator: ") + error.what() + "\n");
        return kUsageFailure;
    }

    const auto status = *become ? Result<int>(becomeMuxDaemon(directory, daemon))
        : *run                  ? runCommand(options, words)
        : *serve                ? serveCommand(options, directory)
        : *record               ? recordCommand(recording)
                                : controlCommand(socket, words);
    if (!status) {
        print(STDERR_FILENO, "tdwsimulator: " + status.error().failureReason() + "\n");
        return kFailure;
    }
    return *status;
}
