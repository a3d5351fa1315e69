#include "EventRelay.h"

#include "Interfaces/TDWServer.h"
#include "Support/TDWErrorHelpers.h"

#include <csignal>
#include <utility>

namespace tdw::service {

EventRelay::EventRelay(
    Queue queue, Bundle bundle, std::shared_ptr<ServerThread> servers, ListDevices listDevices)
    : m_queue(std::move(queue))
    , m_bundle(std::move(bundle))
    , m_servers(std::move(servers))
    , m_listDevices(std::move(listDevices))
    , m_log(std::string(kTidewellErrorDomain), "EventRelay")
{
}

void EventRelay::subscribe(std::uint64_t identifier, EventHandler events, ReplyHandler reply)
{
    Subscriber& subscriber = m_subscribers[identifier];
    if (const auto earlier = std::exchange(subscriber.reply, std::move(reply)))
        earlier(std::nullopt);
    subscriber.events = std::move(events);
    take(m_policy.subscribed(identifier, RelayPolicy::Clock::now()));
}

void EventRelay::unsubscribe(std::uint64_t identifier)
{
    m_subscribers.erase(identifier);
    take(m_policy.unsubscribed(identifier));
}

void EventRelay::stop(std::function<void()> done)
{
    m_subscribers.clear();
    m_timer.cancel();
    endServer(SIGKILL);
    if (m_living == 0)
        return done();
    m_whenNoneLives = std::move(done);
}

void EventRelay::take(const RelayPolicy::Actions& actions)
{
    for (const auto& action : actions)
        std::visit([this](const auto& each) { perform(each); }, action);
}

void EventRelay::perform(RelayPolicy::StartServer /*action*/)
{
    const std::uint64_t generation = ++m_generation;
    const auto self = shared_from_this();
    EventStreamOptions options { .serverName = std::string(kTidewellServerEvents),
        .bundle = m_bundle,
        .arguments = {},
        .callbackQueue = m_queue,
        .lineHandler =
            [self, generation](const std::string& line) {
                if (self->m_generation == generation)
                    self->take(self->m_policy.received(line));
            },
        .completionHandler
        = [self, generation](const std::optional<Error>& error) { self->ended(generation, error); },
        .envelope = EventStreamOptions::Envelope::OnEitherStream };
    ++m_living;
    m_servers->loop().post([self, generation, options = std::move(options)] {
        auto run = EventStreamRun::start(self->m_servers->loop(), options);
        self->m_queue.async([self, generation, run] { self->started(generation, run); });
    });
}

void EventRelay::started(std::uint64_t generation, Result<std::shared_ptr<EventStreamRun>> run)
{
    if (!run)
        return ended(generation, run.error());
    // It may have been told to end before it was there.
    if (m_generation != generation)
        return (*run)->sendSignal(m_lastSignal);
    m_run = *std::move(run);
    take(m_policy.started());
}

void EventRelay::ended(std::uint64_t generation, const std::optional<Error>& error)
{
    --m_living;
    if (m_generation == generation) {
        const Error reason = error.value_or(
            TDWErrorCreateWithMessage("The events server ended without a reason.", 0));
        m_log.error("The events server ended: " + reason.debugDescription());
        take(m_policy.ended(reason, RelayPolicy::Clock::now()));
    }
    if (m_living == 0 && m_whenNoneLives)
        m_whenNoneLives();
}

void EventRelay::perform(RelayPolicy::EndServer /*action*/)
{
    endServer(SIGTERM);
}

void EventRelay::endServer(int signalNumber)
{
    ++m_generation;
    m_lastSignal = signalNumber;
    if (const auto run = std::exchange(m_run, nullptr))
        run->sendSignal(signalNumber);
}

void EventRelay::perform(const RelayPolicy::SetTimer& action)
{
    m_timer.cancel();
    m_timer = WorkItem([weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->take(self->m_policy.timerFired(RelayPolicy::Clock::now()));
    });
    m_queue.after(action.delay, m_timer);
}

void EventRelay::perform(RelayPolicy::CancelTimer /*action*/)
{
    m_timer.cancel();
}

void EventRelay::perform(const RelayPolicy::Reply& action)
{
    const auto found = m_subscribers.find(action.subscriber);
    if (found == m_subscribers.end())
        return;
    const ReplyHandler reply = std::exchange(found->second.reply, nullptr);
    if (action.error)
        m_subscribers.erase(found);
    if (reply)
        reply(action.error);
}

void EventRelay::perform(const RelayPolicy::Tell& action)
{
    const auto found = m_subscribers.find(action.subscriber);
    if (found != m_subscribers.end())
        found->second.events(action.event);
}

void EventRelay::perform(RelayPolicy::ListDevices /*action*/)
{
    m_listDevices([weak = weak_from_this(), generation = m_generation](
                      const std::optional<std::set<DevicePath>>& devices) {
        const auto self = weak.lock();
        if (self && self->m_generation == generation)
            self->take(self->m_policy.listed(devices));
    });
}

} // namespace tdw::service
