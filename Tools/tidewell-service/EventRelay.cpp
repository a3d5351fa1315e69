#include "EventRelay.h"

#include "Interfaces/TDWServer.h"
#include "Support/TDWErrorHelpers.h"

#include <algorithm>
#include <csignal>
#include <utility>

namespace tdw::service {

EventRelay::EventRelay(Queue queue, Bundle bundle, ListDevices listDevices)
    : m_queue(std::move(queue))
    , m_bundle(std::move(bundle))
    , m_listDevices(std::move(listDevices))
    , m_log(std::string(kTidewellErrorDomain), "EventRelay")
{
}

void EventRelay::subscribe(std::uint64_t identifier, LineHandler lines, ReplyHandler reply)
{
    auto& subscriber = m_subscribers[identifier];
    if (subscriber.reply)
        subscriber.reply(std::nullopt);
    subscriber = { std::move(lines), std::move(reply) };
    if (m_state == State::Streaming)
        welcome(subscriber);
    else if (m_state == State::Stopped)
        start();
}

void EventRelay::unsubscribe(std::uint64_t identifier)
{
    if (m_subscribers.erase(identifier) > 0 && m_subscribers.empty())
        endWork();
}

void EventRelay::endWork()
{
    endServer(SIGTERM);
    m_presence.clear();
    m_pause = kShortestPause;
}

void EventRelay::stop(std::function<void()> done)
{
    m_subscribers.clear();
    endServer(SIGKILL);
    if (m_living == 0)
        return done();
    m_whenNoneLives = std::move(done);
}

void EventRelay::endServer(int signalNumber)
{
    m_timer.cancel();
    ++m_generation;
    m_state = State::Stopped;
    if (const auto run = std::exchange(m_run, nullptr))
        run->sendSignal(signalNumber);
}

void EventRelay::start()
{
    const std::uint64_t generation = ++m_generation;
    const auto ifCurrent = [weak = weak_from_this(), generation](const auto& action) {
        const auto self = weak.lock();
        if (self && self->m_generation == generation)
            action(*self);
    };
    m_state = State::Starting;
    m_startTime = Clock::now();
    auto run = startStreamingServer({ .serverName = std::string(kTidewellServerEvents),
        .bundle = m_bundle,
        .arguments = {},
        .waitQueue = m_waitQueue,
        .callbackQueue = m_queue,
        .lineHandler =
            [ifCurrent](const std::string& line) {
                ifCurrent([&](EventRelay& self) { self.received(line); });
            },
        .completionHandler =
            [self = shared_from_this(), ifCurrent](const std::optional<Error>& error) {
                --self->m_living;
                ifCurrent([&](EventRelay& relay) { relay.ended(error); });
                if (self->m_living == 0 && self->m_whenNoneLives)
                    self->m_whenNoneLives();
            } });
    if (!run)
        return ended(run.error());
    ++m_living;
    m_run = *std::move(run);
    after(kQuietStart, &EventRelay::started);
}

void EventRelay::started()
{
    m_timer.cancel();
    m_state = State::Streaming;
    for (auto& [identifier, subscriber] : m_subscribers) {
        if (subscriber.reply)
            welcome(subscriber);
    }
    if (m_presence.hasUnconfirmed())
        confirmDevices();
}

void EventRelay::received(const std::string& line)
{
    if (m_state == State::Starting)
        started();
    tell(m_presence.received(line));
}

void EventRelay::ended(const std::optional<Error>& error)
{
    const Error reason
        = error.value_or(TDWErrorCreateWithMessage("The events server ended without a reason.", 0));
    m_log.error("The events server ended: " + reason.debugDescription());
    const bool wasStarting = m_state == State::Starting;
    endServer(SIGTERM);
    m_presence.serverEnded();
    if (wasStarting)
        failWaiting(reason);
    if (m_subscribers.empty())
        return endWork();
    pause();
}

void EventRelay::pause()
{
    if (Clock::now() - m_startTime >= kGoodLife)
        m_pause = kShortestPause;
    m_state = State::Pausing;
    after(m_pause, &EventRelay::start);
    m_pause = std::min(2 * m_pause, kLongestPause);
}

void EventRelay::failWaiting(const Error& error)
{
    std::vector<ReplyHandler> replies;
    std::erase_if(m_subscribers, [&](auto& entry) {
        if (!entry.second.reply)
            return false;
        replies.push_back(std::move(entry.second.reply));
        return true;
    });
    for (const auto& reply : replies)
        reply(error);
}

void EventRelay::welcome(Subscriber& subscriber)
{
    std::exchange(subscriber.reply, nullptr)(std::nullopt);
    for (const std::string& line : m_presence.present())
        subscriber.lines(line);
}

void EventRelay::confirmDevices()
{
    m_listDevices([weak = weak_from_this(), generation = m_generation](
                      const std::optional<std::set<DevicePath>>& devices) {
        const auto self = weak.lock();
        if (!self || self->m_generation != generation)
            return;
        // Devices that cannot be listed cannot be reached either. Those that are there after all
        // are announced by the events server.
        self->tell(self->m_presence.listed(devices.value_or(std::set<DevicePath>())));
    });
}

void EventRelay::tell(const DevicePresence::Lines& lines) const
{
    for (const std::string& line : lines) {
        for (const auto& [identifier, subscriber] : m_subscribers) {
            if (!subscriber.reply)
                subscriber.lines(line);
        }
    }
}

void EventRelay::after(std::chrono::milliseconds delay, void (EventRelay::*action)())
{
    m_timer = WorkItem([weak = weak_from_this(), generation = m_generation, action] {
        const auto self = weak.lock();
        if (self && self->m_generation == generation)
            (self.get()->*action)();
    });
    m_queue.after(delay, m_timer);
}

} // namespace tdw::service
