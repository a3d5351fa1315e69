#include "Platform/Messages/Message.h"

#include "Platform/Messages/MessageFrame.h"
#include "Platform/Values/PropertyList.h"
#include "Support/Testing.h"

using namespace tdw;
using namespace matchers;

namespace {

Data payloadOf(const Data& frame)
{
    return { frame.begin() + kFrameHeaderSize, frame.end() };
}

} // namespace

TEST(Message, SaysItsProtocolAndIsUnderstoodWhateverTheOtherEndSpeaks)
{
    const Message message { "status", 7, {} };
    for (const Data& frame : { *encodeMessage(message), *encodeReply({ 7, Array {} }) })
        EXPECT_EQ(decodePropertyList(payloadOf(frame))->intAt("protocol"), 1);

    // A first release, a later one with keys of its own, and one that makes no sense.
    Dictionary received { { "selector", "status" }, { "id", 7 }, { "arguments", Array {} } };
    EXPECT_EQ(std::get<Message>(*decodeMessage(*encodeBinaryPropertyList(received))), message);
    for (const Value& protocol : { Value(99), Value("new") }) {
        received.set("protocol", protocol);
        received.set("later", Dictionary { { "key", 1 } });
        EXPECT_EQ(std::get<Message>(*decodeMessage(*encodeBinaryPropertyList(received))), message);
    }
}

TEST(Message, IsRefusedWithAReasonWhenItMakesNoSense)
{
    const Array none;
    const std::pair<Value, const char*> rows[] = {
        { "text", "no property list with a dictionary" },
        { Dictionary { { "id", 1 }, { "arguments", none } }, "no selector" },
        { Dictionary { { "selector", 5 }, { "id", 1 }, { "arguments", none } }, "no selector" },
        { Dictionary { { "selector", "s" }, { "id", -1 }, { "arguments", none } }, "\"id\"" },
        { Dictionary { { "selector", "s" }, { "id", 1 }, { "arguments", "a" } }, "\"arguments\"" },
        { Dictionary { { "reply", "1" }, { "values", none } }, "\"reply\"" },
        { Dictionary { { "reply", 1 } }, "\"values\"" },
        { Dictionary { { "reply", 1 }, { "error", Dictionary { { "code", 1 } } } }, "\"error\"" },
    };
    for (const auto& [payload, reason] : rows) {
        const auto decoded = decodeMessage(*encodeBinaryPropertyList(payload));
        ASSERT_FALSE(decoded) << reason;
        EXPECT_THAT(decoded.error().failureReason(), HasSubstr(reason));
    }
    EXPECT_FALSE(decodeMessage({}));
    EXPECT_FALSE(decodeMessage(bytesOf("garbage")));
}

TEST(FrameDecoder, GivesPayloadsWholeHoweverTheyArrive)
{
    Data stream = *encodeFrame(bytesOf("first"));
    for (const char* text : { "", "third" }) {
        const Data frame = *encodeFrame(bytesOf(text));
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    for (const std::size_t step : { std::size_t { 1 }, stream.size() }) {
        FrameDecoder decoder;
        std::vector<std::string> payloads;
        for (std::size_t i = 0; i < stream.size(); i += step) {
            decoder.append(std::span(stream).subspan(i, step));
            while (const auto payload = *decoder.next())
                payloads.push_back(textOf(*payload));
        }
        EXPECT_THAT(payloads, testing::ElementsAre("first", "", "third")) << step;
    }
}

TEST(FrameDecoder, RefusesALengthOverTheLimitBeforeThereAreBytes)
{
    FrameDecoder decoder;
    decoder.append(bytesOf("\xff\xff\xff\xff"));
    const auto payload = decoder.next();
    ASSERT_FALSE(payload);
    EXPECT_THAT(payload.error().failureReason(), HasSubstr("4294967295"));
    EXPECT_FALSE(encodeFrame(Data(kMaximumFramePayload + 1)));
}
