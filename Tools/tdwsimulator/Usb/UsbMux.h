#pragma once

#include "Usb/UsbPacket.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>

namespace tdw::simulator {

/// Names one stream: the host's port is in the upper half, the device's in the lower.
using UsbStream = std::uint32_t;

/// What a `UsbMux` needs from the owner of the pipes and the services.
class UsbMuxHost {
public:
    UsbMuxHost() = default;
    UsbMuxHost(const UsbMuxHost&) = delete;
    UsbMuxHost& operator=(const UsbMuxHost&) = delete;
    virtual ~UsbMuxHost() = default;

    /// Sends one packet to the host, as one bulk transfer.
    virtual void transmit(Data packet) = 0;

    /// Whether the device may answer the first packet; else it stays silent.
    virtual bool greets() = 0;

    /// The host opens a stream to a port of the device: says whether something listens there.
    virtual bool opened(UsbStream stream, std::uint16_t port) = 0;

    virtual void received(UsbStream stream, std::span<const std::byte> bytes) = 0;

    /// The host has ended the stream.
    virtual void ended(UsbStream stream) = 0;
};

/// The device's side of the multiplexer's protocol on one pair of bulk pipes: greeting, then
/// streams in TCP's manner over packets that neither get lost nor change places.
///
/// Given packets, says packets; owns no socket and no clock.
///
///     host    version 2 ──►  ◄── version 2        setup ──►
///     stream  SYN ──►  ◄── SYN ACK  ACK ──►       data and ACK either way, within the
///             RST ──► or ◄── RST                  other side's window
class UsbMux {
public:
    /// As much as one packet carries: long ones need three reads of the daemon's.
    static constexpr std::size_t kMaximumPayload = 0x8000;

    /// How much a host may send unacknowledged.
    static constexpr std::uint32_t kWindow = 0x20000;

    explicit UsbMux(UsbMuxHost& host)
        : m_host(host)
    {
    }

    /// One bulk transfer from the host. A packet that makes no sense is dropped.
    void receive(std::span<const std::byte> transfer);

    /// Sends on a stream what fits the host's window, and the rest when it has room.
    void send(UsbStream stream, std::span<const std::byte> bytes);

    /// Ends a stream once everything has been sent.
    void end(UsbStream stream);

private:
    struct StreamState {
        /// Sequence number of the next byte to the host.
        std::uint32_t sent = 0;
        /// The next byte that the host expects.
        std::uint32_t acknowledged = 0;
        /// Sequence number of the next byte from the host.
        std::uint32_t received = 0;
        /// The host's window, in bytes.
        std::uint32_t window = 0;
        Data waiting {};
        bool isEnding = false;
    };

    void receiveVersion(const UsbPacket& packet);
    void receiveSegment(const UsbSegment& segment);
    void open(const UsbSegment& segment, UsbStream stream);
    void flush(UsbStream stream, StreamState& state);
    void transmit(const UsbPacket& packet);
    void transmit(UsbStream stream, const StreamState& state, std::uint8_t flags,
        std::span<const std::byte> payload = {});

    UsbMuxHost& m_host;
    bool m_isNumbered = false;
    UsbCounters m_counters { 0, 0xffff };
    std::map<UsbStream, StreamState> m_streams;
};

} // namespace tdw::simulator
