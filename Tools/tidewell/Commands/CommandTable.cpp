#include "CommandLine/CommandTable.h"

#include "Commands/Commands.h"

#include <algorithm>

namespace tdw::cli {

namespace {

constexpr std::string_view kShells[] = { "bash", "zsh", "fish", "devices" };
constexpr std::string_view kConnections[] = { "usb", "network", "any" };
constexpr std::string_view kServiceActions[] = { "status", "stop" };
constexpr std::string_view kSwitch[] = { "on", "off" };

constexpr std::string_view kEverywhere[] = { "--verbose", "--help", "--version" };
constexpr std::string_view kRequestOptions[] = { "--json", "--direct" };
constexpr std::string_view kJsonOptions[] = { "--json" };
constexpr std::string_view kDirectOptions[] = { "--direct" };
constexpr std::string_view kInfoOptions[] = { "--json", "--direct", "--connection" };
constexpr std::string_view kCompanionsOptions[]
    = { "--json", "--direct", "--connection", "--battery" };
constexpr std::string_view kWallpaperOptions[] = { "--json", "--direct", "--connection", "--home",
    "--lock", "--width", "--output", "--force" };
constexpr std::string_view kReportOptions[] = { "--output", "--force" };
constexpr std::string_view kPairOptions[] = { "--json", "--direct", "--timeout" };

constexpr Option kOptions[] = {
    { .name = "--json", .help = "Write one JSON object instead of text" },
    { .name = "--connection",
        .valueKind = ValueKind::Choice,
        .valueName = "usb|network|any",
        .choices = kConnections,
        .help = "How to reach the device; any by default" },
    { .name = "--timeout",
        .valueKind = ValueKind::Seconds,
        .valueName = "SECONDS",
        .help = "How long to wait; 60 by default" },
    { .name = "--battery", .help = "Show only battery levels" },
    { .name = "--home", .help = "Get the wallpaper of the home screen" },
    { .name = "--lock", .help = "Get the wallpaper of the lock screen, as by default" },
    { .name = "--width",
        .valueKind = ValueKind::Pixels,
        .valueName = "PIXELS",
        .help = "Image width in pixels; the device chooses it by default" },
    { .name = "--output",
        .shortName = "-o",
        .valueKind = ValueKind::File,
        .valueName = "FILE",
        .help = "Write to a file, or to standard output (-)" },
    { .name = "--force", .help = "Overwrite an existing file" },
    { .name = "--direct", .help = "Run requests without the service" },
    { .name = "--verbose", .help = "Show each step with its time, and all causes of an error" },
    { .name = "--help", .shortName = "-h", .help = "Show help for the tool or for a command" },
    { .name = "--version", .help = "Show the version" },
};

constexpr Word kDeviceWords[] = { { "DEVICE", WordKind::Device } };
constexpr Word kWifiWords[]
    = { { "DEVICE", WordKind::Device }, { "on|off", WordKind::Choice, kSwitch } };
constexpr Word kBuddyWords[] = { { "DEVICE", WordKind::Device }, { "TEXT", WordKind::Text } };
constexpr Word kServiceWords[] = { { "status|stop", WordKind::Choice, kServiceActions } };
constexpr Word kCompanionsWords[] = { { "DEVICE", WordKind::Device, {}, true },
    { .name = "WATCH...", .isOptional = true, .isRepeated = true } };
constexpr Word kDoctorWords[] = { { "DEVICE", WordKind::Device, {}, true } };
constexpr Word kHelpWords[] = { { "COMMAND", WordKind::Command, {}, true } };
constexpr Word kCompletionWords[] = { { "bash|zsh|fish|devices", WordKind::Choice, kShells } };

constexpr Command kCommands[] = {
    { "list", {}, kRequestOptions, "List the devices that can be reached now",
        "Only the multiplexer is asked, no device.", &listCommand },
    { "info", kDeviceWords, kInfoOptions, "Show what is known about a device",
        "Less is known about a device that does not trust this computer. Only \"pair\" makes it "
        "ask for trust.",
        &infoCommand },
    { "battery", kDeviceWords, kRequestOptions, "Show the battery level of a device",
        "The device must trust this computer. It is reached over USB or the network, whichever "
        "works.",
        &batteryCommand },
    { "companions", kCompanionsWords, kCompanionsOptions, "Show a phone's watches",
        "Each WATCH is an identifier that this command shows, the beginning of one, or a name. "
        "Without any, all watches of the phone are shown. DEVICE may be left out where there is "
        "only one. A watch that cannot be read is a warning if another one can.",
        &companionsCommand },
    { "wallpaper", kDeviceWords, kWallpaperOptions, "Save or show the wallpaper of a device",
        "The file is written completely or not at all. Without a file the picture is shown on the "
        "terminal, if that can show pictures.",
        &wallpaperCommand },
    { "pair", kDeviceWords, kPairOptions, "Make a device trust this computer",
        "The device must be connected with a cable. It shows a question, and the command waits for "
        "the answer.",
        &pairCommand },
    { "unpair", kDeviceWords, kRequestOptions, "Make a device forget this computer",
        "The device must be connected with a cable.", &unpairCommand },
    { "wifi", kWifiWords, kRequestOptions, "Allow or forbid connections over Wi-Fi",
        "The device must be connected with a cable, and trust this computer.", &wifiCommand },
    { "buddy", kBuddyWords, kRequestOptions, "Set the host that a device synchronises with",
        "Writes TEXT as the wireless buddy of the device, which must be connected with a cable and "
        "trust this computer. TEXT may be empty.",
        &buddyCommand },
    { "events", {}, kRequestOptions, "Show devices as they come and go",
        "Writes one line for each event until it is interrupted. The first events are the devices "
        "that are there.",
        &eventsCommand },
    { "watch", {}, kDirectOptions, "Show devices and watches with their batteries, live",
        "Redraws a table as devices come and go. The arrow keys scroll; q or Ctrl-C ends it. A "
        "device that this computer is not paired with is not asked. Without a terminal it writes "
        "a line for each change.",
        &watchCommand },
    { "service", kServiceWords, kJsonOptions, "Show or stop the service that runs the requests",
        "\"status\" shows whether it runs, and does not start it; \"stop\" ends it. The next request "
        "starts it again.",
        &serviceCommand },
    { "doctor", kDoctorWords, kJsonOptions, "Find out what is wrong, and what mends it",
        "Looks at the USB bus, usbmuxd, the device libraries, the service and every device, or the "
        "one that is given. No device is made to ask for trust. The exit status is 1 where a check "
        "fails.",
        &doctorCommand, true },
    { "report", {}, kReportOptions, "Write a file that tells others what is wrong",
        "Holds what \"doctor\" says, versions, the last hour of the service's journal and the steps "
        "of one request for information. Identifiers, names and addresses are replaced by false "
        "ones. What the file holds is shown before it is written.",
        &reportCommand, true },
    { "help", kHelpWords, {}, "Show help for the tool or for a command", "", &helpCommand },
    { "completion", kCompletionWords, {}, "Write the completion script for a shell",
        "Packages install these scripts. \"devices\" writes what they offer. By hand: tidewell "
        "completion bash > "
        "~/.local/share/bash-completion/completions/tidewell",
        &completionCommand },
};

template <typename Range>
bool contains(const Range& names, std::string_view name)
{
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

} // namespace

std::size_t Command::fewestWords() const
{
    return static_cast<std::size_t>(std::count_if(
        words.begin(), words.end(), [](const Word& word) { return !word.isOptional; }));
}

std::span<const Command> commandTable()
{
    return kCommands;
}

std::span<const Option> optionTable()
{
    return kOptions;
}

const Command* findCommand(std::string_view name)
{
    const auto found = std::find_if(std::begin(kCommands), std::end(kCommands),
        [&](const Command& command) { return command.name == name; });
    return found == std::end(kCommands) ? nullptr : found;
}

const Option* findOption(std::string_view name)
{
    const auto found
        = std::find_if(std::begin(kOptions), std::end(kOptions), [&](const Option& option) {
              return option.name == name || (!name.empty() && option.shortName == name);
          });
    return found == std::end(kOptions) ? nullptr : found;
}

bool takesOption(const Command& command, const Option& option)
{
    return contains(kEverywhere, option.name) || contains(command.options, option.name);
}

std::string usageLine(const Command& command)
{
    std::string line = "tidewell " + std::string(command.name);
    for (const Word& word : command.words) {
        const std::string name(word.name);
        line += word.isOptional ? " [" + name + "]" : " " + name;
    }
    return line;
}

} // namespace tdw::cli
