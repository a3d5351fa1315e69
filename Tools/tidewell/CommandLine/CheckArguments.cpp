#include "CommandLine/Arguments.h"
#include "CommandLine/Suggestion.h"
#include "Errors/CommandLineError.h"

#include <algorithm>
#include <charconv>

namespace tdw::cli {

namespace {

/// What an option takes that takes a number, from 1 up.
struct NumberForm {
    std::string_view unit;
    int largest;
};

/// An hour, more than any pairing takes.
constexpr NumberForm kSeconds { "seconds", 3600 };

/// More than any screen has.
constexpr NumberForm kPixels { "pixels", 10'000 };

std::optional<int> numberIn(const std::string* text, const NumberForm& form)
{
    if (!text)
        return std::nullopt;
    int number = 0;
    const char* const end = text->data() + text->size();
    const auto parsed = std::from_chars(text->data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end || number < 1 || number > form.largest)
        return std::nullopt;
    return number;
}

Error usageError(const std::string& reason, const Command* command = nullptr)
{
    const std::string help
        = command ? "tidewell " + std::string(command->name) + " --help" : "tidewell --help";
    return commandLineError(
        { .status = ExitStatus::Usage, .reason = reason + "; try '" + help + "'" });
}

/// " (did you mean …?)" or nothing.
std::string suggestionText(std::string_view given, const std::vector<std::string_view>& known)
{
    const auto suggestion = nearestName(given, known);
    return suggestion ? " (did you mean \"" + std::string(*suggestion) + "\"?)" : "";
}

Error unknownOption(const std::string& text)
{
    std::vector<std::string_view> names;
    for (const Option& option : optionTable())
        names.push_back(option.name);
    const std::string name = text.substr(0, text.find('='));
    return usageError("Unknown option \"" + name + "\"" + suggestionText(name, names));
}

bool isAmong(std::string_view text, std::span<const std::string_view> choices)
{
    return choices.empty() || std::find(choices.begin(), choices.end(), text) != choices.end();
}

std::string inWords(std::span<const std::string_view> choices)
{
    std::string text;
    for (std::size_t i = 0; i < choices.size(); ++i) {
        if (i > 0)
            text += i + 1 == choices.size() ? " or " : ", ";
        text.append("\"").append(choices[i]).append("\"");
    }
    return text;
}

std::string unexpected(std::string_view given, std::span<const std::string_view> choices)
{
    return "Expected " + inWords(choices) + ", not \"" + std::string(given) + "\"";
}

/// What is wrong with the value of an option, or nothing.
std::string valueProblem(const Option& option, const std::string& given)
{
    const auto notThat = [&](const NumberForm& form) {
        return numberIn(&given, form)
            ? std::string()
            : std::string(option.name) + " takes a number of " + std::string(form.unit)
                + " from 1 to " + std::to_string(form.largest) + ", not \"" + given + "\"";
    };
    switch (option.valueKind) {
    case ValueKind::Choice:
        return isAmong(given, option.choices) ? "" : unexpected(given, option.choices);
    case ValueKind::Seconds:
        return notThat(kSeconds);
    case ValueKind::Pixels:
        return notThat(kPixels);
    case ValueKind::File:
        return given.empty() ? std::string(option.name) + " takes a file" : "";
    case ValueKind::None:
        break;
    }
    return "";
}

Result<void> checkOptions(const Arguments& arguments)
{
    for (const auto& [name, value] : arguments.options) {
        const Option& option = *findOption(name);
        if (arguments.command && !takesOption(*arguments.command, option))
            return usageError("\"" + std::string(arguments.command->name)
                    + "\" does not take the option \"" + name + "\"",
                arguments.command);
        if (const auto problem = valueProblem(option, value); !problem.empty())
            return usageError(problem, arguments.command);
    }
    return {};
}

Result<void> checkWords(const Arguments& arguments)
{
    const Command& command = *arguments.command;
    const auto& words = arguments.words;
    const bool takesMore = !command.words.empty() && command.words.back().isRepeated;
    if (words.size() > command.words.size() && !takesMore)
        return usageError("Unexpected argument \"" + words[command.words.size()] + "\" after \""
                + std::string(command.name) + "\"",
            &command);
    if (words.size() < command.fewestWords())
        return usageError(
            "\"" + std::string(command.name) + "\" needs more: " + usageLine(command), &command);
    for (std::size_t i = 0; i < words.size(); ++i) {
        const Word& word = command.words[std::min(i, command.words.size() - 1)];
        if (!isAmong(words[i], word.choices))
            return usageError(unexpected(words[i], word.choices), &command);
    }
    return {};
}

} // namespace

std::optional<std::chrono::seconds> Arguments::secondsOf(std::string_view option) const
{
    const auto number = numberIn(valueOf(option), kSeconds);
    return number ? std::optional(std::chrono::seconds(*number)) : std::nullopt;
}

std::optional<int> Arguments::pixelsOf(std::string_view option) const
{
    return numberIn(valueOf(option), kPixels);
}

Error unknownCommandError(const std::string& name)
{
    std::vector<std::string_view> names;
    for (const Command& command : commandTable())
        names.push_back(command.name);
    return usageError("Unknown command \"" + name + "\"" + suggestionText(name, names));
}

Result<Arguments> checkArguments(RawArguments raw)
{
    if (!raw.unknownOptions.empty())
        return unknownOption(raw.unknownOptions.front());
    Arguments arguments;
    arguments.options = std::move(raw.options);
    if (!raw.words.empty()) {
        arguments.command = findCommand(raw.words.front());
        if (!arguments.command)
            return unknownCommandError(raw.words.front());
        arguments.words.assign(raw.words.begin() + 1, raw.words.end());
    }
    TDW_TRY(checkOptions(arguments));
    if (arguments.has("--help") || arguments.has("--version"))
        return arguments;
    if (!arguments.command)
        return usageError("No command given");
    TDW_TRY(checkWords(arguments));
    return arguments;
}

} // namespace tdw::cli
