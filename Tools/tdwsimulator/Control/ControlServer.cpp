#include "Control/ControlServer.h"

#include "Device/Channel.h"
#include "Model/SimulatorError.h"

#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <optional>

namespace tdw::simulator {

namespace {

constexpr std::size_t kMaximumLine = 1u << 20;

class ControlConnection final : public ChannelHandler,
                                public std::enable_shared_from_this<ControlConnection> {
public:
    ControlConnection(
        Simulation& simulation, ControlProtocol& protocol, const std::shared_ptr<Channel>& channel)
        : m_simulation(simulation)
        , m_protocol(protocol)
        , m_channel(channel)
        , m_timer(channel->executor())
    {
    }

    void received(std::span<const std::byte> bytes) override
    {
        m_text.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        handleLines();
    }

    void ended() override { stopWaiting(); }

private:
    void handleLines()
    {
        while (!m_waiter) {
            const std::size_t end = m_text.find('\n');
            if (end == std::string::npos)
                break;
            const std::string line = m_text.substr(0, end);
            m_text.erase(0, end + 1);
            const auto answer = m_protocol.answer(line);
            if (const auto* json = std::get_if<Json>(&answer))
                send(*json);
            else
                wait(std::get<WaitRequest>(answer));
        }
        if (m_text.size() > kMaximumLine) {
            send(ControlProtocol::failure(simulatorError(
                "a line is longer than " + std::to_string(kMaximumLine) + " bytes")));
            if (const auto channel = m_channel.lock())
                channel->closeAfterSending();
        }
    }

    void wait(const WaitRequest& request)
    {
        const std::uint64_t number = m_simulation.log().wait(
            request.filter, request.count, [weak = weak_from_this()](const LogEntry& entry) {
                if (const auto self = weak.lock())
                    self->finish(ControlProtocol::success(
                        { { "entry", ControlProtocol::entryAsJson(entry) } }));
            });
        if (number == 0)
            return;
        m_waiter = number;
        m_timer.expires_after(request.bound);
        m_timer.async_wait([self = shared_from_this(), request](std::error_code error) {
            if (error || !self->m_waiter)
                return;
            self->m_simulation.log().giveUp(*self->m_waiter);
            self->finish(ControlProtocol::failure(simulatorError(
                "nothing of the kind within " + std::to_string(request.bound.count()) + " ms")));
        });
    }

    void finish(const Json& answer)
    {
        const bool wasWaiting = m_waiter.has_value();
        m_waiter.reset();
        m_timer.cancel();
        send(answer);
        // Not from here: this may be in the middle of the very change that was waited for.
        if (wasWaiting)
            asio::post(
                m_timer.get_executor(), [self = shared_from_this()] { self->handleLines(); });
    }

    void stopWaiting()
    {
        if (m_waiter)
            m_simulation.log().giveUp(*m_waiter);
        m_waiter.reset();
        m_timer.cancel();
    }

    void send(const Json& json)
    {
        const std::string line = jsonText(json) + "\n";
        const auto bytes = std::as_bytes(std::span(line));
        if (const auto channel = m_channel.lock())
            channel->send(Data(bytes.begin(), bytes.end()));
    }

    Simulation& m_simulation;
    ControlProtocol& m_protocol;
    std::weak_ptr<Channel> m_channel;
    asio::steady_timer m_timer;
    std::string m_text;
    std::optional<std::uint64_t> m_waiter;
};

} // namespace

ControlServer::ControlServer(
    asio::io_context& context, Simulation& simulation, ControlProtocol protocol)
    : m_simulation(simulation)
    , m_protocol(std::move(protocol))
    , m_listener(
          context, [this](asio::local::stream_protocol::socket socket) { take(std::move(socket)); })
{
}

Result<void> ControlServer::open(const std::filesystem::path& path)
{
    return m_listener.open(path);
}

void ControlServer::take(asio::local::stream_protocol::socket socket)
{
    const auto channel = Channel::create(std::move(socket));
    channel->handOver(std::make_shared<ControlConnection>(m_simulation, m_protocol, channel));
    channel->start();
}

} // namespace tdw::simulator
