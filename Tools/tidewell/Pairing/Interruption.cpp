#include "Pairing/Interruption.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace tdw::cli {

namespace {

sigset_t interruptions()
{
    sigset_t set {};
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

} // namespace

Result<Interruption> Interruption::create()
{
    const sigset_t set = interruptions();
    FileHandle signals(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals.isOpen())
        return Error::posix(errno, "Cannot watch for signals");
    sigset_t previousMask {};
    if (const int error = pthread_sigmask(SIG_BLOCK, &set, &previousMask); error != 0)
        return Error::posix(error, "Cannot hold signals back");
    return Interruption(std::move(signals), previousMask);
}

Interruption::Interruption(FileHandle signals, const sigset_t& previousMask)
    : m_signals(std::move(signals))
    , m_previousMask(previousMask)
{
}

Interruption::Interruption(Interruption&& other) noexcept = default;

Interruption::~Interruption()
{
    if (m_signals.isOpen())
        pthread_sigmask(SIG_SETMASK, &m_previousMask, nullptr);
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
    signalfd_siginfo information {};
    const bool isKnown
        = read(m_signals.descriptor(), &information, sizeof(information)) == sizeof(information);
    const int number = isKnown ? static_cast<int>(information.ssi_signo) : SIGINT;
    std::signal(number, SIG_DFL);
    const sigset_t set = interruptions();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    std::raise(number);
    std::abort(); // The default of both signals is to end the process.
}

} // namespace tdw::cli
