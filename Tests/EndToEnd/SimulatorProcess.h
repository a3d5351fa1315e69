#pragma once

#include "EndToEnd/ToolRun.h"
#include "Platform/System/Process.h"
#include "Support/TemporaryDirectory.h"
#include "Support/Testing.h"

#include <sys/mman.h>

using CommandEnvironment = std::vector<std::pair<std::string, std::string>>;

inline const std::string kSimulator = kBuild / "bin/tdwsimulator";

/// Runs a command, found as a shell finds it, and kills it where it takes too long. The output is
/// that on both streams.
inline ToolRun runCommandBounded(std::vector<std::string> words,
    const CommandEnvironment& environment = {},
    std::chrono::seconds bound = std::chrono::seconds(100))
{
    tdw::FileHandle output(memfd_create("output", MFD_CLOEXEC));
    const tdw::FileHandle input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    auto process = tdw::Process::launch({ .executable = "/usr/bin/env",
        .arguments = std::move(words),
        .environment = environment,
        .standardInput = input.descriptor(),
        .standardOutput = output.descriptor(),
        .standardError = output.descriptor(),
        .ownProcessGroup = true });
    if (!process)
        return { process.error().debugDescription(), {}, { -1, false } };
    auto termination = process->waitUntilExit(bound);
    if (!termination) {
        process->sendSignal(SIGKILL);
        termination = process->waitUntilExit();
    }
    lseek(output.descriptor(), 0, SEEK_SET);
    return { textOf(*output.readToEnd()), {}, *termination };
}

/// Simulated devices for as long as it lives.
class SimulatorProcess {
public:
    /// @param scenario the text of a scenario file; empty: the household
    /// @param options further options of "serve"
    explicit SimulatorProcess(
        std::string_view scenario = {}, const std::vector<std::string>& options = {})
    {
        std::vector<std::string> arguments { "serve", "--directory", directory() };
        if (!scenario.empty()) {
            const auto file = directory() / "scenario.json";
            std::ofstream(file) << scenario;
            arguments.insert(arguments.end(), { "--scenario", file });
        }
        arguments.insert(arguments.end(), options.begin(), options.end());
        auto pipe = tdw::Pipe::create();
        auto process = tdw::Process::launch({ .executable = kSimulator,
            .arguments = std::move(arguments),
            .standardOutput = pipe->writer.descriptor() });
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
        if (!m_process)
            return;
        if (const auto ended = m_process->waitUntilExit(std::chrono::seconds(0)))
            ADD_FAILURE() << "the simulator has ended by itself, status " << ended->status;
        m_process->sendSignal(SIGTERM);
        (void)m_process->waitUntilExit(std::chrono::seconds(10));
    }

    bool isRunning() const { return m_process.has_value(); }

    const std::filesystem::path& directory() const { return m_directory.path(); }
    std::filesystem::path multiplexer() const { return m_multiplexer; }

    /// What makes software use the simulated devices.
    CommandEnvironment environment() const
    {
        return { { "USBMUXD_SOCKET_ADDRESS", "UNIX:" + m_multiplexer.string() },
            { "TDWSIMULATOR_CONTROL", directory() / "control" }, { "LC_ALL", "C.UTF-8" } };
    }

    ToolRun run(std::vector<std::string> words) const
    {
        return runCommandBounded(std::move(words), environment());
    }

    /// Sends a request to the control socket; the answer is the output.
    ToolRun control(std::vector<std::string> words) const
    {
        words.insert(words.begin(), { kSimulator, "control" });
        return run(std::move(words));
    }

    /// Sends a signal to the simulator itself.
    void signal(int number) { m_process->sendSignal(number); }

private:
    const TemporaryDirectory m_directory;
    std::filesystem::path m_multiplexer;
    std::optional<tdw::Process> m_process;
};
