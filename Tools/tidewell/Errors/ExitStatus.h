#pragma once

#include "Platform/Values/Error.h"

#include <span>
#include <string_view>

namespace tdw::cli {

/// How the tool ends: the one list behind the help text and the manual page.
enum class ExitStatus {
    Success = 0,
    Failure = 1,
    NoDevice = 2,
    NotTrusted = 3,
    TimedOut = 4,
    MultiplexerUnavailable = 5,
    ServerNotRun = 6,
    OutputNotWritten = 7,
    ServiceUnavailable = 8,
    Disconnected = 9,
    Usage = 64,
};

struct ExitStatusMeaning {
    ExitStatus status;
    std::string_view meaning;
};

/// Each status with what it means, in the order of the numbers.
std::span<const ExitStatusMeaning> exitStatusMeanings();

/// The exit status for `error`: by the error itself, or else by what caused it.
ExitStatus exitStatusOf(const Error& error);

} // namespace tdw::cli
