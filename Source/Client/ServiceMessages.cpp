#include "Client/ServiceMessages.h"

#include "Interfaces/TDWResponse.h"

#include <algorithm>
#include <string>
#include <utility>

const std::string_view kTidewellServiceName = "org.tidewell.Tidewell.Service";

namespace tdw {

namespace {

constexpr std::string_view kInvokeServer = "invokeServer:withArguments:timeout:reply:";
constexpr std::string_view kSubscribe = "subscribeToDeviceEventsWithReply:";
constexpr std::string_view kTerminate = "terminate";
constexpr std::string_view kGetEndpoint = "getServiceConnectionEndpointWithReply:";
constexpr std::string_view kStatus = "statusWithReply:";
constexpr std::string_view kReachedResourceLimit = "serviceReachedResourceLimitWithUptime:";
constexpr std::string_view kDidReceiveEvent = "serviceDidReceiveDeviceEvent:";

Error replyOfOtherKind(std::string_view selector)
{
    return Error(kCocoaErrorDomain, kReplyInvalidError,
        std::string_view("The reply to \"" + std::string(selector) + "\" makes no sense."));
}

Error notUnderstood(const IncomingMessage& message)
{
    return Error(kCocoaErrorDomain, kMalformedMessageError,
        std::string_view("There is no message \"" + message.selector + "\" with arguments like "
            + Value(message.arguments).debugDescription()));
}

std::optional<std::vector<std::string>> stringsIn(const Value& value)
{
    const Array* array = value.asArray();
    if (!array || !std::ranges::all_of(*array, [](const Value& item) { return item.asString(); }))
        return std::nullopt;
    std::vector<std::string> strings;
    for (const Value& item : *array)
        strings.push_back(*item.asString());
    return strings;
}

bool dispatchInvocation(const IncomingMessage& message, TidewellServiceProtocol& service)
{
    const Array& arguments = message.arguments;
    if (arguments.size() != 3)
        return false;
    const std::string* server = arguments[0].asString();
    const auto serverArguments = stringsIn(arguments[1]);
    const auto timeout = arguments[2].asReal();
    if (!server || !serverArguments || !timeout)
        return false;
    service.invokeServer(*server, *serverArguments, *timeout,
        [reply = message.reply](const Value& response) { reply.succeed({ response }); });
    return true;
}

} // namespace

ServiceIdentity tidewellService()
{
    return { .name = std::string(kTidewellServiceName),
        .executable = "tidewell-service",
        .directory = "tidewell" };
}

ServiceProxy::ServiceProxy(std::shared_ptr<Connection> connection, ErrorHandler errorHandler)
    : m_connection(std::move(connection))
    , m_errorHandler(std::move(errorHandler))
{
}

void ServiceProxy::send(
    std::string_view selector, Array arguments, std::function<bool(const Array&)> reply)
{
    m_connection->send(selector, std::move(arguments),
        [selector, reply = std::move(reply), errorHandler = m_errorHandler](
            const Result<Array>& values) {
            if (values && reply(*values))
                return;
            if (errorHandler)
                errorHandler(values ? replyOfOtherKind(selector) : values.error());
        });
}

void ServiceProxy::invokeServer(const std::string& server,
    const std::vector<std::string>& arguments, double timeout,
    std::function<void(const Value& response)> reply)
{
    send(kInvokeServer, { server, Array(arguments.begin(), arguments.end()), timeout },
        [reply = std::move(reply)](const Array& values) {
            if (values.size() != 1)
                return false;
            reply(values.front());
            return true;
        });
}

void ServiceProxy::subscribeToDeviceEvents(std::function<void(const std::optional<Error>&)> reply)
{
    send(kSubscribe, {}, [reply = std::move(reply)](const Array& values) {
        if (values.size() > 1)
            return false;
        if (values.empty())
            reply(std::nullopt);
        else
            reply(TDWErrorParse(values.front()));
        return true;
    });
}

void ServiceProxy::terminate()
{
    m_connection->send(kTerminate, {}, StartPolicy::Fail);
}

void ServiceProxy::getServiceConnectionEndpoint(std::function<void(const Endpoint&)> reply)
{
    send(kGetEndpoint, {}, [reply = std::move(reply)](const Array& values) {
        const auto endpoint = Endpoint::fromValue(values.empty() ? Value("") : values.front());
        if (!endpoint)
            return false;
        reply(*endpoint);
        return true;
    });
}

void ServiceProxy::status(std::function<void(const Value& status)> reply)
{
    send(kStatus, {}, [reply = std::move(reply)](const Array& values) {
        if (values.size() != 1 || !values.front().asDictionary())
            return false;
        reply(values.front());
        return true;
    });
}

void ClientProxy::serviceReachedResourceLimitWithUptime(const Value& uptime)
{
    m_connection->send(kReachedResourceLimit, { uptime });
}

void ClientProxy::serviceDidReceiveDeviceEvent(const std::string& event)
{
    m_connection->send(kDidReceiveEvent, { event });
}

void dispatch(const IncomingMessage& message, TidewellServiceProtocol& service)
{
    const MessageReply& reply = message.reply;
    if (message.selector == kInvokeServer && dispatchInvocation(message, service))
        return;
    if (message.selector == kSubscribe)
        return service.subscribeToDeviceEvents([reply](const std::optional<Error>& error) {
            reply.succeed(error ? Array { TDWCreateErrorResponseDictionary(*error) } : Array());
        });
    if (message.selector == kTerminate)
        return service.terminate();
    if (message.selector == kGetEndpoint)
        return service.getServiceConnectionEndpoint(
            [reply](const Endpoint& endpoint) { reply.succeed({ endpoint.value() }); });
    if (message.selector == kStatus)
        return service.status([reply](const Value& status) { reply.succeed({ status }); });
    reply.fail(notUnderstood(message));
}

void dispatch(const IncomingMessage& message, TidewellClientProtocol& client)
{
    const Array& arguments = message.arguments;
    const bool hasOne = arguments.size() == 1;
    if (message.selector == kReachedResourceLimit && hasOne
        && (arguments[0].asInteger() || arguments[0].asReal()))
        return client.serviceReachedResourceLimitWithUptime(arguments[0]);
    if (message.selector == kDidReceiveEvent && hasOne && arguments[0].asString())
        return client.serviceDidReceiveDeviceEvent(*arguments[0].asString());
    message.reply.fail(notUnderstood(message));
}

} // namespace tdw
