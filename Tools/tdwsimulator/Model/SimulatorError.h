#pragma once

#include "Platform/Values/Error.h"

#include <string_view>

namespace tdw::simulator {

/// An error with a sentence; it names the value that was wrong.
inline Error simulatorError(std::string_view reason)
{
    return Error("TDWSimulatorErrorDomain", 1, reason);
}

} // namespace tdw::simulator
