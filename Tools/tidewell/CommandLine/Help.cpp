#include "CommandLine/Help.h"

#include "Errors/ExitStatus.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace tdw::cli {

namespace {

constexpr std::size_t kLineWidth = 79;

using Entries = std::vector<std::pair<std::string, std::string>>;

/// Breaks text into lines between words.
std::string wrapped(std::string_view text)
{
    std::string result;
    std::size_t column = 0;
    while (!text.empty()) {
        const auto word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        if (column > 0 && column + 1 + word.size() > kLineWidth) {
            result += '\n';
            column = 0;
        }
        result += (column > 0 ? " " : "") + std::string(word);
        column += word.size() + (column > 0 ? 1 : 0);
    }
    return result + "\n";
}

std::string section(std::string_view title, const Entries& entries)
{
    std::size_t width = 0;
    for (const auto& [name, meaning] : entries)
        width = std::max(width, name.size());
    std::string text = "\n" + std::string(title) + "\n";
    for (const auto& [name, meaning] : entries)
        text.append("  ").append(name).append(width - name.size() + 2, ' ').append(meaning) += '\n';
    return text;
}

std::string optionName(const Option& option)
{
    std::string name = option.shortName.empty() ? "    " : std::string(option.shortName) + ", ";
    name += option.name;
    return option.valueKind == ValueKind::None ? name : name + " " + std::string(option.valueName);
}

/// The options of one command, or all of them.
Entries optionEntries(const Command* command)
{
    Entries entries;
    for (const Option& option : optionTable()) {
        if (!command || takesOption(*command, option))
            entries.emplace_back(optionName(option), option.help);
    }
    return entries;
}

Entries commandEntries()
{
    Entries entries;
    for (const Command& command : commandTable())
        entries.emplace_back(
            usageLine(command).substr(std::string_view("tidewell ").size()), command.help);
    return entries;
}

Entries exitStatusEntries()
{
    Entries entries;
    for (const auto& [status, meaning] : exitStatusMeanings())
        entries.emplace_back(std::to_string(static_cast<int>(status)), meaning);
    return entries;
}

} // namespace

std::string overviewText()
{
    return "Usage: tidewell COMMAND [ARGUMENT...] [OPTION...]\n\n"
        + wrapped("Shows and changes the state of iOS devices.")
        + section("Commands:", commandEntries()) + section("Options:", optionEntries(nullptr))
        + section("Exit status:", exitStatusEntries())
        + "\n\"tidewell COMMAND --help\" shows more; the manual is man tidewell\n";
}

std::string commandHelpText(const Command& command)
{
    std::string text = "Usage: " + usageLine(command) + " [OPTION...]\n\n"
        + wrapped(std::string(command.help) + ".");
    if (!command.description.empty())
        text += "\n" + wrapped(command.description);
    return text + section("Options:", optionEntries(&command));
}

} // namespace tdw::cli
