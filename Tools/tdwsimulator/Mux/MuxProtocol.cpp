#include "Mux/MuxProtocol.h"

#include "Platform/Values/PropertyList.h"

#include <algorithm>
#include <cassert>
#include <cctype>

namespace tdw::simulator {

namespace {

/// Ports travel in network byte order inside a property list's integer.
std::uint16_t hostPort(std::uint64_t number)
{
    const auto port = static_cast<std::uint16_t>(number);
    return static_cast<std::uint16_t>(port << 8 | port >> 8);
}

/// Names of records become names of files, and may not lead out of their directory.
bool isRecordName(std::string_view name)
{
    return std::ranges::all_of(name,
        [](unsigned char character) { return std::isalnum(character) != 0 || character == '-'; });
}

/// The event as a structure of the protocol's older form.
Data binaryNotification(const SimulationEvent& event)
{
    constexpr std::size_t kSerialNumberSize = 256;
    const Attachment& attachment = event.attachment;
    MuxFrame frame { 0, kMuxAttachedMessage, 0, {} };
    appendNumber(frame.payload, attachment.identifier, 4);
    if (event.kind != SimulationEvent::Kind::Attached) {
        frame.message
            = event.kind == SimulationEvent::Kind::Paired ? kMuxPairedMessage : kMuxDetachedMessage;
        return encodeMuxFrame(frame);
    }
    appendNumber(frame.payload, static_cast<std::uint32_t>(attachment.device->productId()), 2);
    const auto serial = std::as_bytes(std::span(attachment.device->udid()));
    frame.payload.insert(frame.payload.end(), serial.begin(), serial.end());
    frame.payload.resize(4 + 2 + kSerialNumberSize);
    appendNumber(frame.payload, 0, 2);
    appendNumber(frame.payload, attachment.location(), 4);
    return encodeMuxFrame(frame);
}

/// The record of an attachment, as far as a fault leaves it whole.
Dictionary attachedRecord(
    const Attachment& attachment, AddressLayout layout, const std::optional<Fault>& fault)
{
    Dictionary message = attachedMessage(attachment, layout);
    if (fault && fault->kind == FaultKind::NoSerialNumber) {
        Dictionary properties = *message.find("Properties")->asDictionary();
        properties.remove("SerialNumber");
        message.set("Properties", std::move(properties));
    }
    return message;
}

} // namespace

MuxProtocol::Request MuxProtocol::read(const MuxFrame& frame)
{
    if (frame.message != kMuxPropertyListMessage)
        return Request { "Binary", Dictionary { { "Message", frame.message } }, true };
    auto value = decodePropertyList(frame.payload);
    if (!value || !value->asDictionary())
        return Request { "Unreadable", Dictionary(), false };
    const Dictionary& message = *value->asDictionary();
    const std::string* type = message.stringAt("MessageType");
    if (!type)
        return Request { "Unreadable", message, false };
    return Request { *type, message, true };
}

MuxReply MuxProtocol::reply(
    const MuxFrame& frame, const Request& request, const std::optional<Fault>& fault)
{
    const std::uint32_t tag = frame.tag;
    // The daemon closes before the answer that it has prepared goes out.
    if (m_isListening)
        return MuxReply { {}, MuxReply::Next::Close, {}, 0 };
    if (frame.version > 1)
        return MuxReply { .bytes = result(MuxResult::BadVersion, tag) };
    if (frame.message == kMuxListenMessage)
        return listen(fault, tag);
    if (frame.message == kMuxConnectMessage) {
        return connect({ { "DeviceID", numberAt(frame.payload, 0, 4) },
                           { "PortNumber", numberAt(frame.payload, 4, 2) } },
            tag);
    }
    if (frame.message != kMuxPropertyListMessage)
        return MuxReply { .bytes = result(MuxResult::BadCommand, tag) };
    m_speaksPropertyLists = true;
    if (!request.isReadable)
        return MuxReply {};

    const Dictionary& message = request.message;
    if (request.name == "Listen")
        return listen(fault, tag);
    if (request.name == "Connect")
        return connect(message, tag);
    if (request.name == "ListDevices") {
        if (fault && fault->kind == FaultKind::ResultOnly)
            return MuxReply { .bytes = result(MuxResult::Ok, tag) };
        return MuxReply { .bytes = encoded(deviceList(fault), tag) };
    }
    if (request.name == "ListListeners")
        return MuxReply { .bytes = encoded(listenerList(), tag) };
    if (request.name == "ReadBUID")
        return MuxReply { .bytes = encoded({ { "BUID", m_simulation.systemBuid() } }, tag) };
    if (request.name == "ReadPairRecord")
        return MuxReply { .bytes = readPairRecord(message, tag) };
    if (request.name == "SavePairRecord")
        return MuxReply { .bytes = savePairRecord(message, tag) };
    if (request.name == "DeletePairRecord")
        return MuxReply { .bytes = deletePairRecord(message, tag) };
    return MuxReply { .bytes = result(MuxResult::BadCommand, tag) };
}

Data MuxProtocol::notification(
    const SimulationEvent& event, const std::optional<Fault>& fault) const
{
    if (!m_speaksPropertyLists)
        return binaryNotification(event);
    switch (event.kind) {
    case SimulationEvent::Kind::Attached:
        return encoded(attachedRecord(event.attachment, m_simulation.addressLayout(), fault), 0);
    case SimulationEvent::Kind::Detached:
        return encoded(deviceMessage("Detached", event.attachment.identifier), 0);
    case SimulationEvent::Kind::Paired:
        return encoded(deviceMessage("Paired", event.attachment.identifier), 0);
    }
    return {};
}

Data MuxProtocol::encoded(const Dictionary& message, std::uint32_t tag) const
{
    auto payload = encodeXmlPropertyList(message);
    // Only text that is not UTF-8 cannot be written, and no such text is ever read.
    assert(payload);
    return encodeMuxFrame(
        MuxFrame { 1, kMuxPropertyListMessage, tag, payload ? *std::move(payload) : Data() });
}

Data MuxProtocol::result(MuxResult result, std::uint32_t tag) const
{
    if (m_speaksPropertyLists)
        return encoded(resultMessage(result), tag);
    Data number(4);
    number[0] = static_cast<std::byte>(result);
    return encodeMuxFrame(MuxFrame { 0, kMuxResultMessage, tag, std::move(number) });
}

MuxReply MuxProtocol::listen(const std::optional<Fault>& fault, std::uint32_t tag)
{
    m_isListening = true;
    MuxReply reply { result(MuxResult::Ok, tag), MuxReply::Next::Listen, {}, 0 };
    for (const Attachment& attachment : m_simulation.attachments()) {
        const bool isFirst = &attachment == &m_simulation.attachments().front();
        const Data message
            = notification(SimulationEvent { SimulationEvent::Kind::Attached, attachment },
                isFirst ? fault : std::nullopt);
        reply.bytes.insert(reply.bytes.end(), message.begin(), message.end());
    }
    return reply;
}

MuxReply MuxProtocol::connect(const Dictionary& request, std::uint32_t tag)
{
    const auto identifier = request.intAt("DeviceID");
    const auto port = request.intAt("PortNumber");
    if (!identifier)
        return MuxReply { .bytes = result(MuxResult::BadDevice, tag) };
    if (!port)
        return MuxReply { .bytes = result(MuxResult::BadCommand, tag) };
    const auto target = m_simulation.attachment(static_cast<std::uint32_t>(*identifier));
    if (!target)
        return MuxReply { .bytes = result(MuxResult::BadDevice, tag) };
    if (!m_acceptsPort(*target, hostPort(*port)))
        return MuxReply { .bytes = result(MuxResult::ConnectionRefused, tag) };
    return MuxReply { result(MuxResult::Ok, tag), MuxReply::Next::Connect, *target,
        hostPort(*port) };
}

Dictionary MuxProtocol::deviceList(const std::optional<Fault>& fault) const
{
    Array list;
    for (const Attachment& attachment : m_simulation.attachments()) {
        list.emplace_back(attachedRecord(
            attachment, m_simulation.addressLayout(), list.empty() ? fault : std::nullopt));
    }
    return Dictionary { { "DeviceList", std::move(list) } };
}

Dictionary MuxProtocol::listenerList() const
{
    Array list;
    for (const auto& [number, description] : m_simulation.listeners()) {
        const std::string* bundle = description.stringAt("BundleID");
        const std::string* program = description.stringAt("ProgName");
        const std::string bundleName = bundle ? *bundle : std::string();
        list.emplace_back(Dictionary { { "Blacklisted", false }, { "BundleID", bundleName },
            { "ConnType", 0 }, { "ID String", std::to_string(number) + "-" + bundleName },
            { "ProgName", program ? *program : std::string() },
            { "kLibUSBMuxVersion", description.intAt("kLibUSBMuxVersion").value_or(0) } });
    }
    return Dictionary { { "ListenerList", std::move(list) } };
}

Data MuxProtocol::readPairRecord(const Dictionary& request, std::uint32_t tag)
{
    const std::string* identifier = request.stringAt("PairRecordID");
    if (!identifier || !isRecordName(*identifier))
        return result(MuxResult::InvalidArgument, tag);
    const auto record = m_simulation.pairRecords().find(*identifier);
    if (!record)
        return result(MuxResult::NoSuchRecord, tag);
    return encoded({ { "PairRecordData", *record } }, tag);
}

Data MuxProtocol::savePairRecord(const Dictionary& request, std::uint32_t tag)
{
    const std::string* identifier = request.stringAt("PairRecordID");
    const Data* bytes = request.dataAt("PairRecordData");
    if (!identifier || !isRecordName(*identifier) || !bytes)
        return result(MuxResult::InvalidArgument, tag);
    const auto record = decodePropertyList(*bytes);
    if (!record || !record->asDictionary())
        return result(MuxResult::InvalidArgument, tag);
    const bool isSaved = m_simulation.pairRecords().save(*identifier, *record->asDictionary());
    // Debian 13's daemon takes its own success for a failure, and its failure for a success.
    if (m_simulation.multiplexer() == MultiplexerRelease::Debian13)
        return result(isSaved ? MuxResult::NoSuchRecord : MuxResult::Ok, tag);
    if (!isSaved)
        return result(MuxResult::NoSuchRecord, tag);
    const auto attachment = m_simulation.attachment(
        static_cast<std::uint32_t>(request.intAt("DeviceID").value_or(0)));
    if (attachment && attachment->device->udid() == *identifier)
        m_simulation.announcePaired(*attachment);
    return result(MuxResult::Ok, tag);
}

Data MuxProtocol::deletePairRecord(const Dictionary& request, std::uint32_t tag)
{
    const std::string* identifier = request.stringAt("PairRecordID");
    if (!identifier || !isRecordName(*identifier))
        return result(MuxResult::InvalidArgument, tag);
    if (!m_simulation.pairRecords().remove(*identifier))
        return result(MuxResult::NoSuchRecord, tag);
    return result(MuxResult::Ok, tag);
}

} // namespace tdw::simulator
