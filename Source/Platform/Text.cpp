#include "Platform/Text.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace tdw {

namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

struct LeadByte {
    std::size_t length;
    std::uint32_t bits;
    std::uint32_t smallest;
};

std::optional<LeadByte> leadByte(unsigned char byte)
{
    if (byte < 0x80)
        return LeadByte { 1, byte, 0 };
    if ((byte & 0xE0) == 0xC0)
        return LeadByte { 2, byte & 0x1FU, 0x80 };
    if ((byte & 0xF0) == 0xE0)
        return LeadByte { 3, byte & 0x0FU, 0x800 };
    if ((byte & 0xF8) == 0xF0)
        return LeadByte { 4, byte & 0x07U, 0x10000 };
    return std::nullopt;
}

struct CodePoint {
    std::uint32_t value;
    std::size_t length;
};

std::optional<CodePoint> firstCodePoint(std::string_view text)
{
    if (text.empty())
        return std::nullopt;
    const auto lead = leadByte(static_cast<unsigned char>(text.front()));
    if (!lead || text.size() < lead->length)
        return std::nullopt;
    std::uint32_t value = lead->bits;
    for (std::size_t i = 1; i < lead->length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0) != 0x80)
            return std::nullopt;
        value = (value << 6) | (byte & 0x3FU);
    }
    const bool isSurrogate = value >= 0xD800 && value <= 0xDFFF;
    if (value < lead->smallest || isSurrogate || value > 0x10FFFF)
        return std::nullopt;
    return CodePoint { value, lead->length };
}

/// How much of `text`, from its start, is plain ASCII; eight bytes at a time, as most text is.
std::size_t asciiPrefixLength(std::string_view text)
{
    constexpr std::uint64_t kHighBits = 0x8080808080808080U;
    std::size_t length = 0;
    for (std::uint64_t word = 0; length + sizeof word <= text.size(); length += sizeof word) {
        std::memcpy(&word, text.data() + length, sizeof word);
        if ((word & kHighBits) != 0)
            break;
    }
    while (length < text.size() && static_cast<unsigned char>(text[length]) < 0x80)
        ++length;
    return length;
}

bool changesReadingDirection(std::uint32_t codePoint)
{
    return (codePoint >= 0x202A && codePoint <= 0x202E)
        || (codePoint >= 0x2066 && codePoint <= 0x2069) || codePoint == 0x200E
        || codePoint == 0x200F || codePoint == 0x061C;
}

void appendEscaped(std::string& result, std::uint32_t codePoint)
{
    if (codePoint == '\n') {
        result += "\\n";
    } else if (codePoint == '\r') {
        result += "\\r";
    } else if (codePoint == '\t') {
        result += "\\t";
    } else {
        std::array<char, 12> text {};
        std::snprintf(text.data(), text.size(), "\\u%04x", codePoint);
        result += text.data();
    }
}

} // namespace

std::optional<std::size_t> utf8SequenceLength(std::string_view text)
{
    const auto codePoint = firstCodePoint(text);
    if (!codePoint)
        return std::nullopt;
    return codePoint->length;
}

bool isValidUtf8(std::string_view text)
{
    while (true) {
        text.remove_prefix(asciiPrefixLength(text));
        if (text.empty())
            return true;
        const auto length = utf8SequenceLength(text);
        if (!length)
            return false;
        text.remove_prefix(*length);
    }
}

std::string withInvalidUtf8Replaced(std::string_view text)
{
    if (isValidUtf8(text))
        return std::string(text);
    std::string result;
    result.reserve(text.size() + 16);
    while (!text.empty()) {
        const auto length = utf8SequenceLength(text);
        result += length ? text.substr(0, *length) : kReplacementCharacter;
        text.remove_prefix(length.value_or(1));
    }
    return result;
}

std::string withControlCharactersEscaped(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const auto codePoint = firstCodePoint(text);
        if (!codePoint) {
            result += kReplacementCharacter;
            text.remove_prefix(1);
            continue;
        }
        const auto value = codePoint->value;
        if (value < 0x20 || (value >= 0x7F && value < 0xA0) || changesReadingDirection(value))
            appendEscaped(result, value);
        else
            result += text.substr(0, codePoint->length);
        text.remove_prefix(codePoint->length);
    }
    return result;
}

} // namespace tdw
