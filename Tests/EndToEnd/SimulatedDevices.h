#pragma once

#include "EndToEnd/SimulatorProcess.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/Value.h"

/// What a server left behind, with its envelope taken apart.
struct ServerAnswer {
    std::string output;
    std::string standardError;
    std::int32_t status = 0;
    std::chrono::milliseconds duration { 0 };

    std::optional<tdw::Value> payload {};
    std::optional<tdw::Value> deviceID {};
    std::optional<tdw::Error> error {};

    /// The value under a key of the payload.
    std::optional<tdw::Value> operator[](std::string_view key) const;

    /// The payload's warnings, as errors.
    std::vector<tdw::Error> warnings() const;
};

/// A running simulator, with the environment of this process pointing at it: one at a time, as the
/// environment is one.
class SimulatedDevices : public SimulatorProcess {
public:
    /// @param scenario the text of a scenario file; empty for the default household
    explicit SimulatedDevices(std::string_view scenario = {});
    SimulatedDevices(const SimulatedDevices&) = delete;
    SimulatedDevices& operator=(const SimulatedDevices&) = delete;
    ~SimulatedDevices();

    /// Sends one request, as JSON text, to the simulator and returns its answer. A request that is
    /// refused fails the test.
    std::string control(std::string_view request) const;

    /// The same for a command whose members are texts.
    std::string control(const std::string& command,
        std::initializer_list<std::pair<const char*, std::string>> members) const;

    void attach(const std::string& device, const std::string& connection = "usb") const;
    void detach(const std::string& device) const;
    /// @param members as in `"at":"mux","fault":"absent"`
    void inject(const std::string& members) const;
    std::string log(const std::string& members) const;
    void clearFaults() const;

    /// Runs one of the real servers to its end.
    static ServerAnswer run(const std::string& server, std::vector<std::string> arguments = {});

private:
    tdw::FileHandle m_control;
};
