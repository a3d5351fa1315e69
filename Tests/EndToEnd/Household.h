#pragma once

#include "EndToEnd/PrivateRuntime.h"
#include "EndToEnd/SimulatedDevices.h"
#include "Support/Testing.h"

// The devices of the default scenario.
inline const std::string kPhone = "00008130-00FACADE0010001C";
inline const std::string kLockedTablet = "00008103-00FACADE0011003A";
inline const std::string kStranger = "00008110-00FACADE0012002E";
inline const std::string kWatch = "00008301-00FACADE00130026";

/// Simulated devices with a service of their own, which starts with the first request.
class Household : PrivateRuntime, public SimulatedDevices {
public:
    explicit Household(std::string_view scenario = {})
        : SimulatedDevices(scenario)
    {
    }
};
