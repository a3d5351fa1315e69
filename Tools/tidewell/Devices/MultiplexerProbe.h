#pragma once

#include "Devices/MultiplexerAddress.h"
#include "Platform/Error.h"

#include <chrono>
#include <string>

namespace tdw::cli {

/// What became of asking the multiplexer itself for its devices.
enum class MultiplexerState {
    /// There is no socket, so the multiplexer does not run.
    Absent,
    /// There is one, but this user may not use it.
    NotPermitted,
    /// Nobody listens on it: a multiplexer that died left it behind, or none runs on that port.
    NobodyListens,
    /// It cannot be reached for another reason.
    Unreachable,
    /// It accepts a connection, or not even that, and then says nothing.
    Silent,
    /// Something answers, but it is no multiplexer.
    Nonsense,
    /// It answers as it should.
    Working,
};

struct MultiplexerReport {
    MultiplexerAddress address;
    MultiplexerState state = MultiplexerState::Unreachable;
    /// What the system says of a failed connection.
    std::string systemMessage {};
};

/// The most time that asking a multiplexer takes: much more than one on a loaded machine needs.
inline constexpr std::chrono::milliseconds kMultiplexerPatience { 3000 };

/// Connects and asks for the device list.
MultiplexerReport probeMultiplexer(
    const MultiplexerAddress& address, std::chrono::milliseconds patience = kMultiplexerPatience);

/// Whether this computer is paired with a device, as far as it knows itself. The device is not
/// asked; where the multiplexer cannot be asked either, the answer is no.
bool holdsPairing(const MultiplexerAddress& address, std::string_view udid);

/// The error for people about a device list that could not be had.
/// @param cause what the device library said
Error multiplexerError(const MultiplexerReport& report, const Error& cause);

} // namespace tdw::cli
