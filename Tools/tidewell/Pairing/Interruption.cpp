#include "Pairing/Interruption.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdlib>

namespace tdw::cli {

Result<Interruption> Interruption::create()
{
    return Interruption(TDW_TRY(SignalWatch::create({ SIGINT, SIGTERM })));
}

Interruption::Awaited Interruption::waitFor(
    int descriptor, std::chrono::steady_clock::time_point deadline) const
{
    while (true) {
        std::array entries { pollfd { m_signals.descriptor(), POLLIN, 0 },
            pollfd { descriptor, POLLIN, 0 } };
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        const auto bound = std::clamp<std::int64_t>(left.count(), 0, 60'000);
        const int count = poll(entries.data(), entries.size(), static_cast<int>(bound));
        if (count > 0 && entries[0].revents != 0)
            return Awaited::Interrupted;
        if (count > 0)
            return Awaited::Event;
        if (left.count() <= 0)
            return Awaited::Deadline;
    }
}

void Interruption::endProcess() const
{
    const int number = m_signals.take().value_or(SIGINT);
    std::signal(number, SIG_DFL);
    sigset_t set {};
    sigemptyset(&set);
    sigaddset(&set, number);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    std::raise(number);
    std::abort(); // The default of both signals is to end the process.
}

} // namespace tdw::cli
