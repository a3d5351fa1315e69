#pragma once

#include "Model/Scenario.h"
#include "Model/Simulation.h"
#include "Trust/Pairing.h"

#include <cstdlib>

/// Two devices that are there, for targets that talk to the simulator.
inline tdw::simulator::Simulation simulatedWorld()
{
    static const auto keys = tdw::simulator::SimulatorKeys::load(TIDEWELL_SIMULATOR_KEYS);
    static const auto scenario = tdw::simulator::scenarioFromText(R"({ "devices": [
        { "udid": "00008120-0011223344556677", "trust": "asks", "state": "unpaired" },
        { "udid": "00008030-AABBCCDDEEFF0011", "state": "unpaired" } ] })",
        "/nonexistent");
    if (!keys || !scenario)
        std::abort();
    // No record can be saved here, so that one input leaves nothing to the next.
    tdw::simulator::Simulation simulation(*scenario, *keys, "/nonexistent");
    if (!simulation.attachInitialDevices())
        std::abort();
    return simulation;
}
