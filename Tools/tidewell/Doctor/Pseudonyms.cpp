#include "Doctor/Pseudonyms.h"

#include "Interfaces/TDWDeviceInfo.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

namespace tdw::cli {

namespace {

/// What says of which kind a device is, and stays.
bool isHarmless(std::string_view key)
{
    const std::string_view keys[]
        = { kTDWDeviceInfoDeviceClass, kTDWDeviceInfoHardwareModel, kTDWDeviceInfoProductType,
              kTDWDeviceInfoDeviceColor, kTDWDeviceInfoHardwarePlatform, kTDWDeviceInfoProductName,
              kTDWDeviceInfoProductVersion, kTDWDeviceInfoBuildVersion, kTDWDeviceInfoReleaseType };
    return std::ranges::find(keys, key) != std::end(keys);
}

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

bool isHex(char character)
{
    return isDigit(character) || (character >= 'a' && character <= 'f')
        || (character >= 'A' && character <= 'F');
}

bool isLetterOrDigit(char character)
{
    return isDigit(character) || (character >= 'a' && character <= 'z')
        || (character >= 'A' && character <= 'Z');
}

/// What identifiers are made of.
bool isOfWord(char character)
{
    return isLetterOrDigit(character) || character == '-' || character == ':' || character == '.'
        || character == '_' || character == '@' || character == '%';
}

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    while (true) {
        const auto end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos)
            return parts;
        text.remove_prefix(end + 1);
    }
}

bool isHexOfLength(std::string_view text, std::size_t shortest, std::size_t longest)
{
    return text.size() >= shortest && text.size() <= longest && std::ranges::all_of(text, isHex);
}

bool isUdid(std::string_view text)
{
    constexpr std::size_t kHyphen = 8;
    if (text.size() == 25 && text[kHyphen] == '-')
        return isHexOfLength(text.substr(0, kHyphen), 8, 8)
            && isHexOfLength(text.substr(kHyphen + 1), 16, 16);
    return isHexOfLength(text, 24, 40);
}

bool isUuid(std::string_view text)
{
    const auto parts = split(text, '-');
    constexpr std::array<std::size_t, 5> kLengths { 8, 4, 4, 4, 12 };
    return std::ranges::equal(parts, kLengths, [](std::string_view part, std::size_t length) {
        return isHexOfLength(part, length, length);
    });
}

bool isMacAddress(std::string_view text)
{
    const auto parts = split(text, ':');
    return parts.size() == 6 && std::ranges::all_of(parts, [](std::string_view part) {
        return isHexOfLength(part, 2, 2);
    });
}

bool isIpv4Address(std::string_view text)
{
    const auto parts = split(text, '.');
    return parts.size() == 4 && std::ranges::all_of(parts, [](std::string_view part) {
        return !part.empty() && part.size() <= 3 && std::ranges::all_of(part, isDigit);
    });
}

bool isIpv6Address(std::string_view text)
{
    text = text.substr(0, text.find('%'));
    const auto parts = split(text, ':');
    const bool isShortened = text.find("::") != std::string_view::npos;
    return text.size() > 2 && (isShortened ? parts.size() >= 3 : parts.size() == 8)
        && std::ranges::all_of(
            parts, [](std::string_view part) { return isHexOfLength(part, 0, 4); });
}

bool isMailAddress(std::string_view text)
{
    const auto at = text.find('@');
    return at != std::string_view::npos && at > 0 && text.find(':') == std::string_view::npos
        && text.substr(at).find('.') != std::string_view::npos;
}

/// How many bytes from the beginning are a telephone number with its country's code.
std::size_t lengthOfTelephoneNumber(std::string_view text)
{
    constexpr std::size_t kFewestDigits = 7;
    std::size_t digits = 0;
    std::size_t length = 0;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (isDigit(text[i])) {
            ++digits;
            length = i + 1;
        } else if (std::string_view(" ()-/").find(text[i]) == std::string_view::npos) {
            break;
        }
    }
    return !text.empty() && text.front() == '+' && digits >= kFewestDigits ? length : 0;
}

template <typename... Numbers>
std::string formatted(const char* format, Numbers... numbers)
{
    std::array<char, 96> text {};
    (void)std::snprintf(text.data(), text.size(), format, numbers...);
    return text.data();
}

std::string pseudonym(std::string_view kind, std::size_t number, std::size_t length)
{
    const auto count = static_cast<unsigned>(number);
    if (kind == "udid" && length == 25)
        return formatted("%08u-0000000000000000", count);
    if (kind == "udid")
        return formatted("%08u", count) + std::string(length - 8, '0');
    if (kind == "uuid")
        return formatted("%08u-0000-4000-8000-000000000000", count);
    if (kind == "mac")
        return formatted("02:00:00:00:%02x:%02x", count >> 8 & 0xffU, count & 0xffU);
    if (kind == "ipv4")
        return formatted("192.0.2.%u", count);
    if (kind == "ipv6")
        return formatted("2001:db8::%x", count);
    if (kind == "mail")
        return formatted("mail%u@example.org", count);
    if (kind == "telephone")
        return formatted("+000000000%02u", count);
    return std::string(kind) + "-" + std::to_string(number);
}

/// Begins where a word ends, so that neither is cut out of a longer one.
bool standsAlone(std::string_view text, std::size_t begin, std::size_t length)
{
    return (begin == 0 || !isLetterOrDigit(text[begin - 1]))
        && (begin + length >= text.size() || !isLetterOrDigit(text[begin + length]));
}

} // namespace

std::string Pseudonyms::falseOne(std::string_view kind, std::string_view original)
{
    const std::string key = std::string(kind) + '\n' + std::string(original);
    if (const auto found = m_known.find(key); found != m_known.end())
        return found->second;
    const std::size_t number = ++m_counts[std::string(kind)];
    return m_known.emplace(key, pseudonym(kind, number, original.size())).first->second;
}

void Pseudonyms::addName(std::string_view name)
{
    if (!name.empty() && !m_names.contains(name) && replacedWord(name) == name)
        m_names.emplace(name, falseOne("name", name));
}

void Pseudonyms::addWord(std::string_view word, std::string_view kind)
{
    if (!word.empty())
        m_words.emplace(word, falseOne(kind, word));
}

void Pseudonyms::addAnswer(const Value& answer)
{
    const Dictionary* fields = answer.asDictionary();
    if (!fields)
        return;
    for (const auto& [key, value] : *fields) {
        if (const std::string* text = value.asString(); text && !isHarmless(key))
            addName(*text);
    }
}

void Pseudonyms::addSurroundings()
{
    std::array<char, 256> host {};
    if (::gethostname(host.data(), host.size() - 1) == 0)
        addWord(host.data(), "host");
    // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread asks
    const passwd* user = ::getpwuid(::geteuid());
    // Every computer has this user.
    if (user && std::string_view(user->pw_name) != "root") {
        addWord(user->pw_name, "user");
        addName(
            std::string_view(user->pw_gecos).substr(0, std::string_view(user->pw_gecos).find(',')));
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes its environment
    const char* home = std::getenv("HOME");
    if (home && std::string_view(home).size() > 1 && std::string_view(home) != "/root")
        addName(home);
}

std::string Pseudonyms::replacedWord(std::string_view word)
{
    const struct {
        bool (*matches)(std::string_view);
        std::string_view kind;
    } kinds[] = { { isUdid, "udid" }, { isUuid, "uuid" }, { isMacAddress, "mac" },
        { isIpv4Address, "ipv4" }, { isIpv6Address, "ipv6" }, { isMailAddress, "mail" } };
    if (word == "127.0.0.1" || word == "0.0.0.0")
        return std::string(word);
    for (const auto& [matches, kind] : kinds) {
        if (matches(word))
            return falseOne(kind, word);
    }
    return std::string(word);
}

std::string Pseudonyms::withoutNames(std::string_view text) const
{
    std::vector<std::pair<std::string_view, std::string_view>> names(
        m_names.begin(), m_names.end());
    std::ranges::sort(
        names, [](const auto& a, const auto& b) { return a.first.size() > b.first.size(); });
    constexpr std::size_t kShortest = 3;
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        const auto isHere = [&](const auto& entry, bool alone) {
            return text.substr(i).starts_with(entry.first)
                && (!alone || standsAlone(text, i, entry.first.size()));
        };
        const auto name = std::ranges::find_if(names,
            [&](const auto& entry) { return isHere(entry, entry.first.size() < kShortest); });
        if (name != names.end()) {
            result += name->second;
            i += name->first.size();
            continue;
        }
        const auto word
            = std::ranges::find_if(m_words, [&](const auto& entry) { return isHere(entry, true); });
        if (word != m_words.end()) {
            result += word->second;
            i += word->first.size();
            continue;
        }
        result += text[i++];
    }
    return result;
}

Value Pseudonyms::replacedIn(const Value& value)
{
    if (const std::string* text = value.asString())
        return replaced(std::string_view(*text));
    if (const Array* array = value.asArray()) {
        Array result;
        for (const Value& item : *array)
            result.push_back(replacedIn(item));
        return result;
    }
    if (const Dictionary* dictionary = value.asDictionary()) {
        Dictionary result;
        for (const auto& [key, item] : *dictionary)
            result.set(key, replacedIn(item));
        return result;
    }
    return value;
}

std::string Pseudonyms::replaced(std::string_view original)
{
    const std::string text = withoutNames(original);
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        const std::string_view rest = std::string_view(text).substr(i);
        if (const std::size_t length = lengthOfTelephoneNumber(rest)) {
            result += falseOne("telephone", rest.substr(0, length));
            i += length;
            continue;
        }
        if (!isOfWord(text[i])) {
            result += text[i++];
            continue;
        }
        std::size_t length = 0;
        while (length < rest.size() && isOfWord(rest[length]))
            ++length;
        // A full stop or a colon after an identifier belongs to the sentence.
        std::size_t kept = length;
        while (kept > 0 && std::string_view(".:-").find(rest[kept - 1]) != std::string_view::npos)
            --kept;
        const std::string_view word = rest.substr(0, kept);
        std::string replacement = replacedWord(word);
        if (replacement == word && word.find_first_of("@.:") != std::string_view::npos) {
            // Identifiers that are joined, as in names of network services.
            replacement.clear();
            std::string_view left = word;
            while (!left.empty()) {
                const auto end = left.find_first_of("@.");
                replacement += replacedWord(left.substr(0, end));
                if (end == std::string_view::npos)
                    break;
                replacement += left[end];
                left.remove_prefix(end + 1);
            }
        }
        result += replacement;
        result += rest.substr(kept, length - kept);
        i += length;
    }
    return result;
}

} // namespace tdw::cli
