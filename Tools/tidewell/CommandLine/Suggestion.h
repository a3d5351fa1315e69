#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// The known name that `given` was probably meant to be: the one that the fewest typing errors
/// (letters missing, added, replaced or swapped) lead to, where those are few enough.
std::optional<std::string_view> nearestName(
    std::string_view given, const std::vector<std::string_view>& known);

} // namespace tdw::cli
