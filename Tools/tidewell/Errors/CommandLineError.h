#pragma once

#include "Errors/ExitStatus.h"
#include "Platform/Values/Error.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// In the user info of an error: what the user can do about it, a whole sentence or more.
inline constexpr std::string_view kAdviceErrorKey = "NSLocalizedRecoverySuggestion";

/// The domain of the tool's own errors; their codes are the values of `ExitStatus`.
const std::string& commandLineErrorDomain();

/// An error of the tool's own.
struct CommandLineErrorOptions {
    ExitStatus status;
    std::string reason;
    std::string advice {};
    std::optional<Error> cause {};
    /// Programs have their answer already, which says the same.
    bool isAnswered = false;
};
Error commandLineError(const CommandLineErrorOptions& options);

/// Whether the error was made with `isAnswered`.
bool isAnswered(const Error& error);

/// `cause` with what was being tried, such as "Cannot list the devices" (no full stop: the reason
/// follows). Domain and code stay those of `cause`.
Error whileTrying(std::string_view attempt, const Error& cause);

/// An error with what else failed because of it, shown where every detail is wanted.
Error withCause(const Error& error, const Error& cause);

/// An error and what caused it, outermost first. Errors come out of other processes, so the length
/// is bounded.
std::vector<Error> causeChain(const Error& error);

} // namespace tdw::cli
