#include "CommandLine/Completion.h"

#include <cassert>

namespace tdw::cli {

namespace {

void append(std::string& list, std::string_view name)
{
    list += (list.empty() ? "" : " ") + std::string(name);
}

} // namespace

std::string completionScript(std::string_view shell)
{
    if (shell == "bash")
        return bashCompletion();
    if (shell == "zsh")
        return zshCompletion();
    assert(shell == "fish");
    return fishCompletion();
}

std::string filled(
    std::string_view frame, const std::vector<std::pair<std::string_view, std::string>>& texts)
{
    std::string script(frame);
    for (const auto& [placeholder, text] : texts) {
        const auto position = script.find(placeholder);
        assert(position != std::string::npos);
        script.replace(position, placeholder.size(), text);
    }
    return script;
}

std::string commandNames()
{
    std::string names;
    for (const Command& command : commandTable())
        append(names, command.name);
    return names;
}

std::string optionNames(const Command* command)
{
    std::string names;
    for (const Option& option : optionTable()) {
        if (!command || takesOption(*command, option))
            append(names, option.name);
    }
    return names;
}

std::string singleQuoted(std::string_view text)
{
    std::string quoted = "'";
    for (const char character : text)
        quoted += character == '\'' ? "'\\''" : std::string(1, character);
    return quoted + "'";
}

std::string choiceNames(std::span<const std::string_view> choices)
{
    std::string names;
    for (const std::string_view choice : choices)
        append(names, choice);
    return names;
}

} // namespace tdw::cli
