#include "Recording/TextShape.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>

namespace tdw::simulator {

namespace {

/// What is replaced inside longer texts has at least so many letters and digits, and so many
/// digits.
constexpr std::ptrdiff_t kIdentifierLength = 8;
constexpr std::ptrdiff_t kIdentifierDigits = 3;

/// The marks that say nothing of how a text is built. The last one is never put in: what begins
/// with it means something in a scenario.
constexpr std::string_view kOtherMarks = "!\"#%&'*;<>?[\\]^`{|}~$";

bool isUpper(char character)
{
    return character >= 'A' && character <= 'Z';
}

bool isLower(char character)
{
    return character >= 'a' && character <= 'z';
}

std::size_t codePointLength(char first)
{
    const auto byte = static_cast<unsigned char>(first);
    return byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
}

std::string encoded(std::uint32_t codePoint, std::size_t length)
{
    std::string text(length, '\0');
    for (std::size_t i = length; --i > 0; codePoint >>= 6U)
        text[i] = static_cast<char>(0x80U | (codePoint & 0x3FU));
    constexpr std::array<std::uint32_t, 5> kFirst { 0, 0, 0xC0, 0xE0, 0xF0 };
    text[0] = static_cast<char>(kFirst[length] | codePoint);
    return text;
}

std::string falseCodePoint(std::string_view original, const Random& random)
{
    struct Range {
        std::uint32_t first;
        std::uint32_t count;
    };
    // Latin letters, marks of punctuation or ideographs, pictures.
    constexpr Range kLetters { 0x100, 0x7F };
    constexpr Range kMarks { 0x2010, 0x17 };
    constexpr Range kIdeographs { 0x4E00, 0x5000 };
    constexpr Range kPictures { 0x1F300, 0x2FF };
    const bool isMark = original.starts_with("\xE2\x80");
    const Range range = original.size() == 2 ? kLetters
        : original.size() == 4               ? kPictures
        : isMark                             ? kMarks
                                             : kIdeographs;
    return encoded(range.first + static_cast<std::uint32_t>(random(range.count)), original.size());
}

char falseCharacter(char original, Digits digits, const Random& random)
{
    const std::uint64_t letters = digits == Digits::Hexadecimal ? 6 : 26;
    if (isDigit(original))
        return static_cast<char>('0' + random(10));
    if (isUpper(original))
        return static_cast<char>('A' + random(letters));
    if (isLower(original))
        return static_cast<char>('a' + random(letters));
    if (kOtherMarks.find(original) != std::string_view::npos)
        return kOtherMarks[random(kOtherMarks.size() - 1)];
    return original;
}

} // namespace

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

bool isAlphanumeric(char character)
{
    return isDigit(character) || isUpper(character) || isLower(character);
}

bool isHexadecimal(char character)
{
    return isDigit(character) || (character >= 'a' && character <= 'f')
        || (character >= 'A' && character <= 'F');
}

std::string withoutMarks(std::string_view text)
{
    std::string result;
    std::copy_if(text.begin(), text.end(), std::back_inserter(result), isAlphanumeric);
    return result;
}

bool isAllHexadecimal(std::string_view text)
{
    const std::string digits = withoutMarks(text);
    return !digits.empty() && std::all_of(digits.begin(), digits.end(), isHexadecimal);
}

bool isIdentifier(std::string_view word)
{
    const auto length = std::count_if(word.begin(), word.end(), isAlphanumeric);
    const auto digits = std::count_if(word.begin(), word.end(), isDigit);
    const bool isAddress = isAllHexadecimal(word) && length >= 12;
    return isAddress || (length >= kIdentifierLength && digits >= kIdentifierDigits)
        || (digits == length && digits >= 6);
}

std::vector<std::string> words(std::string_view text)
{
    std::vector<std::string> result;
    std::string word;
    const auto finish = [&] {
        const auto first = std::find_if(word.begin(), word.end(), isAlphanumeric);
        const auto last = std::find_if(word.rbegin(), word.rend(), isAlphanumeric).base();
        if (first < last)
            result.emplace_back(first, last);
        word.clear();
    };
    for (const char character : text) {
        if (isAlphanumeric(character) || character == '-' || character == ':')
            word += character;
        else
            finish();
    }
    finish();
    return result;
}

std::string cased(std::string text, bool upper)
{
    for (char& character : text) {
        if (upper && isLower(character))
            character = static_cast<char>(character - 'a' + 'A');
        else if (!upper && isUpper(character))
            character = static_cast<char>(character - 'A' + 'a');
    }
    return text;
}

std::optional<std::uint64_t> chipIdentifier(std::string_view udid)
{
    constexpr std::size_t kHyphen = 8;
    constexpr std::size_t kLength = 25;
    std::uint64_t number = 0;
    if (udid.size() != kLength || udid[kHyphen] != '-' || !isAllHexadecimal(udid))
        return std::nullopt;
    const char* end = udid.data() + udid.size();
    const auto result = std::from_chars(udid.data() + kHyphen + 1, end, number, 16);
    return result.ptr == end ? std::optional(number) : std::nullopt;
}

std::string falseText(std::string_view original, Digits digits, const Random& random)
{
    std::string result;
    for (std::size_t i = 0; i < original.size();) {
        const std::size_t length = std::min(codePointLength(original[i]), original.size() - i);
        if (length == 1)
            result += falseCharacter(original[i], digits, random);
        else
            result += falseCodePoint(original.substr(i, length), random);
        i += length;
    }
    return result;
}

} // namespace tdw::simulator
