#pragma once

#include "Control/ControlProtocol.h"
#include "Device/LocalListener.h"
#include "Platform/Values/Result.h"

#include <asio/io_context.hpp>

#include <filesystem>

namespace tdw::simulator {

/// The control socket: one JSON object a line in, one JSON object a line out, in order. A client
/// that waits gets its line when what it waits for has happened, or its bound has passed.
///
/// Used by the thread that runs the context; must not outlive the simulation.
class ControlServer {
public:
    ControlServer(asio::io_context& context, Simulation& simulation, ControlProtocol protocol);

    /// Errors name the path.
    Result<void> open(const std::filesystem::path& path);

private:
    void take(asio::local::stream_protocol::socket socket);

    Simulation& m_simulation;
    ControlProtocol m_protocol;
    LocalListener m_listener;
};

} // namespace tdw::simulator
