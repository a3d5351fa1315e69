#include "CommandLine/Completion.h"

namespace tdw::cli {

namespace {

constexpr std::string_view kZshFrame = R"zsh(#compdef tidewell
# zsh completion for tidewell, written by "tidewell completion zsh"

_tidewell_devices() {
  local -a lines udids names
  local line
  lines=(${(f)"$(@DEVICES@)"})
  for line in $lines; do
    udids+=("${line%%$'\t'*}")
    [[ $line == *$'\t'* ]] && names+=("${line#*$'\t'}")
  done
  compadd -a udids
  compadd -a names
}

_tidewell_commands() {
  local -a commands
  commands=(
@COMMANDS@  )
  _describe command commands
}

_tidewell() {
  local context state line
  typeset -A opt_args
  _arguments -C \
@ALLOPTIONS@    '1: :_tidewell_commands' \
    '*:: :->words' && return
  case $line[1] in
@CASES@  esac
}

_tidewell "$@"
)zsh";

/// One option as `_arguments` wants it.
std::string optionArgument(const Option& option)
{
    const std::string name(option.name);
    std::string value;
    if (option.valueKind != ValueKind::None)
        value = ":" + std::string(option.valueName) + ":"
            + (option.valueKind == ValueKind::File ? "_files"
                    : option.choices.empty()       ? " "
                                                   : "(" + choiceNames(option.choices) + ")");
    const std::string help = "[" + std::string(option.help) + "]";
    // The value may be the next word, or stand in the same one.
    const std::string longForm = name + (value.empty() ? "" : "=");
    if (option.shortName.empty())
        return singleQuoted(longForm + help + value);
    const std::string shortName(option.shortName);
    return "'(" + shortName + " " + name + ")'{" + shortName + (value.empty() ? "," : "+,")
        + longForm + "}" + singleQuoted(help + value);
}

std::string wordArgument(const Word& word, std::size_t position)
{
    std::string action;
    switch (word.kind) {
    case WordKind::Device:
        action = "_tidewell_devices";
        break;
    case WordKind::Command:
        action = "_tidewell_commands";
        break;
    case WordKind::Choice:
        action = "(" + choiceNames(word.choices) + ")";
        break;
    case WordKind::Text:
        break;
    }
    // A star stands for all words from here on, however many.
    const std::string place
        = word.isRepeated ? "*:" : std::to_string(position) + (word.isOptional ? "::" : ":");
    return "'" + place + std::string(word.name) + ":" + action + "'";
}

std::string commandCase(const Command& command)
{
    std::string text = "  " + std::string(command.name) + ")\n    _arguments";
    for (const Option& option : optionTable()) {
        if (takesOption(command, option))
            text += " \\\n      " + optionArgument(option);
    }
    for (std::size_t i = 0; i < command.words.size(); ++i)
        text += " \\\n      " + wordArgument(command.words[i], i + 1);
    return text + " ;;\n";
}

} // namespace

std::string zshCompletion()
{
    std::string commands;
    std::string cases;
    for (const Command& command : commandTable()) {
        commands += "    "
            + singleQuoted(std::string(command.name) + ":" + std::string(command.help)) + "\n";
        cases += commandCase(command);
    }
    std::string options;
    for (const Option& option : optionTable())
        options += "    " + optionArgument(option) + " \\\n";
    return filled(kZshFrame,
        { { "@DEVICES@", std::string(kDeviceCandidates) }, { "@COMMANDS@", commands },
            { "@ALLOPTIONS@", options }, { "@CASES@", cases } });
}

} // namespace tdw::cli
