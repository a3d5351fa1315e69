#pragma once

#include "Host/RequestRunner.h"
#include "Support/Testing.h"

inline const std::filesystem::path kBuild = TIDEWELL_BUILD_DIR;

/// What a program wrote, and how it ended.
struct ToolRun {
    std::string output;
    std::string standardError;
    tdw::Termination termination;
};

/// Runs a program to its end, within a bound that no working system needs.
inline ToolRun runToEnd(const std::filesystem::path& program, std::vector<std::string> arguments)
{
    tdw::ServerRunOptions options;
    options.executable = program;
    options.serverName = program.filename();
    options.arguments = std::move(arguments);
    options.timeout = std::chrono::seconds(100);
    const auto outcome = tdw::runServer(std::move(options));
    EXPECT_TRUE(outcome) << outcome.error().failureReason();
    if (!outcome)
        return {};
    EXPECT_FALSE(outcome->timedOut) << program << " does not end by itself";
    return { textOf(outcome->output), textOf(outcome->standardError), outcome->termination };
}

/// Runs the tool as users do.
inline ToolRun tidewell(
    std::vector<std::string> arguments, const std::string& program = kBuild / "bin/tidewell")
{
    return runToEnd(program, std::move(arguments));
}

/// Runs the tool where it fails: with this exit status, and with words on standard error.
inline ToolRun expectFailure(std::vector<std::string> arguments, int status,
    const testing::Matcher<const std::string&>& words,
    const std::string& program = kBuild / "bin/tidewell")
{
    SCOPED_TRACE(testing::PrintToString(arguments));
    const auto run = tidewell(std::move(arguments), program);
    EXPECT_EQ(run.termination.status, status);
    EXPECT_THAT(run.standardError, words);
    return run;
}
