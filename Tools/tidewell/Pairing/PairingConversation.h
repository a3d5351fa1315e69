#pragma once

#include "Platform/Result.h"
#include "Platform/Value.h"

#include <string>
#include <string_view>

namespace tdw::cli {

/// Decides after each attempt to pair how it goes on. Knows no device and no clock.
class PairingConversation {
public:
    enum class Next {
        /// The device trusts this computer.
        Done,
        /// The user has something to do on the device; `instruction` says what.
        TryAgain,
    };

    /// @param answer what became of the attempt
    /// Errors: `ExitStatus::NotTrusted` where the device refuses; the attempt's own
    Result<Next> next(const Result<Value>& answer);

    /// What the user is to do now; empty before the first attempt.
    std::string_view instruction() const { return m_instruction; }

private:
    Next waitFor(std::string_view instruction);

    std::string_view m_instruction;
};

} // namespace tdw::cli
