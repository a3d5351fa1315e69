#pragma once

#include "CapturedStream.h"
#include "Platform/System/Process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// How a command ended, and what it printed on both streams.
struct CommandOutcome {
    tdw::Termination termination;
    std::string output;
};

using CommandEnvironment = std::vector<std::pair<std::string, std::string>>;

inline std::string simulatorExecutable()
{
    return TIDEWELL_BUILD_DIR "/bin/tdwsimulator";
}

/// Runs a command, found as a shell finds it, and kills it where it takes too long.
inline CommandOutcome runCommandBounded(std::vector<std::string> words,
    const CommandEnvironment& environment = {},
    std::chrono::seconds bound = std::chrono::seconds(60))
{
    const tdw::FileHandle output(memfd_create("output", MFD_CLOEXEC));
    const tdw::FileHandle input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    tdw::LaunchOptions launch;
    launch.executable = "/usr/bin/env";
    launch.arguments = std::move(words);
    launch.environment = environment;
    launch.standardInput = input.descriptor();
    launch.standardOutput = output.descriptor();
    launch.standardError = output.descriptor();
    launch.ownProcessGroup = true;
    auto process = tdw::Process::launch(launch);
    if (!process)
        return { { -1, false }, process.error().debugDescription() };
    auto termination = process->waitUntilExit(bound);
    if (!termination) {
        process->sendSignal(SIGKILL);
        termination = process->waitUntilExit();
    }
    lseek(output.descriptor(), 0, SEEK_SET);
    const auto bytes = tdw::readDescriptorToEnd(output.descriptor());
    return { *termination,
        bytes ? std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size()) : "" };
}

/// Simulated devices for as long as it lives.
class SimulatorProcess {
public:
    /// @param scenario the text of a scenario file; empty: the household
    /// @param options further options of "serve"
    explicit SimulatorProcess(
        std::string_view scenario = {}, const std::vector<std::string>& options = {})
    {
        std::string name = testing::TempDir() + "tdwsimulator-test-XXXXXX";
        m_directory = mkdtemp(name.data());
        std::vector<std::string> arguments { "serve", "--directory", m_directory.string() };
        if (!scenario.empty()) {
            const auto file = m_directory / "scenario.json";
            std::ofstream(file) << scenario;
            arguments.insert(arguments.end(), { "--scenario", file.string() });
        }
        arguments.insert(arguments.end(), options.begin(), options.end());
        auto pipe = tdw::Pipe::create();
        tdw::LaunchOptions launch;
        launch.executable = simulatorExecutable();
        launch.arguments = std::move(arguments);
        launch.standardOutput = pipe->writer.descriptor();
        auto process = tdw::Process::launch(launch);
        pipe->writer.close();
        // The line comes when the sockets are there; its end comes anyway when serving fails.
        char line[1024];
        const ssize_t length = process ? read(pipe->reader.descriptor(), line, sizeof line) : 0;
        if (length <= 0)
            return;
        m_process = std::move(*process);
        const std::string_view announcement(line, static_cast<std::size_t>(length));
        const std::size_t begin = announcement.find("\"mux\":\"") + 7;
        m_multiplexer = announcement.substr(begin, announcement.find('"', begin) - begin);
    }
    SimulatorProcess(const SimulatorProcess&) = delete;
    SimulatorProcess& operator=(const SimulatorProcess&) = delete;

    ~SimulatorProcess()
    {
        if (m_process) {
            m_process->sendSignal(SIGTERM);
            (void)m_process->waitUntilExit(std::chrono::seconds(10));
        }
        std::error_code error;
        std::filesystem::remove_all(m_directory, error);
    }

    bool isRunning() const { return m_process.has_value(); }

    std::filesystem::path directory() const { return m_directory; }
    std::filesystem::path multiplexer() const { return m_multiplexer; }

    /// What makes software use the simulated devices.
    CommandEnvironment environment() const
    {
        return { { "USBMUXD_SOCKET_ADDRESS", "UNIX:" + m_multiplexer.string() },
            { "TDWSIMULATOR_CONTROL", (m_directory / "control").string() },
            { "LC_ALL", "C.UTF-8" } };
    }

    CommandOutcome run(
        std::vector<std::string> words, std::chrono::seconds bound = std::chrono::seconds(60)) const
    {
        return runCommandBounded(std::move(words), environment(), bound);
    }

    /// Sends a request to the control socket; the answer is the output.
    CommandOutcome control(std::vector<std::string> words) const
    {
        words.insert(words.begin(), { simulatorExecutable(), "control" });
        return run(std::move(words));
    }

private:
    std::filesystem::path m_directory;
    std::filesystem::path m_multiplexer;
    std::optional<tdw::Process> m_process;
};
