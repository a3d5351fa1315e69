#include "Events/SignalWatch.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tdw::cli {

Result<SignalWatch> SignalWatch::create(std::initializer_list<int> signalNumbers)
{
    sigset_t set {};
    sigemptyset(&set);
    for (const int number : signalNumbers)
        sigaddset(&set, number);
    FileHandle signals(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals.isOpen())
        return Error::posix(errno, "Cannot watch for signals");
    sigset_t previousMask {};
    if (const int error = pthread_sigmask(SIG_BLOCK, &set, &previousMask); error != 0)
        return Error::posix(error, "Cannot hold signals back");
    return SignalWatch(std::move(signals), previousMask);
}

SignalWatch::SignalWatch(FileHandle signals, const sigset_t& previousMask)
    : m_signals(std::move(signals))
    , m_previousMask(previousMask)
{
}

SignalWatch::~SignalWatch()
{
    if (m_signals.isOpen())
        pthread_sigmask(SIG_SETMASK, &m_previousMask, nullptr);
}

std::optional<int> SignalWatch::take() const
{
    signalfd_siginfo information {};
    if (read(m_signals.descriptor(), &information, sizeof information) != sizeof information)
        return std::nullopt;
    return static_cast<int>(information.ssi_signo);
}

} // namespace tdw::cli
