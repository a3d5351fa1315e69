#include "CommandLine/Completion.h"

namespace tdw::cli {

namespace {

constexpr std::string_view kBashFrame
    = R"bash(# bash completion for tidewell, written by "tidewell completion bash"

# UDIDs and names, the names quoted as the shell wants them.
_tidewell_devices() {
    local udid name
    while IFS=$'\t' read -r udid name; do
        [[ $udid == "$current"* ]] && COMPREPLY+=("$udid")
        [[ -n $name && ( $name == "$current"* || $(printf %q "$name") == "$current"* ) ]] &&
            COMPREPLY+=("$(printf %q "$name")")
    done < <(@DEVICES@)
}

_tidewell() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' position=0 candidates='' i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
        @VALUED@) i=$((i + 1)) ;;
        -*) ;;
        *)
            if [[ -z $command ]]; then
                command=${COMP_WORDS[i]}
            else
                position=$((position + 1))
            fi
            ;;
        esac
    done
    case $previous:$command:$current in
@VALUES@    *:-*)
        case $command in
@OPTIONS@        *) candidates='@ALLOPTIONS@' ;;
        esac
        ;;
    *::*) candidates='@COMMANDS@' ;;
    *)
        case $command:$position in
@WORDS@        esac
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$current")
}
complete -F _tidewell tidewell
)bash";

std::string candidates(const Word& word)
{
    switch (word.kind) {
    case WordKind::Command:
        return "'" + commandNames() + "'";
    case WordKind::Choice:
        return "'" + choiceNames(word.choices) + "'";
    case WordKind::Device:
    case WordKind::Text:
        break;
    }
    return "''";
}

/// One branch of a `case`.
std::string branch(
    std::string_view indentation, const std::string& pattern, const std::string& text)
{
    return std::string(indentation) + pattern + ") candidates=" + text + " ;;\n";
}

} // namespace

std::string bashCompletion()
{
    // An option without a value stands in where none has one: a pattern must not be empty.
    std::string valued;
    std::string values;
    for (const Option& option : optionTable()) {
        if (option.valueKind == ValueKind::None)
            continue;
        for (const std::string_view name : { option.name, option.shortName }) {
            if (name.empty())
                continue;
            valued += (valued.empty() ? "" : " | ") + std::string(name);
            const std::string pattern = std::string(name) + ":*";
            values += option.valueKind == ValueKind::File
                ? "    " + pattern
                    + ") mapfile -t COMPREPLY < <(compgen -f -- \"$current\"); return ;;\n"
                : branch("    ", pattern, "'" + choiceNames(option.choices) + "'");
        }
    }
    std::string options;
    std::string words;
    for (const Command& command : commandTable()) {
        options += branch("        ", std::string(command.name), "'" + optionNames(&command) + "'");
        for (std::size_t i = 0; i < command.words.size(); ++i) {
            const std::string pattern = std::string(command.name) + ":" + std::to_string(i);
            words += command.words[i].kind == WordKind::Device
                ? "        " + pattern + ") COMPREPLY=(); _tidewell_devices; return ;;\n"
                : branch("        ", pattern, candidates(command.words[i]));
        }
    }
    return filled(kBashFrame,
        { { "@DEVICES@", std::string(kDeviceCandidates) },
            { "@VALUED@", valued.empty() ? "--" : valued }, { "@VALUES@", values },
            { "@OPTIONS@", options }, { "@ALLOPTIONS@", optionNames(nullptr) },
            { "@COMMANDS@", commandNames() }, { "@WORDS@", words } });
}

} // namespace tdw::cli
