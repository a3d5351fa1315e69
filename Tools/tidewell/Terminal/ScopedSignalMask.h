#pragma once

#include <csignal>
#include <initializer_list>

namespace tdw::cli {

/// Holds signals back from this thread for as long as it lives; those that came take effect then.
class ScopedSignalMask {
public:
    explicit ScopedSignalMask(std::initializer_list<int> signalNumbers)
    {
        sigset_t set {};
        sigemptyset(&set);
        for (const int number : signalNumbers)
            sigaddset(&set, number);
        pthread_sigmask(SIG_BLOCK, &set, &m_previous);
    }
    ScopedSignalMask(const ScopedSignalMask&) = delete;
    ScopedSignalMask& operator=(const ScopedSignalMask&) = delete;
    ~ScopedSignalMask() { pthread_sigmask(SIG_SETMASK, &m_previous, nullptr); }

private:
    sigset_t m_previous {};
};

} // namespace tdw::cli
