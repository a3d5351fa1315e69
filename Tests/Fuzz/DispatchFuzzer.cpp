#include "Client/ServiceMessages.h"
#include "Fuzz.h"
#include "Platform/Messages/Message.h"

namespace {

/// Answers everything at once.
class AnsweringService final : public TidewellServiceProtocol {
public:
    void invokeServer(const std::string&, const std::vector<std::string>&, double,
        std::function<void(const tdw::Value&)> reply) override
    {
        reply(tdw::Dictionary());
    }
    void subscribeToDeviceEvents(
        std::function<void(const std::optional<tdw::Error>&)> reply) override
    {
        reply(std::nullopt);
    }
    void terminate() override { }
    void getServiceConnectionEndpoint(std::function<void(const tdw::Endpoint&)> reply) override
    {
        reply(tdw::Endpoint("/"));
    }
    void status(std::function<void(const tdw::Value&)> reply) override { reply(tdw::Dictionary()); }
};

class ListeningClient final : public TidewellClientProtocol {
public:
    void serviceReachedResourceLimitWithUptime(const tdw::Value&) override { }
    void serviceDidReceiveDeviceEvent(const std::string&) override { }
};

} // namespace

/// A message to the service or to the client is answered once, whatever it is.
void fuzz(std::span<const std::byte> bytes)
{
    const auto content = tdw::decodeMessage(bytes);
    const auto* message = content ? std::get_if<tdw::Message>(&*content) : nullptr;
    if (!message)
        return;
    const auto incoming = [message](int& answers) {
        return tdw::IncomingMessage { message->selector, message->arguments,
            tdw::MessageReply([&answers](const tdw::Result<tdw::Array>&) { ++answers; }) };
    };
    int answers = 0;
    AnsweringService service;
    tdw::dispatch(incoming(answers), service);
    require(answers == 1);
    ListeningClient client;
    tdw::dispatch(incoming(answers), client);
    require(answers == 2);
}
