#include "Usb/UsbMux.h"

#include <algorithm>
#include <utility>

namespace tdw::simulator {

namespace {

constexpr unsigned kWindowUnit = 256;
constexpr std::string_view kRefusal = "Connection refused\n";

std::uint16_t hostPort(UsbStream stream)
{
    return static_cast<std::uint16_t>(stream >> 16);
}

std::uint16_t devicePort(UsbStream stream)
{
    return static_cast<std::uint16_t>(stream);
}

/// Major and minor version and a reserved word.
Data versionContent()
{
    Data content(12);
    content[3] = std::byte { 2 };
    return content;
}

} // namespace

void UsbMux::receive(std::span<const std::byte> transfer)
{
    const auto packet = decodeUsbPacket(transfer, m_isNumbered);
    if (!packet)
        return;
    ++m_counters.seen;
    if (packet->protocol == UsbProtocol::Version)
        receiveVersion(*packet);
    else if (packet->protocol == UsbProtocol::Setup)
        m_counters = UsbCounters { 0, 0 };
    else if (packet->protocol == UsbProtocol::Stream) {
        if (const auto segment = decodeUsbSegment(packet->content))
            receiveSegment(*segment);
    }
}

void UsbMux::receiveVersion(const UsbPacket&)
{
    if (m_isNumbered || !m_host.greets())
        return;
    transmit(UsbPacket { UsbProtocol::Version, versionContent() });
    m_isNumbered = true;
}

void UsbMux::receiveSegment(const UsbSegment& segment)
{
    const UsbStream stream = static_cast<UsbStream>(segment.source) << 16 | segment.destination;
    if (segment.flags == UsbSegment::kOpen) {
        open(segment, stream);
        return;
    }
    const auto found = m_streams.find(stream);
    if (found == m_streams.end()) {
        if ((segment.flags & UsbSegment::kReset) == 0)
            transmit(stream, { .received = segment.sequence }, UsbSegment::kReset);
        return;
    }
    if (segment.flags != UsbSegment::kAcknowledge) {
        m_streams.erase(found);
        m_host.ended(stream);
        return;
    }
    StreamState& state = found->second;
    state.acknowledged = segment.acknowledged;
    state.window = segment.window * kWindowUnit;
    if (!segment.payload.empty()) {
        state.received += static_cast<std::uint32_t>(segment.payload.size());
        transmit(stream, state, UsbSegment::kAcknowledge);
        m_host.received(stream, segment.payload);
    }
    // The service may have ended the stream upon what it received.
    if (const auto still = m_streams.find(stream); still != m_streams.end())
        flush(stream, still->second);
}

void UsbMux::open(const UsbSegment& segment, UsbStream stream)
{
    StreamState state { .received = segment.sequence + 1, .window = segment.window * kWindowUnit };
    if (!m_host.opened(stream, devicePort(stream))) {
        transmit(stream, state, UsbSegment::kReset, std::as_bytes(std::span(kRefusal)));
        return;
    }
    transmit(stream, state, UsbSegment::kOpen | UsbSegment::kAcknowledge);
    state.sent = state.acknowledged = 1;
    m_streams.insert_or_assign(stream, std::move(state));
}

void UsbMux::send(UsbStream stream, std::span<const std::byte> bytes)
{
    const auto found = m_streams.find(stream);
    if (found == m_streams.end())
        return;
    Data& waiting = found->second.waiting;
    waiting.insert(waiting.end(), bytes.begin(), bytes.end());
    flush(stream, found->second);
}

void UsbMux::end(UsbStream stream)
{
    const auto found = m_streams.find(stream);
    if (found == m_streams.end())
        return;
    found->second.isEnding = true;
    flush(stream, found->second);
}

void UsbMux::flush(UsbStream stream, StreamState& state)
{
    std::span<const std::byte> rest = state.waiting;
    while (!rest.empty()) {
        const std::uint32_t underWay = state.sent - state.acknowledged;
        const std::size_t room = state.window > underWay ? state.window - underWay : 0;
        const std::size_t count = std::min({ rest.size(), room, kMaximumPayload });
        if (count == 0)
            break;
        transmit(stream, state, UsbSegment::kAcknowledge, rest.first(count));
        state.sent += static_cast<std::uint32_t>(count);
        rest = rest.subspan(count);
    }
    state.waiting.erase(
        state.waiting.begin(), state.waiting.end() - static_cast<std::ptrdiff_t>(rest.size()));
    if (!state.isEnding || !state.waiting.empty())
        return;
    transmit(stream, state, UsbSegment::kReset);
    m_streams.erase(stream);
}

void UsbMux::transmit(const UsbPacket& packet)
{
    m_host.transmit(
        encodeUsbPacket(packet, m_isNumbered ? std::optional(m_counters) : std::nullopt));
    ++m_counters.sent;
}

void UsbMux::transmit(UsbStream stream, const StreamState& state, std::uint8_t flags,
    std::span<const std::byte> payload)
{
    transmit(UsbPacket { UsbProtocol::Stream,
        encodeUsbSegment(UsbSegment { .source = devicePort(stream),
            .destination = hostPort(stream),
            .sequence = state.sent,
            .acknowledged = state.received,
            .flags = flags,
            .window = kWindow / kWindowUnit,
            .payload = Data(payload.begin(), payload.end()) }) });
}

} // namespace tdw::simulator
