#pragma once

#include "Host/RequestRunner.h"
#include "Platform/System/FileHandle.h"
#include "Platform/System/Process.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Value.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What a server left behind, with its envelope taken apart.
struct ServerAnswer {
    std::string output;
    std::string standardError;
    std::int32_t status = 0;
    std::chrono::milliseconds duration { 0 };

    std::optional<tdw::Value> payload;
    std::optional<tdw::Value> deviceID;
    std::optional<tdw::Error> error;

    /// The value under a key of the payload.
    std::optional<tdw::Value> operator[](std::string_view key) const;

    /// The payload's warnings, as errors.
    std::vector<tdw::Error> warnings() const;
};

/// A running simulator, with the environment of this process pointing at it.
///
/// One at a time, as the environment is one. Everything goes with the object: the simulator, its
/// directory and the variables.
class SimulatedDevices {
public:
    /// @param scenario the text of a scenario file; empty for the default household
    explicit SimulatedDevices(std::string_view scenario = {});
    SimulatedDevices(const SimulatedDevices&) = delete;
    SimulatedDevices& operator=(const SimulatedDevices&) = delete;
    ~SimulatedDevices();

    /// Sends one request, as JSON text, to the simulator and returns its answer. A request that is
    /// refused fails the test.
    std::string control(std::string_view request) const;

    /// Runs one of the real servers to its end.
    static ServerAnswer run(const std::string& server, std::vector<std::string> arguments = {});

    /// Runs any program and returns its standard output.
    static std::string outputOf(const std::string& program, std::vector<std::string> arguments);

    /// Sends a signal to the simulator itself.
    void signal(int number) { m_simulator->sendSignal(number); }

    std::filesystem::path directory() const { return m_directory; }

private:
    std::filesystem::path m_directory;
    std::optional<tdw::Process> m_simulator;
    tdw::FileHandle m_control;
};
