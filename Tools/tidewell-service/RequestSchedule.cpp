#include "RequestSchedule.h"

#include <algorithm>

namespace tdw::service {

void RequestSchedule::add(Client client, Ticket ticket, Clock::time_point deadline)
{
    m_clients[client].waiting.push_back({ ticket, deadline });
}

void RequestSchedule::putBack(Client client, Ticket ticket, Clock::time_point deadline)
{
    m_clients[client].waiting.push_front({ ticket, deadline });
    ended(client);
}

std::optional<RequestSchedule::Ticket> RequestSchedule::next()
{
    const std::size_t free = m_places - std::min(m_places, m_running);
    auto best = m_clients.end();
    const auto consider = [&](Clients::iterator client) {
        const Requests& requests = client->second;
        const bool isAllowed = requests.running == 0 ? free > 0 : requests.running < free;
        if (!requests.waiting.empty() && isAllowed
            && (best == m_clients.end() || requests.running < best->second.running))
            best = client;
    };
    // Those behind the one that was served last come first.
    const auto middle = m_clients.upper_bound(m_lastServed);
    for (auto client = middle; client != m_clients.end(); ++client)
        consider(client);
    for (auto client = m_clients.begin(); client != middle; ++client)
        consider(client);
    if (best == m_clients.end())
        return std::nullopt;

    const Ticket ticket = best->second.waiting.front().ticket;
    best->second.waiting.pop_front();
    ++best->second.running;
    ++m_running;
    m_lastServed = best->first;
    return ticket;
}

void RequestSchedule::ended(Client client)
{
    const auto found = m_clients.find(client);
    --found->second.running;
    --m_running;
    forgetIfIdle(found);
}

std::vector<RequestSchedule::Ticket> RequestSchedule::removeClient(Client client)
{
    const auto found = m_clients.find(client);
    if (found == m_clients.end())
        return {};
    std::vector<Ticket> removed;
    for (const Waiting& waiting : found->second.waiting)
        removed.push_back(waiting.ticket);
    found->second.waiting.clear();
    forgetIfIdle(found);
    return removed;
}

std::vector<RequestSchedule::Ticket> RequestSchedule::removeLate(Clock::time_point now)
{
    std::vector<Ticket> removed;
    for (auto client = m_clients.begin(); client != m_clients.end();) {
        std::erase_if(client->second.waiting, [&](const Waiting& waiting) {
            const bool isLate = waiting.deadline <= now;
            if (isLate)
                removed.push_back(waiting.ticket);
            return isLate;
        });
        forgetIfIdle(client++);
    }
    return removed;
}

std::optional<RequestSchedule::Clock::time_point> RequestSchedule::earliestDeadline() const
{
    std::optional<Clock::time_point> earliest;
    for (const auto& [client, requests] : m_clients) {
        for (const Waiting& waiting : requests.waiting)
            earliest = std::min(earliest.value_or(waiting.deadline), waiting.deadline);
    }
    return earliest;
}

std::size_t RequestSchedule::waiting() const
{
    std::size_t count = 0;
    for (const auto& [client, requests] : m_clients)
        count += requests.waiting.size();
    return count;
}

void RequestSchedule::forgetIfIdle(Clients::iterator client)
{
    if (client->second.waiting.empty() && client->second.running == 0)
        m_clients.erase(client);
}

} // namespace tdw::service
