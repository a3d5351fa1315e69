#include "CommandLine/Completion.h"

namespace tdw::cli {

namespace {

constexpr std::string_view kFishFrame
    = R"fish(# fish completion for tidewell, written by "tidewell completion fish"

function __tidewell_devices
    @DEVICES@
end

# Whether the command is the one given, and this many of its words are complete.
function __tidewell_at
    set -l words (string match --invert -- '-*' (commandline -opc))
    test "$words[2]" = "$argv[1]"; and test (count $words) -eq (math 2 + $argv[2])
end

complete -c tidewell -f
@LINES@)fish";

std::string line(const std::string& condition, const std::string& rest)
{
    return "complete -c tidewell -n '" + condition + "' " + rest + "\n";
}

std::string described(std::string_view help)
{
    return " -d " + singleQuoted(help);
}

std::string optionLine(const Command& command, const Option& option)
{
    std::string rest = "-l " + std::string(option.name.substr(2));
    if (!option.shortName.empty())
        rest += " -s " + std::string(option.shortName.substr(1));
    if (option.valueKind == ValueKind::File)
        rest += " -r -F";
    else if (option.valueKind != ValueKind::None)
        rest += " -x -a '" + choiceNames(option.choices) + "'";
    return line(
        "__fish_seen_subcommand_from " + std::string(command.name), rest + described(option.help));
}

std::string wordLine(const Command& command, std::size_t position)
{
    const Word& word = command.words[position];
    std::string candidates;
    switch (word.kind) {
    case WordKind::Device:
        candidates = "(__tidewell_devices)";
        break;
    case WordKind::Command:
        candidates = commandNames();
        break;
    case WordKind::Choice:
        candidates = choiceNames(word.choices);
        break;
    case WordKind::Text:
        return {};
    }
    return line("__tidewell_at " + std::string(command.name) + " " + std::to_string(position),
        "-a '" + candidates + "'");
}

} // namespace

std::string fishCompletion()
{
    std::string lines;
    for (const Command& command : commandTable()) {
        lines += line(
            "__fish_use_subcommand", "-a " + std::string(command.name) + described(command.help));
        for (const Option& option : optionTable()) {
            if (takesOption(command, option))
                lines += optionLine(command, option);
        }
        for (std::size_t i = 0; i < command.words.size(); ++i)
            lines += wordLine(command, i);
    }
    return filled(
        kFishFrame, { { "@DEVICES@", std::string(kDeviceCandidates) }, { "@LINES@", lines } });
}

} // namespace tdw::cli
