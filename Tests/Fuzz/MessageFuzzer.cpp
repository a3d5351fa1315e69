#include "Fuzz.h"
#include "Platform/Messages/Message.h"
#include "Platform/Messages/MessageFrame.h"

/// What a peer sends may be anything. What is understood survives being sent on.
void fuzz(std::span<const std::byte> bytes)
{
    tdw::FrameDecoder decoder;
    decoder.append(bytes);
    while (true) {
        const auto payload = decoder.next();
        if (!payload || !*payload)
            return;
        const auto content = tdw::decodeMessage(**payload);
        if (!content)
            return;
        const auto* message = std::get_if<tdw::Message>(&*content);
        const auto frame = message ? tdw::encodeMessage(*message)
                                   : tdw::encodeReply(std::get<tdw::Reply>(*content));
        require(frame.hasValue());
        // Shared objects are written once for each use, and may then be too many for their bytes.
        require(frame->size() > kSmallDocument
            || tdw::decodeMessage(std::span(*frame).subspan(tdw::kFrameHeaderSize)).hasValue());
    }
}
