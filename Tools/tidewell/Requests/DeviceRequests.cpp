#include "Requests/DeviceRequests.h"

#include "Client/TidewellServiceClient.h"
#include "Errors/CommandLineError.h"
#include "Host/RequestRunner.h"
#include "Host/ServerEnvelope.h"
#include "Host/TDWServerInvocation.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Messages/Connection.h"
#include "Platform/Messages/ServiceStart.h"
#include "Platform/System/Trace.h"
#include "Requests/RequestErrors.h"
#include "Support/TDWErrorKinds.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

namespace tdw::cli {

namespace {

/// How long after its own time a server is killed, and its caller told so.
constexpr std::chrono::seconds kKillMargin { 2 };

std::chrono::seconds timeoutOf(const DeviceQuery& query)
{
    const auto* server = TDWServerNamed(serverFor(query));
    return server ? server->timeout : std::chrono::seconds(10);
}

/// Whether asking twice is as good as asking once.
bool isReading(const DeviceQuery& query)
{
    return !std::holds_alternative<SettingQuery>(query)
        && !std::holds_alternative<PairingQuery>(query);
}

Error serviceSilent(std::chrono::seconds patience)
{
    return commandLineError({ .status = ExitStatus::ServiceUnavailable,
        .reason = "The service of Tidewell has not answered within "
            + std::to_string(patience.count()) + " s.",
        .advice
        = "\"tidewell service stop\" ends it, and the next request starts another one. With "
          "--direct the request works without it." });
}

} // namespace

/// One of the two ways to a server.
class DeviceRequests::Sender {
public:
    Sender() = default;
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;
    virtual ~Sender() = default;
    virtual void send(DeviceQuery query, Handler handler) = 0;
};

class DeviceRequests::ServiceSender final : public Sender {
public:
    explicit ServiceSender(EventLoop& loop)
        : m_loop(loop)
        , m_client(TidewellServiceClient::initWithQueue(CallbackQueue(loop.poster())))
    {
    }
    ServiceSender(const ServiceSender&) = delete;
    ServiceSender& operator=(const ServiceSender&) = delete;
    ~ServiceSender() override { m_client->invalidateTerminatingService(false); }

    void send(DeviceQuery query, Handler handler) override
    {
        const std::uint64_t number = ++m_lastNumber;
        const auto patience = timeoutOf(query) + kKillMargin + kServiceStartBound;
        m_pending.emplace(number,
            Pending { std::move(query), std::move(handler), true,
                m_loop.after(patience, [=, this] { finish(number, serviceSilent(patience)); }) });
        attempt(number);
    }

private:
    struct Pending {
        DeviceQuery query;
        Handler handler;
        bool isFirstAttempt;
        EventLoop::Source deadline;
    };

    void attempt(std::uint64_t number)
    {
        m_client->send(m_pending.at(number).query,
            [this, number](const Value& envelope) { answered(number, envelope); });
    }

    void answered(std::uint64_t number, const Value& envelope)
    {
        const auto found = m_pending.find(number);
        if (found == m_pending.end())
            return;
        std::optional<Error> error;
        if (auto payload = TDWResponseUnwrap(envelope, error))
            return finish(number, *std::move(payload));
        Pending& pending = found->second;
        const bool hasServiceEnded
            = error->domain() == kCocoaErrorDomain && error->code() == kConnectionInterruptedError;
        if (hasServiceEnded && isReading(pending.query)
            && std::exchange(pending.isFirstAttempt, false))
            return attempt(number);
        finish(number, requestError(serverFor(pending.query), *error));
    }

    void finish(std::uint64_t number, Result<Value> result)
    {
        auto pending = m_pending.extract(number);
        pending.mapped().handler(std::move(result));
    }

    EventLoop& m_loop;
    const std::shared_ptr<TidewellServiceClient> m_client;
    std::uint64_t m_lastNumber = 0;
    std::map<std::uint64_t, Pending> m_pending;
};

class DeviceRequests::DirectSender final : public Sender {
public:
    explicit DirectSender(EventLoop& loop)
        : m_loop(loop)
        , m_bundle(Bundle::mainBundle())
        , m_runner(loop)
    {
    }

    void send(DeviceQuery query, Handler handler) override
    {
        const std::string server(serverFor(query));
        std::optional<Error> error;
        const auto executable = TDWValidateServerExecutable(server, m_bundle, error);
        if (error)
            return m_loop.post([handler = std::move(handler),
                                   failure = serverNotRun(server, *error)] { handler(failure); });
        ServerRunOptions options;
        options.executable = *executable;
        options.serverName = server;
        options.arguments = argumentsFor(query);
        options.timeout = timeoutOf(query) + kKillMargin;
        options.trace = traceAddress();
        // Posted, because a server that cannot be started completes at once.
        m_runner.start(std::move(options),
            [post = m_loop.poster(), handler = std::move(handler), server](
                const Result<ServerRunOutcome>& outcome) {
                post([handler, result = payloadOf(server, outcome)] { handler(result); });
            });
    }

private:
    static Result<Value> payloadOf(
        const std::string& server, const Result<ServerRunOutcome>& outcome)
    {
        if (!outcome)
            return serverNotRun(server, outcome.error());
        if (outcome->timedOut)
            return serverTimeoutError();
        const Value envelope = envelopeOfRun(
            server, outcome->output, outcome->termination, [&] { return outcome->standardError; });
        std::optional<Error> error;
        auto payload = TDWResponseUnwrap(envelope, error);
        return payload ? Result<Value>(*std::move(payload)) : Result<Value>(*std::move(error));
    }

    EventLoop& m_loop;
    const Bundle m_bundle;
    RequestRunner m_runner;
};

DeviceRequests::DeviceRequests(Transport transport, EventLoop loop)
    : m_transport(transport)
    , m_loop(std::move(loop))
{
}

DeviceRequests::~DeviceRequests() = default;

MultiplexerClient& DeviceRequests::multiplexer()
{
    if (!m_multiplexer)
        m_multiplexer = std::make_unique<MultiplexerClient>(m_loop);
    return *m_multiplexer;
}

void DeviceRequests::send(DeviceQuery query, Handler handler)
{
    if (!m_sender && m_transport == Transport::Service)
        m_sender = std::make_unique<ServiceSender>(m_loop);
    else if (!m_sender)
        m_sender = std::make_unique<DirectSender>(m_loop);
    const auto step
        = std::make_shared<TraceStep>("request to", TDWServerNamed(serverFor(query))->name);
    m_sender->send(std::move(query),
        [step = step, handler = std::move(handler)](Result<Value> payload) mutable {
            if (!payload)
                step->ended(payload.error().code());
            step.reset();
            handler(std::move(payload));
        });
}

Result<Value> DeviceRequests::ask(DeviceQuery query)
{
    return waitFor<Result<Value>>(m_loop, [&](auto handler) { send(query, std::move(handler)); });
}

void DeviceRequests::endServers()
{
    if (m_transport == Transport::Direct)
        m_sender.reset();
}

} // namespace tdw::cli
