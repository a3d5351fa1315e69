#include "Platform/Values/Utf8.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>

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

struct CodePointRange {
    std::uint32_t first;
    std::uint32_t last;
};

/// In ascending order.
constexpr CodePointRange kInvisible[] = {
    { 0x00, 0x1F }, // control characters
    { 0x7F, 0x9F }, { 0xAD, 0xAD }, // soft hyphen
    { 0x034F, 0x034F }, // grapheme joiner
    { 0x061C, 0x061C }, // Arabic letter mark
    { 0x115F, 0x1160 }, // Hangul fillers
    { 0x17B4, 0x17B5 }, // Khmer vowels without a shape
    { 0x180B, 0x180F }, // Mongolian separators
    { 0x200B, 0x200B }, // zero-width space
    { 0x200E, 0x200F }, // direction marks
    { 0x2028, 0x202E }, // line and paragraph separators, embeddings and overrides
    { 0x2060, 0x206F }, // word joiner, isolates, shaping
    { 0x3164, 0x3164 }, // Hangul filler
    { 0xFE00, 0xFE0E }, // variation selectors
    { 0xFEFF, 0xFEFF }, // byte order mark
    { 0xFFA0, 0xFFA0 }, // Hangul filler
    { 0xFFF0, 0xFFFB }, // interlinear annotation
    { 0x1BCA0, 0x1BCA3 }, // shorthand format
    { 0x1D173, 0x1D17A }, // musical format
    { 0xE0000, 0xE0FFF }, // tags, variation selectors
};

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
        std::snprintf(
            text.data(), text.size(), codePoint > 0xFFFF ? "\\u{%x}" : "\\u%04x", codePoint);
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

void appendUtf8(std::string& text, std::uint32_t codePoint)
{
    const auto continuation = [codePoint](unsigned shift) {
        return static_cast<char>(0x80 | ((codePoint >> shift) & 0x3F));
    };
    if (codePoint < 0x80) {
        text += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        text += static_cast<char>(0xC0 | (codePoint >> 6));
        text += continuation(0);
    } else if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
        text += kReplacementCharacter;
    } else if (codePoint < 0x10000) {
        text += static_cast<char>(0xE0 | (codePoint >> 12));
        text += { continuation(6), continuation(0) };
    } else {
        text += static_cast<char>(0xF0 | (codePoint >> 18));
        text += { continuation(12), continuation(6), continuation(0) };
    }
}

bool isInvisible(std::uint32_t codePoint)
{
    return std::any_of(
        std::begin(kInvisible), std::end(kInvisible), [codePoint](const auto& range) {
            return codePoint >= range.first && codePoint <= range.last;
        });
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
        if (isInvisible(value))
            appendEscaped(result, value);
        else
            result += text.substr(0, codePoint->length);
        text.remove_prefix(codePoint->length);
    }
    return result;
}

} // namespace tdw
