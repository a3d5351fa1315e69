#include "CommandLine/Completion.h"

namespace tdw::cli {

namespace {

constexpr std::string_view kFishFrame
    = R"fish(# fish completion for tidewell, written by "tidewell completion fish"

function __tidewell_devices
    @DEVICES@
end

# The words before the cursor, without options and their values.
function __tidewell_words
    set -l isValue 0
    for word in (commandline -opc)
        if test $isValue -eq 1
            set isValue 0
        else if contains -- $word @VALUED@
            set isValue 1
        else if not string match -q -- '-*' $word
            echo $word
        end
    end
end

# Whether the command is the one given; nothing stands for no command.
function __tidewell_in
    set -l words (__tidewell_words)
    test "$words[2]" = "$argv[1]"
end

# The same, and whether this many of its words are complete.
function __tidewell_at
    __tidewell_in $argv[1]; and test (count (__tidewell_words)) -eq (math 2 + $argv[2])
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

/// @param command the name of one; empty where none has been given yet
std::string optionLine(std::string_view command, const Option& option)
{
    std::string rest = "-l " + std::string(option.name.substr(2));
    if (!option.shortName.empty())
        rest += " -s " + std::string(option.shortName.substr(1));
    if (option.valueKind == ValueKind::File)
        rest += " -r -F";
    else if (option.valueKind != ValueKind::None)
        rest += " -x -a '" + choiceNames(option.choices) + "'";
    return line("__tidewell_in \"" + std::string(command) + "\"", rest + described(option.help));
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
    std::string valued;
    for (const Option& option : optionTable()) {
        lines += optionLine("", option);
        if (option.valueKind != ValueKind::None)
            valued.append(" ").append(option.name).append(" ").append(option.shortName);
    }
    for (const Command& command : commandTable()) {
        lines += line(
            "__tidewell_in \"\"", "-a " + std::string(command.name) + described(command.help));
        for (const Option& option : optionTable()) {
            if (takesOption(command, option))
                lines += optionLine(command.name, option);
        }
        for (std::size_t i = 0; i < command.words.size(); ++i)
            lines += wordLine(command, i);
    }
    return filled(kFishFrame,
        { { "@DEVICES@", std::string(kDeviceCandidates) }, { "@VALUED@", valued },
            { "@LINES@", lines } });
}

} // namespace tdw::cli
