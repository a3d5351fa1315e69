#include "Usb/DaemonListener.h"

#include "Platform/System/LocalSocket.h"
#include "Platform/Values/PropertyList.h"

#include <asio/local/stream_protocol.hpp>

namespace tdw::simulator {

void DaemonListener::start(
    asio::io_context& context, Simulation& simulation, const std::filesystem::path& path)
{
    auto connected = connectToLocalSocket(path);
    asio::local::stream_protocol::socket socket(context);
    std::error_code error;
    if (connected)
        socket.assign(asio::local::stream_protocol(), connected->descriptor(), error);
    if (!connected || error)
        return;
    (void)connected->release();
    const auto channel = Channel::create(std::move(socket));
    channel->handOver(std::make_shared<DaemonListener>(simulation));
    channel->start();
    const auto request = encodeXmlPropertyList(Dictionary { { "ClientVersionString", "1" },
        { "MessageType", "Listen" }, { "ProgName", "tdwsimulator" } });
    channel->send(encodeMuxFrame(MuxFrame { 1, kMuxPropertyListMessage, 1, *request }));
}

void DaemonListener::received(std::span<const std::byte> bytes)
{
    m_decoder.append(bytes);
    while (true) {
        const auto frame = m_decoder.next();
        if (!frame || !*frame)
            return;
        const auto message = decodePropertyList((*frame)->payload);
        if (message && message->asDictionary())
            log(*message->asDictionary());
    }
}

void DaemonListener::log(const Dictionary& message)
{
    const std::string* type = message.stringAt("MessageType");
    const auto identifier = message.intAt("DeviceID");
    if (!type || !identifier)
        return;
    std::string& device = m_devices[*identifier];
    const Dictionary* properties = message.dictionaryAt("Properties");
    const std::string* serial = properties ? properties->stringAt("SerialNumber") : nullptr;
    if (serial)
        device = *serial;
    m_simulation.log().add(FaultSite { kDaemonPlace, device, *type, &message });
}

} // namespace tdw::simulator
