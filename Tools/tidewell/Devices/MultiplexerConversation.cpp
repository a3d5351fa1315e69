#include "Devices/MultiplexerConversation.h"

#include "Platform/PropertyList.h"

#include <cstdint>

namespace tdw::cli {

namespace {

constexpr std::size_t kHeaderBytes = 16;
constexpr std::uint32_t kPropertyListVersion = 1;
constexpr std::uint32_t kPropertyListMessage = 8;

/// A list of a hundred devices takes some 100 kB.
constexpr std::size_t kLongestReply = std::size_t { 4 } << 20;

void appendNumber(Data& bytes, std::uint32_t number)
{
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<std::byte>(number >> shift));
}

std::uint32_t numberAt(const Data& bytes, std::size_t index)
{
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number |= std::to_integer<std::uint32_t>(bytes[4 * index + i]) << (8 * i);
    return number;
}

} // namespace

Data deviceListRequest()
{
    const auto body = encodeXmlPropertyList(
        Dictionary { { "MessageType", "ListDevices" }, { "ClientVersionString", "tidewell" },
            { "ProgName", "tidewell" }, { "kLibUSBMuxVersion", 3 } });
    Data request;
    appendNumber(request, static_cast<std::uint32_t>(kHeaderBytes + body->size()));
    appendNumber(request, kPropertyListVersion);
    appendNumber(request, kPropertyListMessage);
    appendNumber(request, 1);
    request.insert(request.end(), body->begin(), body->end());
    return request;
}

void MultiplexerReply::append(std::span<const std::byte> bytes)
{
    if (m_state != State::Incomplete)
        return;
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    m_state = examine();
}

MultiplexerReply::State MultiplexerReply::examine() const
{
    if (m_bytes.size() < kHeaderBytes)
        return State::Incomplete;
    const std::size_t length = numberAt(m_bytes, 0);
    if (length < kHeaderBytes || length > kLongestReply
        || numberAt(m_bytes, 1) != kPropertyListVersion
        || numberAt(m_bytes, 2) != kPropertyListMessage)
        return State::Other;
    if (m_bytes.size() < length)
        return State::Incomplete;
    const auto body
        = decodePropertyList(std::span(m_bytes).subspan(kHeaderBytes, length - kHeaderBytes));
    const Dictionary* reply = body ? body->asDictionary() : nullptr;
    const Value* list = reply ? reply->find("DeviceList") : nullptr;
    return list && list->asArray() ? State::DeviceList : State::Other;
}

} // namespace tdw::cli
