#include "Device/PropertyListFrame.h"

#include "Model/SimulatorError.h"
#include "Platform/Values/PropertyList.h"

#include <string>

namespace tdw::simulator {

Result<std::optional<Value>> PropertyListFrameDecoder::next()
{
    const std::span<const std::byte> bytes = m_buffer.bytes();
    if (bytes.size() < kPropertyListHeaderSize)
        return std::optional<Value>();
    std::size_t length = 0;
    for (std::size_t i = 0; i < kPropertyListHeaderSize; ++i)
        length = length << 8 | std::to_integer<std::size_t>(bytes[i]);
    if (length > kPropertyListMaximumFrame)
        return simulatorError("a message of " + std::to_string(length) + " bytes");
    if (bytes.size() - kPropertyListHeaderSize < length)
        return std::optional<Value>();
    auto value = decodePropertyList(bytes.subspan(kPropertyListHeaderSize, length));
    m_buffer.drop(kPropertyListHeaderSize + length);
    if (!value)
        return std::move(value.error());
    return std::optional(*std::move(value));
}

Result<Data> encodePropertyListFrame(const Value& message, PropertyListFormat format)
{
    const Data content
        = TDW_TRY(format == PropertyListFormat::Xml ? encodeXmlPropertyList(message)
                                                    : encodeBinaryPropertyList(message));
    Data frame;
    frame.reserve(kPropertyListHeaderSize + content.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        frame.push_back(static_cast<std::byte>(content.size() >> shift & 0xff));
    frame.insert(frame.end(), content.begin(), content.end());
    return frame;
}

} // namespace tdw::simulator
