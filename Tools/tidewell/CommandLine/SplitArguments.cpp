#include "CommandLine/Arguments.h"
#include "Errors/CommandLineError.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>

// The one file that includes CLI11, which takes seconds to compile.

namespace tdw::cli {

namespace {

struct Declared {
    const Option* option;
    CLI::Option* parsed;
    std::string value;
};

void declare(CLI::App& parser, Declared& declared)
{
    const Option& option = *declared.option;
    std::string names(option.name);
    if (!option.shortName.empty())
        names = std::string(option.shortName) + "," + names;
    // Given twice, the last value counts, as with most tools.
    if (option.valueKind == ValueKind::None)
        declared.parsed = parser.add_flag(names);
    else
        declared.parsed = parser.add_option(names, declared.value)->take_last();
}

/// The parser takes "--json=no" for an option without a value too, and calls every such value given
/// without "=" "true".
bool hasUncalledForValue(const Declared& declared)
{
    const auto& results = declared.parsed->results();
    return declared.option->valueKind == ValueKind::None
        && std::any_of(results.begin(), results.end(),
            [](const std::string& result) { return result != "true"; });
}

/// Words and unknown options come back together; "--" tells where only words follow.
void sortLeftovers(std::vector<std::string> leftovers, RawArguments& raw)
{
    bool onlyWords = false;
    for (std::string& leftover : leftovers) {
        if (!onlyWords && leftover == "--")
            onlyWords = true;
        else if (!onlyWords && leftover.size() > 1 && leftover.front() == '-')
            raw.unknownOptions.push_back(std::move(leftover));
        else
            raw.words.push_back(std::move(leftover));
    }
}

} // namespace

Result<RawArguments> splitArguments(const std::vector<std::string>& texts)
{
    // Help and errors have our own form. Words are not declared to the parser, which would take a
    // word such as "[a,b]" apart.
    CLI::App parser;
    parser.set_help_flag();
    parser.allow_extras();

    std::vector<Declared> all;
    for (const Option& option : optionTable())
        all.push_back({ &option, nullptr, {} });
    for (Declared& declared : all)
        declare(parser, declared);
    try {
        parser.parse(std::vector<std::string>(texts.rbegin(), texts.rend()));
    } catch (const CLI::ParseError& error) {
        return commandLineError({ .status = ExitStatus::Usage, .reason = error.what() });
    }

    RawArguments raw;
    for (const Declared& declared : all) {
        if (hasUncalledForValue(declared))
            return commandLineError({ .status = ExitStatus::Usage,
                .reason = "The option \"" + std::string(declared.option->name)
                    + "\" takes no value; try 'tidewell --help'" });
        if (declared.parsed->count() > 0)
            raw.options.emplace(declared.option->name, declared.value);
    }
    sortLeftovers(parser.remaining(), raw);
    return raw;
}

} // namespace tdw::cli
