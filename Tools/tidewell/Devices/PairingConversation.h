#pragma once

#include "Platform/Values/Error.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <optional>
#include <string_view>

namespace tdw::cli {

/// Decides after each attempt to pair how to go on. Knows no device and no clock.
class PairingConversation {
public:
    enum class Next {
        /// The device trusts this computer.
        Done,
        /// The user has something to do on the device; `instruction` says what.
        TryAgain,
        /// The device has left, as some do once they are told to trust: look again when it is back.
        /// Whether it trusts this computer is decided by the pair record and a handshake.
        LookAgain,
    };

    /// Whether the reason of the refusal is needed to decide: several share a pairing state.
    static bool needsReason(const Result<Value>& answer);

    /// @param answer of the attempt
    /// @param reason the device's own error for the refusal, where it is known
    /// Errors: `ExitStatus::NotTrusted` where the device refuses; the attempt's own
    Result<Next> next(const Result<Value>& answer, const std::optional<Error>& reason = {});

    /// What the user has to do now; empty before the first attempt.
    std::string_view instruction() const { return m_instruction; }

private:
    Result<Next> afterFailure(const Error& error);
    Next goOn(Next next, std::string_view instruction);

    std::string_view m_instruction;
};

} // namespace tdw::cli
