#pragma once

#include "EndToEnd/Household.h"
#include "EndToEnd/ToolRun.h"
#include "Platform/System/Process.h"
#include "Support/Testing.h"

/// The tool, or another program, under way, with its standard error in a pipe.
struct RunningTool {
    explicit RunningTool(std::vector<std::string> arguments,
        std::optional<int> standardOutput = std::nullopt,
        const std::string& program = kBuild / "bin/tidewell")
    {
        auto launched = tdw::Process::launch({ .executable = program,
            .arguments = std::move(arguments),
            .standardOutput = standardOutput.value_or(pipe.writer.descriptor()),
            .standardError = pipe.writer.descriptor() });
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
    std::string readLine() { return ::readLine(pipe.reader.descriptor()); }

    /// Reads lines until one holds a passage; returns that one, or the last one.
    std::string lineWith(const std::string& passage)
    {
        std::string line;
        do {
            line = readLine();
        } while (!line.empty() && line.find(passage) == line.npos);
        return line;
    }

    tdw::Pipe pipe = *tdw::Pipe::create();
    std::optional<tdw::Process> process;
};
