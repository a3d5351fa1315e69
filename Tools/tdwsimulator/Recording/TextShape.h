#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::simulator {

/// How texts are built, and others that are built in the same way.

/// From 0 up to below.
using Random = std::function<std::uint64_t(std::uint64_t bound)>;

bool isDigit(char character);
bool isAlphanumeric(char character);
bool isHexadecimal(char character);

/// The letters and digits alone.
std::string withoutMarks(std::string_view text);

/// Whether all letters and digits are hexadecimal, and there are any.
bool isAllHexadecimal(std::string_view text);

std::string cased(std::string text, bool upper);

/// The words of a text: what stands between anything but letters, digits, hyphens and colons.
std::vector<std::string> words(std::string_view text);

/// Whether a word looks like something that is one device's own: an address, a number, a mixture
/// of letters and digits.
bool isIdentifier(std::string_view word);

/// The number that a UDID of today ends with; none for any other text.
std::optional<std::uint64_t> chipIdentifier(std::string_view udid);

enum class Digits { Decimal, Hexadecimal };

/// A random text of the same length and shape.
/// @param digits `Hexadecimal` where letters are digits as well
std::string falseText(std::string_view original, Digits digits, const Random& random);

} // namespace tdw::simulator
