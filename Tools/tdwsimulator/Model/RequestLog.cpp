#include "Model/RequestLog.h"

#include <algorithm>

namespace tdw::simulator {

bool LogFilter::matches(const LogEntry& entry) const
{
    return entry.number > after && (!at || *at == entry.at) && (!device || *device == entry.device)
        && (!request || *request == entry.request);
}

void RequestLog::add(const FaultSite& site)
{
    m_entries.push_back(LogEntry { ++m_lastNumber, std::string(site.at), std::string(site.device),
        std::string(site.request), site.message ? *site.message : Dictionary() });
    if (m_entries.size() > kCapacity)
        m_entries.pop_front();
    if (m_pending.empty())
        return;

    // Waiters may wait again or cause further entries, so they are called from a list of their own.
    const LogEntry entry = m_entries.back();
    std::vector<Waiter> satisfied;
    std::erase_if(m_pending, [&](Pending& pending) {
        if (!pending.filter.matches(entry) || --pending.missing > 0)
            return false;
        satisfied.push_back(std::move(pending.waiter));
        return true;
    });
    for (const Waiter& waiter : satisfied)
        waiter(entry);
}

std::vector<LogEntry> RequestLog::entries(const LogFilter& filter) const
{
    std::vector<LogEntry> matching;
    std::copy_if(m_entries.begin(), m_entries.end(), std::back_inserter(matching),
        [&](const LogEntry& entry) { return filter.matches(entry); });
    return matching;
}

std::uint64_t RequestLog::wait(const LogFilter& filter, std::uint64_t count, Waiter waiter)
{
    for (const LogEntry& entry : m_entries) {
        if (filter.matches(entry) && --count == 0) {
            const LogEntry found = entry;
            waiter(found);
            return 0;
        }
    }
    m_pending.push_back(Pending { ++m_lastWaiter, filter, count, std::move(waiter) });
    return m_lastWaiter;
}

void RequestLog::giveUp(std::uint64_t number)
{
    std::erase_if(m_pending, [number](const Pending& pending) { return pending.number == number; });
}

} // namespace tdw::simulator
