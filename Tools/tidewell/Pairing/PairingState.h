#pragma once

#include "Platform/Result.h"
#include "Platform/Value.h"

#include <cstdint>
#include <string>

namespace tdw::cli {

/// The pairing state in a payload. Errors: `ExitStatus::Failure`, where there is none
Result<std::int64_t> pairingStateOf(const Value& payload);

/// A pairing state in words.
std::string pairingStateName(std::int64_t state);

} // namespace tdw::cli
