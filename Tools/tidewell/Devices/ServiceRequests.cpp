#include "Devices/ServiceRequests.h"

#include "Client/TidewellServiceClient.h"
#include "Devices/ClientRequests.h"
#include "Devices/RequestErrors.h"
#include "Errors/CommandLineError.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/CallbackQueue.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>

namespace tdw::cli {

namespace {

/// More than a start of the service, a place in its queue and the slowest server take together. A
/// service that is stopped by a debugger would not answer at all.
constexpr std::chrono::seconds kPatience { 90 };

} // namespace

/// The client's callbacks, run by those who wait for them: a queue of our own would start a thread
/// only to wake another one.
class ServiceRequests::Callbacks {
public:
    void add(std::function<void()> callback)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_callbacks.push_back(std::move(callback));
        }
        m_change.notify_all();
    }

    /// Runs callbacks, whoever waits for them, until one of them has set `answer`.
    /// @return whether it came in time
    bool runUntil(const std::optional<Value>& answer, std::chrono::steady_clock::time_point end)
    {
        std::unique_lock lock(m_mutex);
        while (!answer) {
            const bool isInTime = m_change.wait_until(
                lock, end, [&] { return answer.has_value() || !m_callbacks.empty(); });
            if (!isInTime)
                return false;
            // They only store answers, so they may run under the lock that guards these.
            for (const auto& callback : std::exchange(m_callbacks, {}))
                callback();
            m_change.notify_all();
        }
        return true;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_change;
    std::deque<std::function<void()>> m_callbacks;
};

ServiceRequests::ServiceRequests()
    : m_callbacks(std::make_shared<Callbacks>())
    , m_client(TidewellServiceClient::initWithQueue(
          CallbackQueue([callbacks = m_callbacks](std::function<void()> callback) {
              callbacks->add(std::move(callback));
          })))
{
}

ServiceRequests::~ServiceRequests()
{
    m_client->invalidateTerminatingService(false);
}

Result<Value> ServiceRequests::send(
    std::string_view server, const std::vector<std::string>& arguments) const
{
    // Shared, because an answer may come when nobody waits for it any more.
    const auto answer = std::make_shared<std::optional<Value>>();
    sendByClient(*m_client, server, arguments,
        [answer](const Value& envelope) { answer->emplace(envelope); });
    if (!m_callbacks->runUntil(*answer, std::chrono::steady_clock::now() + kPatience))
        return commandLineError({ .status = ExitStatus::ServiceUnavailable,
            .reason = "The service of Tidewell has not answered within "
                + std::to_string(kPatience.count()) + " s.",
            .advice = "\"tidewell service stop\" ends it; the next request starts another." });

    std::optional<Error> error;
    if (auto payload = TDWResponseUnwrap(**answer, error))
        return *std::move(payload);
    return requestError(server, *error);
}

} // namespace tdw::cli
