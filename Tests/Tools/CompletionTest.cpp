#include "CommandLine/Completion.h"

#include "Platform/System/FileHandle.h"
#include "Platform/System/Process.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

namespace tdw::cli {

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

struct ShellRun {
    int status = -1;
    std::string output;
};

/// Runs a program on a text that it reads as a script.
ShellRun runOn(
    const std::string& script, const std::string& program, std::vector<std::string> arguments = {})
{
    auto input = Pipe::create();
    auto output = Pipe::create();
    LaunchOptions options;
    options.executable = program;
    options.arguments = std::move(arguments);
    options.standardInput = input->reader.descriptor();
    options.standardOutput = output->writer.descriptor();
    auto process = Process::launch(options);
    EXPECT_TRUE(process);
    input->reader.close();
    output->writer.close();
    EXPECT_TRUE(input->writer.write(std::as_bytes(std::span(script))));
    input->writer.close();
    const auto bytes = output->reader.readToEnd();
    const auto end = process->waitUntilExit(30s);
    return { end ? end->status : -1,
        std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size()) };
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
        "/bin/bash")
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

TEST(Completion, EveryScriptIsOneThatItsShellCanRead)
{
    int found = 0;
    for (const std::string shell : { "bash", "zsh", "fish" }) {
        const std::string script = completionScript(shell);
        for (const Command& command : commandTable())
            EXPECT_THAT(script, HasSubstr(std::string(command.name))) << shell;
        const std::string program = "/usr/bin/" + shell;
        if (access(program.c_str(), X_OK) != 0)
            continue;
        ++found;
        const std::vector<std::string> check { shell == "fish" ? "--no-execute" : "-n" };
        EXPECT_EQ(runOn(script, program, check).status, 0) << shell;
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
