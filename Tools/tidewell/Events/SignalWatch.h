#pragma once

#include "Platform/FileHandle.h"
#include "Platform/Result.h"

#include <csignal>
#include <initializer_list>
#include <optional>

namespace tdw::cli {

/// Turns signals into something to wait for beside other descriptors, for as long as it lives.
/// Threads that are started meanwhile leave these signals alone.
class SignalWatch {
public:
    /// Errors: `kPosixErrorDomain`
    static Result<SignalWatch> create(std::initializer_list<int> signalNumbers);

    SignalWatch(SignalWatch&& other) noexcept = default;
    SignalWatch& operator=(SignalWatch&&) = delete;
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;
    ~SignalWatch();

    /// Polls readable while there are signals.
    int descriptor() const { return m_signals.descriptor(); }

    /// The next signal that came, or none.
    std::optional<int> take() const;

private:
    SignalWatch(FileHandle signals, const sigset_t& previousMask);

    FileHandle m_signals;
    sigset_t m_previousMask;
};

} // namespace tdw::cli
