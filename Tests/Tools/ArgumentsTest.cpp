#include "CommandLine/Arguments.h"

#include "CommandLine/Help.h"
#include "Errors/ExitStatus.h"
#include "Support/Testing.h"

namespace tdw::cli {

namespace {

using namespace matchers;

Result<Arguments> parse(const std::vector<std::string>& texts)
{
    return checkArguments(TDW_TRY(splitArguments(texts)));
}

TEST(Arguments, OptionsMayStandAnywhere)
{
    for (const auto& texts : { std::vector<std::string> { "list", "--json" }, { "--json", "list" },
             { "--json", "list", "--json" }, { "--js", "list" } }) {
        const auto arguments = parse(texts);
        ASSERT_TRUE(arguments);
        EXPECT_EQ(arguments->command->name, "list");
        EXPECT_TRUE(arguments->has("--json"));
        EXPECT_FALSE(arguments->has("--direct"));
    }
    for (const auto& texts :
        { std::vector<std::string> { "completion", "--help" }, { "-h" }, { "--version" } })
        EXPECT_TRUE(parse(texts)) << "help is given, whatever else is missing";
}

TEST(Arguments, TheLastWordMayBeOneThatIsRepeated)
{
    EXPECT_TRUE(parse({ "companions" }));
    const auto arguments = parse({ "companions", "phone", "a", "b", "c" });
    ASSERT_TRUE(arguments);
    EXPECT_THAT(arguments->words, testing::ElementsAre("phone", "a", "b", "c"));
}

TEST(Arguments, WordsAreTakenAsTheyAre)
{
    // Each of these means something to the parser in another place.
    for (const std::string word :
        { "[a,b]", "{x}", "--json", "--", "-", "", "list", "++", "a=b" }) {
        const auto raw = splitArguments({ "help", "--", word });
        ASSERT_TRUE(raw) << word;
        EXPECT_THAT(raw->words, testing::ElementsAre("help", word));
        EXPECT_TRUE(raw->options.empty()) << word;
    }
}

TEST(Arguments, AWrongCommandLineIsQuotedInOneLineThatSaysWhatWasProbablyMeant)
{
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        { {}, "No command given; try 'tidewell --help'" },
        { { "lsit" }, "\"lsit\" (did you mean \"list\"?); try 'tidewell --help'" },
        { { "xyzzy" }, "Unknown command \"xyzzy\"; try 'tidewell --help'" },
        { { "list", "--jsno" }, "\"--jsno\" (did you mean \"--json\"?)" },
        { { "list", "-q=1" }, "Unknown option \"-q\"" },
        { { "list", "--json=yes" }, "The option \"--json\" takes no value" },
        { { "list", "more" }, "\"more\" after \"list\"; try 'tidewell list --help'" },
        { { "help", "--json" }, "\"help\" does not take the option \"--json\"" },
        { { "wifi", "x", "up" }, "Expected \"on\" or \"off\", not \"up\"; try 'tidewell wifi" },
        { { "info", "x", "--connection", "tcp" }, "\"network\" or \"any\", not \"tcp\"" },
        { { "info", "x", "--connection" }, "The option \"--connection\" takes a value" },
        { { "wallpaper", "x", "-o" }, "The option \"--output\" takes a value" },
        { { "pair", "x", "--timeout=-1" }, "from 1 to 3600, not \"-1\"" },
        { { "pair", "x", "--timeout", "1s" }, "from 1 to 3600, not \"1s\"" },
        { { "battery", "x", "--timeout=5" }, "\"battery\" does not take the option \"--timeout\"" },
        { { "wallpaper", "x", "--width", "0" }, "number of pixels from 1 to 10000, not \"0\"" },
        { { "wallpaper", "x", "-o", "" }, "--output takes a file" },
        { { "companions", "x", "--width=1" }, "\"companions\" does not take the option" },
        { { "info" }, "needs more: tidewell info DEVICE" },
        { { "completion" }, "needs more: tidewell completion bash|zsh|fish" },
        { { "completion", "tcsh" }, "\"fish\" or \"devices\", not \"tcsh\"" },
    };
    for (const auto& [texts, message] : rows) {
        const auto arguments = parse(texts);
        ASSERT_FALSE(arguments) << message;
        EXPECT_EQ(exitStatusOf(arguments.error()), ExitStatus::Usage);
        EXPECT_THAT(arguments.error().failureReason(), HasSubstr(message));
        EXPECT_THAT(arguments.error().failureReason(), Not(HasSubstr("\n")));
    }
}

TEST(Help, TheOverviewNamesEveryCommandOptionAndExitStatus)
{
    const auto text = overviewText();
    for (const Command& command : commandTable())
        EXPECT_THAT(text, HasSubstr("\n  " + usageLine(command).substr(9)));
    for (const Option& option : optionTable())
        EXPECT_THAT(text, HasSubstr(std::string(option.name)));
    for (const auto& [status, meaning] : exitStatusMeanings())
        EXPECT_THAT(text, HasSubstr("\n  " + std::to_string(static_cast<int>(status)) + " "));
    EXPECT_THAT(commandHelpText(*findCommand("list")), Not(HasSubstr("\n  completion")));
}

} // namespace

} // namespace tdw::cli
