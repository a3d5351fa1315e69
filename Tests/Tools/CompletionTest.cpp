#include "CommandLine/Completion.h"

#include "EndToEnd/SimulatorProcess.h"
#include "Support/Testing.h"

namespace tdw::cli {

namespace {

using namespace matchers;

/// Runs a program on a script.
ToolRun runOn(const std::string& script, std::vector<std::string> command)
{
    const TemporaryDirectory directory;
    std::ofstream(directory.path() / "script") << script;
    command.push_back(directory.path() / "script");
    return runCommandBounded(std::move(command));
}

/// What bash offers for the last of the words.
std::string bashOffers(const std::string& words, int index)
{
    return runOn(completionScript("bash")
            // What a device says of itself must not get through as a command for the shell.
            + "timeout() { printf '00AB-1\\tA $(touch /)\\n00AB-2\\n$(touch /)\\tB\\n'; }\n"
              "COMP_WORDS=("
            + words + ")\nCOMP_CWORD=" + std::to_string(index)
            + "\n_tidewell\necho \"${COMPREPLY[@]}\"\n",
        { "bash" })
        .output;
}

TEST(Completion, BashOffersCommandsOptionsChoicesAndDevices)
{
    EXPECT_EQ(bashOffers("tidewell li", 1), "list\n");
    EXPECT_EQ(bashOffers("tidewell --json li", 2), "list\n");
    EXPECT_EQ(bashOffers("tidewell list --j", 2), "--json\n");
    EXPECT_EQ(bashOffers("tidewell list ''", 2), "\n");
    EXPECT_EQ(bashOffers("tidewell completion ''", 2), "bash zsh fish devices\n");
    EXPECT_EQ(bashOffers("tidewell help compl", 2), "completion\n");
    EXPECT_EQ(bashOffers("tidewell companions ''", 2), "00AB-1 A\\ \\$\\(touch\\ /\\) 00AB-2\n");
    EXPECT_EQ(bashOffers("tidewell wallpaper -o /etc/passwd 00", 4), "00AB-1 00AB-2\n");
    EXPECT_EQ(bashOffers("tidewell wallpaper 00AB-1 -o /etc/os-rel", 4), "/etc/os-release\n");
}

TEST(Completion, FishOffersOptionsBeforeACommandAndWordsAfterAnOptionsValue)
{
    if (!std::filesystem::exists("/usr/bin/fish"))
        GTEST_SKIP() << "fish is not installed";
    const std::pair<std::string, std::string> rows[] = {
        { "tidewell --js", "--json\tWrite one JSON object instead of text\n" },
        { "tidewell --connection usb li", "list\tList the devices that can be reached now\n" },
        { "tidewell list --hom", "" },
        { "tidewell wallpaper --hom", "--home\tGet the wallpaper of the home screen\n" },
        { "tidewell wallpaper -o x 00", "00AB-1\tA\n" },
        { "tidewell wallpaper 00AB-1 00", "" },
    };
    for (const auto& [words, offered] : rows) {
        const auto run = runOn("function timeout; printf '00AB-1\\tA\\n'; end\n"
                + completionScript("fish") + "complete -C '" + words + "'\n",
            { "fish", "--no-config" });
        EXPECT_EQ(run.output, offered) << words;
    }
}

TEST(Completion, EveryScriptIsOneThatItsShellCanRead)
{
    int found = 0;
    for (const std::string shell : { "bash", "zsh", "fish" }) {
        const std::string script = completionScript(shell);
        for (const Command& command : commandTable())
            EXPECT_THAT(script, HasSubstr(std::string(command.name))) << shell;
        if (!std::filesystem::exists("/usr/bin/" + shell))
            continue;
        ++found;
        const auto run = runOn(script, { shell, shell == "fish" ? "--no-execute" : "-n" });
        EXPECT_EQ(run.termination.status, 0) << run.output;
    }
    EXPECT_GT(found, 0);
}

TEST(Completion, HelpTextsHoldNothingThatQuotesDoNotTakeCareOf)
{
    for (const Command& command : commandTable())
        EXPECT_EQ(command.help.find_first_of("\"[]:$`\\"), std::string_view::npos) << command.help;
    for (const Option& option : optionTable())
        EXPECT_EQ(option.help.find_first_of("\"[]:$`\\"), std::string_view::npos) << option.help;
}

} // namespace

} // namespace tdw::cli
