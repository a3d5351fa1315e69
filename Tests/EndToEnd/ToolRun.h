#pragma once

#include "Host/RequestRunner.h"
#include "Platform/Values/Data.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

inline const std::filesystem::path kBuild = TIDEWELL_BUILD_DIR;

/// What the command line wrote, and how it ended.
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
inline ToolRun tidewell(
    std::vector<std::string> arguments, const std::string& program = kBuild / "bin/tidewell")
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
