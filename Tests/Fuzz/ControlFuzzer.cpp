#include "Control/ControlProtocol.h"
#include "Fuzz.h"
#include "SimulatedWorld.h"
#include "Support/LineSplitter.h"

/// Each line is answered, right or wrong.
void fuzz(std::span<const std::byte> bytes)
{
    auto simulation = simulatedWorld();
    tdw::simulator::ControlProtocol protocol(simulation, [] { return tdw::Result<void>(); });
    tdw::LineSplitter splitter;
    splitter.append(bytes);
    while (const auto line = splitter.next()) {
        const auto answer = protocol.answer(*line);
        if (const auto* json = std::get_if<tdw::simulator::Json>(&answer))
            require(json->contains("ok"));
    }
}
