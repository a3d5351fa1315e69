#include "Multiplexer/MultiplexerConversation.h"

#include "Platform/Values/PropertyList.h"

#include <cassert>
#include <cstdint>
#include <utility>

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

Data multiplexerRequest(Dictionary body)
{
    body.set("ClientVersionString", "tidewell");
    body.set("ProgName", "tidewell");
    body.set("kLibUSBMuxVersion", 3);
    const auto encoded = encodeXmlPropertyList(std::move(body));
    assert(encoded);
    Data request;
    appendNumber(request, static_cast<std::uint32_t>(kHeaderBytes + encoded->size()));
    appendNumber(request, kPropertyListVersion);
    appendNumber(request, kPropertyListMessage);
    appendNumber(request, 1);
    request.insert(request.end(), encoded->begin(), encoded->end());
    return request;
}

Data deviceListRequest()
{
    return multiplexerRequest({ { "MessageType", "ListDevices" } });
}

Data pairRecordRequest(std::string_view udid)
{
    return multiplexerRequest({ { "MessageType", "ReadPairRecord" }, { "PairRecordID", udid } });
}

void MultiplexerReply::append(std::span<const std::byte> bytes)
{
    if (m_state != State::Incomplete)
        return;
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    m_state = examine();
}

MultiplexerReply::State MultiplexerReply::examine()
{
    if (m_bytes.size() < kHeaderBytes)
        return State::Incomplete;
    const std::size_t length = numberAt(m_bytes, 0);
    if (length < kHeaderBytes || length > kLongestReply
        || numberAt(m_bytes, 1) != kPropertyListVersion
        || numberAt(m_bytes, 2) != kPropertyListMessage)
        return State::Malformed;
    if (m_bytes.size() < length)
        return State::Incomplete;
    const auto body
        = decodePropertyList(std::span(m_bytes).subspan(kHeaderBytes, length - kHeaderBytes));
    if (!body || !body->asDictionary())
        return State::Malformed;
    m_body = *body->asDictionary();
    return State::Complete;
}

std::optional<std::vector<std::string>> udidsIn(const Dictionary& reply)
{
    const Value* list = reply.find("DeviceList");
    if (!list || !list->asArray())
        return std::nullopt;
    std::vector<std::string> udids;
    for (const Value& entry : *list->asArray()) {
        const Dictionary* fields = entry.asDictionary();
        const Value* properties = fields ? fields->find("Properties") : nullptr;
        const Value* serial = properties && properties->asDictionary()
            ? properties->asDictionary()->find("SerialNumber")
            : nullptr;
        if (serial && serial->asString())
            udids.push_back(*serial->asString());
    }
    return udids;
}

bool isUsablePairRecord(const Dictionary& reply)
{
    const Value* data = reply.find("PairRecordData");
    if (!data || !data->asData())
        return false;
    const auto decoded = decodePropertyList(*data->asData());
    const Dictionary* record = decoded ? decoded->asDictionary() : nullptr;
    const Value* host = record ? record->find("HostID") : nullptr;
    return host && host->asString();
}

} // namespace tdw::cli
