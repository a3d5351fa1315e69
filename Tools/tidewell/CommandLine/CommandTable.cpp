#include "CommandLine/CommandTable.h"

#include "Commands/Commands.h"

#include <algorithm>

namespace tdw::cli {

namespace {

constexpr std::string_view kShells[] = { "bash", "zsh", "fish" };
constexpr std::string_view kConnections[] = { "usb", "network", "any" };
constexpr std::string_view kServiceActions[] = { "status", "stop" };
constexpr std::string_view kSwitch[] = { "on", "off" };

constexpr std::string_view kEverywhere[] = { "--help", "--version" };
constexpr std::string_view kRequestOptions[] = { "--json", "--direct" };
constexpr std::string_view kJsonOptions[] = { "--json" };
constexpr std::string_view kDirectOptions[] = { "--direct" };
constexpr std::string_view kInfoOptions[] = { "--json", "--direct", "--connection" };
constexpr std::string_view kCompanionsOptions[]
    = { "--json", "--direct", "--connection", "--battery" };
constexpr std::string_view kWallpaperOptions[] = { "--json", "--direct", "--connection", "--home",
    "--lock", "--width", "--output", "--force" };
constexpr std::string_view kPairOptions[] = { "--json", "--direct", "--timeout" };

constexpr Option kOptions[] = {
    { .name = "--json", .help = "Write one JSON object instead of text for people" },
    { .name = "--connection",
        .valueKind = ValueKind::Choice,
        .valueName = "usb|network|any",
        .choices = kConnections,
        .help = "How to reach the device, instead of either way" },
    { .name = "--timeout",
        .valueKind = ValueKind::Seconds,
        .valueName = "SECONDS",
        .help = "How long to wait, instead of 60 seconds" },
    { .name = "--battery", .help = "Tell the batteries and nothing else" },
    { .name = "--home", .help = "Take the wallpaper of the home screen" },
    { .name = "--lock", .help = "Take the wallpaper of the lock screen; the default" },
    { .name = "--width",
        .valueKind = ValueKind::Pixels,
        .valueName = "PIXELS",
        .help = "How wide the picture is to be, instead of what the device likes" },
    { .name = "--output",
        .shortName = "-o",
        .valueKind = ValueKind::File,
        .valueName = "FILE",
        .help = "Write the picture to a file instead of the terminal" },
    { .name = "--force", .help = "Overwrite the file where it is there already" },
    { .name = "--direct", .help = "Ask without the service, from this process" },
    { .name = "--help",
        .shortName = "-h",
        .help = "Explain the tool, or the command that is given" },
    { .name = "--version", .help = "Tell the version" },
};

constexpr Word kDeviceWords[] = { { "DEVICE", WordKind::Device } };
constexpr Word kWifiWords[]
    = { { "DEVICE", WordKind::Device }, { "on|off", WordKind::Choice, kSwitch } };
constexpr Word kBuddyWords[] = { { "DEVICE", WordKind::Device }, { "TEXT", WordKind::Text } };
constexpr Word kServiceWords[] = { { "status|stop", WordKind::Choice, kServiceActions } };
constexpr Word kCompanionsWords[] = { { "DEVICE", WordKind::Device, {}, true },
    { .name = "WATCH...", .isOptional = true, .isRepeated = true } };
constexpr Word kHelpWords[] = { { "COMMAND", WordKind::Command, {}, true } };
constexpr Word kCompletionWords[] = { { "bash|zsh|fish", WordKind::Choice, kShells } };

constexpr Command kCommands[] = {
    { "list", {}, kRequestOptions, "List the devices that can be reached now",
        "Asks the multiplexer alone; no device is woken or asked for anything.", &listCommand },
    { "info", kDeviceWords, kInfoOptions, "Tell about a device",
        "A device that does not trust this computer tells less, and takes the question for a wish "
        "to pair: it asks its user.",
        &infoCommand },
    { "battery", kDeviceWords, kRequestOptions, "Tell the charge of a device",
        "The device must trust this computer. It is reached over USB or the network, whichever "
        "works; there is no choosing, as its server always tries both ways.",
        &batteryCommand },
    { "companions", kCompanionsWords, kCompanionsOptions, "Tell about the watches of a phone",
        "Each WATCH is an identifier as this command shows it; without any, all watches are told "
        "about that are paired with the phone. DEVICE may be left out where one device is there. A "
        "watch that cannot be read is a warning, as long as another one can.",
        &companionsCommand },
    { "wallpaper", kDeviceWords, kWallpaperOptions, "Save or show the wallpaper of a device",
        "The picture is written to the file as a whole or not at all. Without a file it is shown on "
        "the terminal, where that can show pictures.",
        &wallpaperCommand },
    { "pair", kDeviceWords, kPairOptions, "Make a device trust this computer",
        "The device must be connected with a cable. It asks its user; the command waits for the "
        "answer, for 60 seconds unless --timeout says otherwise.",
        &pairCommand },
    { "unpair", kDeviceWords, kRequestOptions, "Make a device forget this computer",
        "The device must be connected with a cable.", &unpairCommand },
    { "wifi", kWifiWords, kRequestOptions, "Allow or forbid connections over Wi-Fi",
        "The device must be connected with a cable, and trust this computer.", &wifiCommand },
    { "buddy", kBuddyWords, kRequestOptions, "Set the host that a device synchronises with",
        "Writes TEXT as the wireless buddy of the device, which must be connected with a cable and "
        "trust this computer. TEXT may be empty.",
        &buddyCommand },
    { "events", {}, kRequestOptions, "Tell about devices as they come and go",
        "Writes one line for each event as it happens, beginning with the devices that are there, "
        "until it is interrupted.",
        &eventsCommand },
    { "watch", {}, kDirectOptions, "Show devices and watches with their batteries, live",
        "Redraws a table as devices come and go, until it is interrupted. A device that this "
        "computer is not paired with is not asked for anything. Without a terminal it writes a "
        "line for each change.",
        &watchCommand },
    { "service", kServiceWords, kJsonOptions, "Look after the service that runs the requests",
        "\"status\" tells whether it runs, without starting it; \"stop\" ends it. The next request "
        "starts it again.",
        &serviceCommand },
    { "help", kHelpWords, {}, "Explain the tool or a command", "", &helpCommand },
    { "completion", kCompletionWords, {}, "Write the completion script for a shell",
        "Packages install these scripts. By hand: tidewell completion bash > "
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
