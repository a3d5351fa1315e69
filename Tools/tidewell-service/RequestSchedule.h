#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

namespace tdw::service {

/// Whose request runs next. It knows clients and tickets, and is told the time.
///
/// A client may have as many requests running as there are places free: alone it gets half of them,
/// the next one half of what is left, and so on. Thus there is a place for a client that comes with
/// its first request, however many requests others have waiting. Among those that may, the one with
/// the fewest running comes first, and between equals they take turns.
class RequestSchedule {
public:
    using Clock = std::chrono::steady_clock;
    using Client = std::uint64_t;
    using Ticket = std::uint64_t;

    /// @param places how many requests may run at once; at least 1
    explicit RequestSchedule(std::size_t places)
        : m_places(places)
    {
    }

    /// @param deadline when waiting is over
    void add(Client client, Ticket ticket, Clock::time_point deadline);

    /// A ticket that `next` gave could not be used yet: it is the client's first again.
    void putBack(Client client, Ticket ticket, Clock::time_point deadline);

    /// The request to be started now, which counts as running until `ended`.
    std::optional<Ticket> next();
    void ended(Client client);

    /// Takes out what must not wait any longer: of a client that has gone, or because it is late.
    std::vector<Ticket> removeClient(Client client);
    std::vector<Ticket> removeLate(Clock::time_point now);

    /// When `removeLate` has something to do.
    std::optional<Clock::time_point> earliestDeadline() const;

    bool isBusy(Client client) const { return m_clients.contains(client); }
    std::size_t running() const { return m_running; }
    std::size_t waiting() const;

private:
    struct Waiting {
        Ticket ticket = 0;
        Clock::time_point deadline;
    };
    /// Of a client that has requests.
    struct Requests {
        std::deque<Waiting> waiting;
        std::size_t running = 0;
    };
    using Clients = std::map<Client, Requests>;

    void forgetIfIdle(Clients::iterator client);

    const std::size_t m_places;
    std::size_t m_running = 0;
    Clients m_clients;
    Client m_lastServed = 0;
};

} // namespace tdw::service
