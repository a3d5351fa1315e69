#include "CommandLine/CommandTable.h"

#include "Commands/Commands.h"

#include <algorithm>

namespace tdw::cli {

namespace {

constexpr std::string_view kShells[] = { "bash", "zsh", "fish" };

constexpr std::string_view kEverywhere[] = { "--help", "--version" };
constexpr std::string_view kRequestOptions[] = { "--json", "--direct" };

constexpr Option kOptions[] = {
    { "--json", "", "", {}, "Write one JSON object instead of text for people" },
    { "--direct", "", "", {}, "Ask without the service; there is no other way yet" },
    { "--help", "-h", "", {}, "Explain the tool, or the command that is given" },
    { "--version", "", "", {}, "Tell the version" },
};

constexpr Word kHelpWords[] = { { "COMMAND", WordKind::Command, {}, true } };
constexpr Word kCompletionWords[] = { { "bash|zsh|fish", WordKind::Choice, kShells } };

constexpr Command kCommands[] = {
    { "list", {}, kRequestOptions, "List the devices that can be reached now",
        "Asks the multiplexer alone; no device is woken or asked for anything.", &listCommand },
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
