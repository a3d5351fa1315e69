#pragma once

#include "EndToEnd/PrivateRuntime.h"
#include "EndToEnd/SimulatedDevices.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

inline const std::string kTool = TIDEWELL_BUILD_DIR "/bin/tidewell";

// The devices of the default household.
inline const std::string kPhone = "00008130-00FACADE0010001C";
inline const std::string kLockedTablet = "00008103-00FACADE0011003A";
inline const std::string kStranger = "00008110-00FACADE0012002E";

/// The simulated household, with a service of its own.
class Household : PrivateRuntime, public SimulatedDevices { };

struct ToolRun {
    std::string output;
    std::string standardError;
    tdw::Termination termination;
};

inline std::string textOf(const tdw::Data& data)
{
    return { reinterpret_cast<const char*>(data.data()), data.size() };
}

/// Runs the tool as users do.
inline ToolRun tidewell(std::vector<std::string> arguments, const std::string& program = kTool)
{
    tdw::ServerRunOptions options;
    options.executable = program;
    options.serverName = "tidewell";
    options.arguments = std::move(arguments);
    options.timeout = std::chrono::seconds(60);
    const auto outcome = tdw::runServer(std::move(options));
    EXPECT_TRUE(outcome && !outcome->timedOut);
    return { textOf(outcome->output), textOf(outcome->standardError), outcome->termination };
}

/// The tool under way, with its standard error in a pipe.
struct RunningTool {
    explicit RunningTool(
        std::vector<std::string> arguments, std::optional<int> standardOutput = std::nullopt)
        : pipe(*tdw::Pipe::create())
    {
        tdw::LaunchOptions options;
        options.executable = kTool;
        options.arguments = std::move(arguments);
        options.standardOutput
            = standardOutput ? standardOutput : std::optional(pipe.writer.descriptor());
        options.standardError = pipe.writer.descriptor();
        auto launched = tdw::Process::launch(options);
        EXPECT_TRUE(launched);
        process = *std::move(launched);
        pipe.writer.close();
    }

    /// What it wrote, and how it ended.
    ToolRun finish()
    {
        const auto text = textOf(*pipe.reader.readToEnd());
        return { text, text, process->waitUntilExit() };
    }

    /// The next line that it writes, without its end; waits for it, for a bounded time.
    std::string readLine()
    {
        std::string line;
        pollfd entry { pipe.reader.descriptor(), POLLIN, 0 };
        char character = 0;
        while (poll(&entry, 1, 20'000) == 1 && read(pipe.reader.descriptor(), &character, 1) == 1
            && character != '\n')
            line += character;
        return line;
    }

    tdw::Pipe pipe;
    std::optional<tdw::Process> process;
};
