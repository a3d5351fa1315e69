#pragma once

#include "Platform/Values/Value.h"

#include <cstddef>
#include <span>
#include <string>

namespace tdw::cli {

/// Bytes in base64, with padding.
std::string base64(std::span<const std::byte> bytes);

/// A moment as "2026-05-01T12:00:00Z", with six digits of a second where they say something. Years
/// before 0 and after 9999 have a sign, as ISO 8601 wants it.
std::string iso8601(Date date);

} // namespace tdw::cli
