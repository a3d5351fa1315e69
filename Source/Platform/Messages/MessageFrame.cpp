#include "Platform/Messages/MessageFrame.h"

#include <cerrno>
#include <climits>

namespace tdw {

namespace {

Error tooLarge(std::size_t size)
{
    return Error::posix(EMSGSIZE,
        "A message of " + std::to_string(size) + " bytes is over the limit of "
            + std::to_string(kMaximumFramePayload));
}

} // namespace

Result<Data> encodeFrame(std::span<const std::byte> payload)
{
    if (payload.size() > kMaximumFramePayload)
        return tooLarge(payload.size());
    Data frame;
    frame.reserve(kFrameHeaderSize + payload.size());
    for (std::size_t i = kFrameHeaderSize; i > 0; --i)
        frame.push_back(static_cast<std::byte>(payload.size() >> (CHAR_BIT * (i - 1))));
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

Result<std::optional<std::span<const std::byte>>> FrameDecoder::next()
{
    using Payload = std::optional<std::span<const std::byte>>;
    const auto bytes = m_buffer.bytes();
    if (bytes.size() < kFrameHeaderSize) {
        m_buffer.shrinkIfEmpty();
        return Payload();
    }
    std::size_t length = 0;
    for (const std::byte byte : bytes.first(kFrameHeaderSize))
        length = length << CHAR_BIT | std::to_integer<std::size_t>(byte);
    if (length > kMaximumFramePayload)
        return tooLarge(length);
    if (bytes.size() - kFrameHeaderSize < length)
        return Payload();
    m_buffer.drop(kFrameHeaderSize + length);
    return Payload(bytes.subspan(kFrameHeaderSize, length));
}

} // namespace tdw
