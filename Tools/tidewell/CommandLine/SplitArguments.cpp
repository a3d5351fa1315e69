#include "CommandLine/Arguments.h"
#include "Errors/CommandLineError.h"

#include <getopt.h>

namespace tdw::cli {

namespace {

/// What `getopt_long` returns for the option at an index; beyond all characters.
constexpr int kFirstOption = 256;

/// The options as `getopt_long` takes them.
struct Declarations {
    /// "-": words come in between; ":": a missing value is told apart.
    std::string shortOptions = "-:";
    std::vector<option> longOptions;

    Declarations()
    {
        for (const Option& each : optionTable()) {
            const bool hasValue = each.valueKind != ValueKind::None;
            longOptions.push_back({ each.name.data() + 2, hasValue ? 1 : 0, nullptr,
                kFirstOption + static_cast<int>(longOptions.size()) });
            if (!each.shortName.empty())
                shortOptions.append(each.shortName.substr(1)) += hasValue ? ":" : "";
        }
        longOptions.push_back({});
    }
};

/// The option that `getopt_long` returned or complains of, or null.
const Option* optionOf(int code)
{
    if (code >= kFirstOption)
        return &optionTable()[static_cast<std::size_t>(code - kFirstOption)];
    return findOption(std::string("-") + static_cast<char>(code));
}

Error optionError(const Option& option, const std::string& problem)
{
    return commandLineError({ .status = ExitStatus::Usage,
        .reason = "The option \"" + std::string(option.name) + "\" " + problem
            + "; try 'tidewell --help'" });
}

} // namespace

Result<RawArguments> splitArguments(const std::vector<std::string>& texts)
{
    const Declarations declarations;
    std::vector<std::string> copies { "tidewell" };
    copies.insert(copies.end(), texts.begin(), texts.end());
    std::vector<char*> argv;
    for (std::string& copy : copies)
        argv.push_back(copy.data());
    argv.push_back(nullptr);
    const int argc = static_cast<int>(copies.size());

    RawArguments raw;
    optind = 0; // Starts over, however often this runs.
    while (true) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread reads the command line
        const int code = getopt_long(argc, argv.data(), declarations.shortOptions.c_str(),
            declarations.longOptions.data(), nullptr);
        if (code < 0)
            break;
        if (code == 1) {
            raw.words.emplace_back(optarg);
        } else if (code == ':') {
            return optionError(*optionOf(optopt), "takes a value");
        } else if (code != '?') {
            // Given twice, the last value counts, as with most tools.
            raw.options.insert_or_assign(
                std::string(optionOf(code)->name), optarg ? optarg : std::string());
        } else if (optopt >= kFirstOption) {
            return optionError(*optionOf(optopt), "takes no value");
        } else {
            raw.unknownOptions.push_back(
                optopt ? "-" + std::string(1, static_cast<char>(optopt)) : argv[optind - 1]);
        }
    }
    raw.words.insert(raw.words.end(), copies.begin() + optind, copies.end());
    return raw;
}

} // namespace tdw::cli
