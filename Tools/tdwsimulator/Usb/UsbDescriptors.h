#pragma once

#include "Model/SimulatedDevice.h"
#include "Platform/Values/Value.h"

#include <cstdint>
#include <optional>
#include <span>

namespace tdw::simulator {

/// The device descriptor and all configuration descriptors of a device, one after the other.
///
/// As phones do, it has several configurations: a camera alone (the one it begins with), and from
/// the third on the multiplexer's interface as well.
Data usbDescriptors(const SimulatedDevice& device);

/// The answer to a control transfer on endpoint 0, or none where the device stalls.
/// @param setup the eight bytes of the setup packet
std::optional<Data> answerControl(const SimulatedDevice& device, std::span<const std::byte> setup);

} // namespace tdw::simulator
