#pragma once

#include <string_view>

namespace tdw::simulator {

/// What stays of a value that a device tells.
enum class Kept {
    /// Its type, length and shape.
    Nothing,
    /// Of a dictionary: the names in it, and of their values as above.
    Names,
    /// All of it.
    Content,
};

/// The domain under which a watch's values stand in the table.
inline constexpr std::string_view kWatchDomain = "watch";

/// Looks a value up in the allow list, which is the table in `AllowedValues.cpp`.
/// @param domain a lockdown domain, `kGlobalDomain`, or `kWatchDomain`
Kept keptOf(std::string_view domain, std::string_view key);

/// Says whether a device's error is one of the known names; another could hold anything.
bool isKnownError(std::string_view name);

} // namespace tdw::simulator
