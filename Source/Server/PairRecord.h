#pragma once

#include <optional>

namespace tdw {

/// Whether the multiplexer has a record, which the device library can use, of this host's pairing
/// with a device. The device is not asked. Blocks for as long as the library waits for the
/// multiplexer.
///
/// @return none where the multiplexer does not say
std::optional<bool> hasPairRecord(const char* udid);

} // namespace tdw
