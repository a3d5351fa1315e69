#pragma once

#include "EndToEnd/Household.h"
#include "EndToEnd/ToolRun.h"
#include "Platform/System/Process.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// The tool under way, with its standard error in a pipe.
struct RunningTool {
    explicit RunningTool(
        std::vector<std::string> arguments, std::optional<int> standardOutput = std::nullopt)
        : pipe(*tdw::Pipe::create())
    {
        tdw::LaunchOptions options;
        options.executable = kBuild / "bin/tidewell";
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

    /// Reads lines until one holds a passage; returns that one, or the last one.
    std::string lineWith(const std::string& passage)
    {
        std::string line;
        do {
            line = readLine();
        } while (!line.empty() && line.find(passage) == line.npos);
        return line;
    }

    tdw::Pipe pipe;
    std::optional<tdw::Process> process;
};
