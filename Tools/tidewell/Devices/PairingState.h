#pragma once

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <cstdint>
#include <string>

namespace tdw::cli {

/// The pairing state in a payload. Errors: `ExitStatus::Failure`, where there is none
Result<std::int64_t> pairingStateOf(const Value& payload);

/// A pairing state in words, and in as few as a narrow table has room for.
std::string pairingStateName(std::int64_t state);
std::string shortPairingStateName(std::int64_t state);

} // namespace tdw::cli
