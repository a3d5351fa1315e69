#pragma once

#include "Device/Channel.h"
#include "Model/Simulation.h"
#include "Mux/MuxFrame.h"

#include <asio/io_context.hpp>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

namespace tdw::simulator {

/// Listens to the daemon as any client does, and logs what it announces under the name of the
/// device, so that tests can wait for it.
class DaemonListener final : public ChannelHandler {
public:
    /// Begins to listen, until the daemon ends. Nothing happens where it cannot be reached.
    static void start(
        asio::io_context& context, Simulation& simulation, const std::filesystem::path& socket);

    explicit DaemonListener(Simulation& simulation)
        : m_simulation(simulation)
    {
    }

    void received(std::span<const std::byte> bytes) override;

private:
    void log(const Dictionary& message);

    Simulation& m_simulation;
    MuxFrameDecoder m_decoder;
    std::map<std::uint64_t, std::string> m_devices;
};

} // namespace tdw::simulator
