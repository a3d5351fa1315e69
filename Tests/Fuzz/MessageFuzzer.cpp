#include "Platform/Message.h"
#include "Platform/MessageFrame.h"

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>

// What a peer sends may be anything. What is understood must survive being sent on.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    tdw::FrameDecoder decoder;
    decoder.append(std::as_bytes(std::span(data, size)));
    while (true) {
        const auto payload = decoder.next();
        if (!payload || !*payload)
            return 0;
        const auto content = tdw::decodeMessage(**payload);
        if (!content)
            return 0;
        const auto* message = std::get_if<tdw::Message>(&*content);
        // A value that was read can be written, unless it is text with a NUL out of XML.
        const auto frame = message ? tdw::encodeMessage(*message)
                                   : tdw::encodeReply(std::get<tdw::Reply>(*content));
        if (frame)
            assert(tdw::decodeMessage(std::span(*frame).subspan(tdw::kFrameHeaderSize)));
    }
}
