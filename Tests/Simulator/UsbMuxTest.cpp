#include "Usb/UsbMux.h"

#include "Support/Testing.h"

#include <deque>

using namespace tdw;
using namespace tdw::simulator;
using namespace matchers;

namespace {

constexpr std::uint16_t kHostPort = 5;
constexpr std::uint16_t kPort = 62078;
constexpr UsbStream kStream = static_cast<UsbStream>(kHostPort) << 16 | kPort;

/// The host's end: keeps what the device says, and says what a test wants.
class UsbMuxTest : public testing::Test, public UsbMuxHost {
protected:
    void transmit(Data packet) override { m_packets.push_back(std::move(packet)); }
    bool greets() override { return true; }
    bool opened(UsbStream, std::uint16_t port) override { return port == kPort; }
    void received(UsbStream, std::span<const std::byte> bytes) override
    {
        m_received.insert(m_received.end(), bytes.begin(), bytes.end());
    }
    void ended(UsbStream stream) override { m_ended.push_back(stream); }

    void say(UsbSegment segment)
    {
        segment.source = kHostPort;
        if (segment.destination == 0)
            segment.destination = kPort;
        m_mux.receive(encodeUsbPacket(
            { UsbProtocol::Stream, encodeUsbSegment(segment) }, UsbCounters { 1, 1 }));
    }

    UsbSegment next()
    {
        if (m_packets.empty())
            return UsbSegment { .flags = 0xff };
        const auto packet = decodeUsbPacket(m_packets.front(), true);
        m_packets.pop_front();
        return packet ? *decodeUsbSegment(packet->content) : UsbSegment { .flags = 0xfe };
    }

    void greet()
    {
        Data version(12);
        version[3] = std::byte { 2 };
        m_mux.receive(encodeUsbPacket({ UsbProtocol::Version, version }, std::nullopt));
        EXPECT_EQ(decodeUsbPacket(m_packets.front(), false)->content, version);
        m_packets.pop_front();
        m_mux.receive(encodeUsbPacket({ UsbProtocol::Setup, { std::byte { 7 } } }, m_counters));
    }

    void open(std::uint16_t window)
    {
        greet();
        say({ .flags = UsbSegment::kOpen, .window = window });
        EXPECT_EQ(next().flags, UsbSegment::kOpen | UsbSegment::kAcknowledge);
        say({ .sequence = 1,
            .acknowledged = 1,
            .flags = UsbSegment::kAcknowledge,
            .window = window });
    }

    UsbCounters m_counters { 0, 0xffff };
    UsbMux m_mux { *this };
    std::deque<Data> m_packets;
    Data m_received;
    std::vector<UsbStream> m_ended;
};

} // namespace

TEST_F(UsbMuxTest, RefusesPortsWhereNothingListensAndSegmentsOfNoStream)
{
    greet();
    say({ .destination = 9, .flags = UsbSegment::kOpen });
    EXPECT_EQ(next().flags, UsbSegment::kReset);
    say({ .sequence = 7, .flags = UsbSegment::kAcknowledge });
    EXPECT_EQ(next().flags, UsbSegment::kReset);
    say({ .flags = UsbSegment::kReset });
    m_mux.receive({});
    m_mux.receive(Data(20, std::byte { 0xff }));
    EXPECT_TRUE(m_packets.empty()) << "a reset and nonsense are not answered";
}

TEST_F(UsbMuxTest, StaysInTheHostsWindowAndEndsAfterTheLastByte)
{
    open(1); // 256 bytes
    m_mux.send(kStream, Data(600, std::byte { 1 }));
    m_mux.end(kStream);
    EXPECT_EQ(next().payload.size(), 256U);
    EXPECT_TRUE(m_packets.empty());
    say({ .sequence = 1, .acknowledged = 101, .flags = UsbSegment::kAcknowledge, .window = 1 });
    EXPECT_EQ(next().payload.size(), 100U);
    say({ .sequence = 1, .acknowledged = 357, .flags = UsbSegment::kAcknowledge, .window = 2 });
    const UsbSegment last = next();
    EXPECT_EQ(last.payload.size(), 244U);
    EXPECT_EQ(last.sequence, 357U);
    EXPECT_EQ(next().flags, UsbSegment::kReset);
}

TEST_F(UsbMuxTest, CutsWhatIsLongAndAcknowledgesWhatComes)
{
    open(0x200);
    m_mux.send(kStream, Data(UsbMux::kMaximumPayload + 1, std::byte { 1 }));
    EXPECT_EQ(next().payload.size(), UsbMux::kMaximumPayload);
    EXPECT_EQ(next().payload.size(), 1U);
    say({ .sequence = 1,
        .acknowledged = 1,
        .flags = UsbSegment::kAcknowledge,
        .window = 0x200,
        .payload = Data(5, std::byte { 2 }) });
    EXPECT_EQ(next().acknowledged, 6U);
    EXPECT_EQ(m_received, Data(5, std::byte { 2 }));
    say({ .flags = UsbSegment::kReset });
    EXPECT_THAT(m_ended, ElementsAre(kStream));
    m_mux.send(kStream, Data(1));
    EXPECT_TRUE(m_packets.empty()) << "the stream is gone";
}
