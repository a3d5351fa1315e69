#include "CommandLine/Suggestion.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace tdw::cli {

namespace {

/// No mistyped name is longer; it also bounds the work.
constexpr std::size_t kLongestName = 64;

/// The number of typing errors that lead from one text to the other.
std::size_t typingErrors(std::string_view from, std::string_view to)
{
    // Row i holds the errors from the first i letters of `from` to each beginning of `to`.
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(to.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t { 0 });
    for (std::size_t i = 1; i <= from.size(); ++i) {
        std::vector<std::size_t> row(to.size() + 1, i);
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
            row[j] = std::min({ row[j - 1] + 1, last[j] + 1, replaced });
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
        beforeLast = std::exchange(last, std::move(row));
    }
    return last.back();
}

} // namespace

std::optional<std::string_view> nearestName(
    std::string_view given, const std::vector<std::string_view>& known)
{
    if (given.size() > kLongestName)
        return std::nullopt;
    std::optional<std::string_view> nearest;
    std::size_t fewest = given.size() / 3 + 2;
    for (const std::string_view name : known) {
        const bool isBeginning = given.size() >= 2 && name.starts_with(given);
        const std::size_t errors = isBeginning ? 0 : typingErrors(given, name);
        if (errors < fewest) {
            nearest = name;
            fewest = errors;
        }
    }
    return nearest;
}

} // namespace tdw::cli
