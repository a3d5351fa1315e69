#pragma once

#include "Platform/Export.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tdw {

class Dictionary;
class Value;

/// The keys that mean something in every error's user info, on both sides of every process
/// boundary.
inline constexpr std::string_view kUnderlyingErrorKey = "NSUnderlyingError";
inline constexpr std::string_view kMultipleUnderlyingErrorsKey = "NSMultipleUnderlyingErrorsKey";
inline constexpr std::string_view kLocalizedFailureReasonErrorKey = "NSLocalizedFailureReason";
inline constexpr std::string_view kDebugDescriptionErrorKey = "NSDebugDescription";

/// The domain of failed system calls; the code is errno.
inline constexpr std::string_view kPosixErrorDomain = "NSPOSIXErrorDomain";

/// The domain of failures of the platform's own pieces (property lists, executables, peers).
inline constexpr std::string_view kCocoaErrorDomain = "NSCocoaErrorDomain";

/// What went wrong: a domain, a code in that domain, and a user info with the readable parts.
///
///     return Error::posix(code, "Cannot open " + path); // code: errno as the call left it
///
/// Immutable, cheap to copy, safe to hand to another thread.
class TDW_EXPORT Error {
public:
    Error(std::string_view domain, std::int64_t code, Dictionary userInfo);

    /// An error whose user info is the failure reason alone.
    Error(std::string_view domain, std::int64_t code, std::string_view failureReason);

    /// The failure of a system call.
    /// @param errnoValue the value of errno right after the call
    /// @param context what was tried, with the value it was tried on; the system's own text is
    ///        appended: "Cannot open /x: No such file or directory"
    static Error posix(int errnoValue, std::string_view context);

    const std::string& domain() const;
    std::int64_t code() const;
    const Dictionary& userInfo() const;

    /// The text under `kLocalizedFailureReasonErrorKey`, or an empty one.
    std::string failureReason() const;

    /// Domain, code and user info on one line, for diagnostics.
    std::string debugDescription() const;

    bool operator==(const Error& other) const;

private:
    struct State;
    std::shared_ptr<const State> m_state;
};

} // namespace tdw
