#include "Mux/MuxProtocol.h"

#include "Platform/Values/PropertyList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tdw;
using namespace tdw::simulator;

namespace {

class MuxProtocolTest : public testing::Test {
protected:
    /// The reply's property list, or its bytes where it is none.
    Value ask(const MuxFrame& frame)
    {
        const MuxReply reply = m_protocol.reply(frame, MuxProtocol::read(frame), std::nullopt);
        m_next = reply.next;
        MuxFrameDecoder decoder;
        decoder.append(reply.bytes);
        const auto answer = *decoder.next();
        if (!answer)
            return "nothing";
        EXPECT_EQ(answer->tag, frame.tag);
        const auto message = decodePropertyList(answer->payload);
        return message ? *message : Value(answer->payload);
    }

    Value ask(const Dictionary& message)
    {
        return ask(MuxFrame { 1, 8, 42, *encodeXmlPropertyList(message) });
    }

    static Value result(int number)
    {
        return Dictionary { { "MessageType", "Result" }, { "Number", number } };
    }

    Simulation m_simulation { Scenario {}, nullptr, testing::TempDir() + "mux-records" };
    MuxProtocol m_protocol { m_simulation, [](const auto&, std::uint16_t) {
                                return true;
                            } };
    MuxReply::Next m_next = MuxReply::Next::Continue;
};

} // namespace

TEST_F(MuxProtocolTest, RefusesAsTheDaemonDoes)
{
    const Data number { std::byte { 6 }, std::byte { 0 }, std::byte { 0 }, std::byte { 0 } };
    EXPECT_EQ(ask(MuxFrame { 2, 8, 1, {} }), Value(number)) << "before any property list";
    EXPECT_EQ(ask(MuxFrame { 1, 8, 1, Data(3, std::byte { 'x' }) }), Value("nothing"));
    EXPECT_EQ(ask({ { "MessageType", "Nonsense" } }), result(1));
    EXPECT_EQ(ask({ { "MessageType", "Connect" }, { "PortNumber", 1 } }), result(2));
    EXPECT_EQ(
        ask({ { "MessageType", "Connect" }, { "DeviceID", 9 }, { "PortNumber", 1 } }), result(2));
    EXPECT_EQ(ask({ { "MessageType", "Connect" }, { "DeviceID", 9 } }), result(1));
    EXPECT_EQ(ask(MuxFrame { 3, 8, 1, {} }), result(6));
    EXPECT_EQ(ask({ { "MessageType", "Listen" } }), result(0));
    EXPECT_EQ(m_next, MuxReply::Next::Listen);
    EXPECT_EQ(ask({ { "MessageType", "ListDevices" } }), Value("nothing"))
        << "a listener only listens";
    EXPECT_EQ(m_next, MuxReply::Next::Close);
}

TEST_F(MuxProtocolTest, KeepsPairRecords)
{
    const std::string udid = "00008130-00FACADE0001001C";
    const Data record = *encodeXmlPropertyList(Dictionary { { "HostID", "H" } });
    const auto request = [&](const char* type) {
        return Dictionary { { "MessageType", type }, { "PairRecordID", udid },
            { "PairRecordData", record } };
    };
    EXPECT_EQ(ask(request("ReadPairRecord")), result(2));
    EXPECT_EQ(ask(request("SavePairRecord")), result(0));
    EXPECT_EQ(ask(request("ReadPairRecord")), Value(Dictionary { { "PairRecordData", record } }));
    EXPECT_EQ(ask(request("DeletePairRecord")), result(0));
    EXPECT_EQ(ask(request("DeletePairRecord")), result(2));
    EXPECT_EQ(ask({ { "MessageType", "SavePairRecord" }, { "PairRecordID", "../../etc" },
                  { "PairRecordData", record } }),
        result(22));
}
