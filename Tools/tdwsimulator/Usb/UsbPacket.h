#pragma once

#include "Platform/Values/Value.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace tdw::simulator {

/// What a packet of the multiplexer's USB protocol is about.
enum class UsbProtocol : std::uint32_t {
    Version = 0,
    /// Texts for the host's log.
    Control = 1,
    Setup = 2,
    /// The protocol number of TCP.
    Stream = 6,
};

/// One packet on the bulk pipes.
///
///     0          4        8       12     14     16
///     | protocol | length | magic | sent | seen | content …    numbers are big-endian
///
/// Packets before the version is agreed on end after `length`, which counts the whole packet.
struct UsbPacket {
    UsbProtocol protocol = UsbProtocol::Version;
    Data content;
    bool operator==(const UsbPacket&) const = default;
};

/// Reads one packet; none where it is too short or its length is not the one it names.
/// @param isNumbered whether the version has been agreed on
std::optional<UsbPacket> decodeUsbPacket(std::span<const std::byte> bytes, bool isNumbered);

/// The counters of the packets that went each way.
struct UsbCounters {
    std::uint16_t sent = 0;
    std::uint16_t seen = 0;
};

/// @param counters none before the version is agreed on
Data encodeUsbPacket(const UsbPacket& packet, const std::optional<UsbCounters>& counters);

/// A segment of one stream: TCP's header without options, and what it carries. Windows count in
/// units of 256 bytes.
struct UsbSegment {
    static constexpr std::uint8_t kFinish = 0x01;
    static constexpr std::uint8_t kOpen = 0x02;
    static constexpr std::uint8_t kReset = 0x04;
    static constexpr std::uint8_t kAcknowledge = 0x10;

    std::uint16_t source = 0;
    std::uint16_t destination = 0;
    std::uint32_t sequence = 0;
    std::uint32_t acknowledged = 0;
    std::uint8_t flags = 0;
    std::uint16_t window = 0;
    Data payload {};
    bool operator==(const UsbSegment&) const = default;
};

std::optional<UsbSegment> decodeUsbSegment(std::span<const std::byte> content);
Data encodeUsbSegment(const UsbSegment& segment);

} // namespace tdw::simulator
