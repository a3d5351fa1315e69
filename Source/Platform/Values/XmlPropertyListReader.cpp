#include "Platform/Values/PropertyListFormats.h"
#include "Platform/Values/Utf8.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <system_error>

namespace tdw {

namespace {

constexpr std::string_view kSpace = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// A place in an array or a dictionary, which may grow to twice what it holds.
constexpr std::size_t kGrowth = 2;

std::string_view trimmed(std::string_view text)
{
    const auto first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

/// All of `text` as a number in `base`, or none.
template <typename Number, typename... Base>
std::optional<Number> numberOf(std::string_view text, Base... base)
{
    Number number {};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base...);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

Result<Value> integerOf(std::string_view text)
{
    std::string_view digits = trimmed(text);
    const bool isNegative = digits.starts_with('-');
    if (isNegative || digits.starts_with('+'))
        digits.remove_prefix(1);
    const bool isHexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
    const auto number = isHexadecimal ? numberOf<std::uint64_t>(digits.substr(2), 16)
                                      : numberOf<std::uint64_t>(digits, 10);
    constexpr std::uint64_t kLowestMagnitude = std::uint64_t { 1 } << 63;
    if (!number || (isNegative && *number > kLowestMagnitude))
        return corruptPropertyList("an integer is no number or out of range");
    if (isNegative)
        return Value(Integer(static_cast<std::int64_t>(-*number)));
    return Value(Integer(*number));
}

Result<Value> realOf(std::string_view text)
{
    std::string_view digits = trimmed(text);
    if (digits.starts_with('+'))
        digits.remove_prefix(1);
    if (const auto number = numberOf<double>(digits))
        return Value(*number);
    return corruptPropertyList("a real number is no number");
}

/// "2026-11-22T03:00:07Z", with or without a fraction of the second.
std::optional<Date> dateOf(std::string_view text)
{
    using namespace std::chrono;
    const auto number = [&text](char end) -> std::optional<unsigned> {
        const auto length = text.find(end);
        if (length == std::string_view::npos || length > 6)
            return std::nullopt;
        const auto digits = text.substr(0, length);
        text.remove_prefix(length + 1);
        return numberOf<unsigned>(digits, 10);
    };
    const auto year = number('-');
    const auto month = number('-');
    const auto day = number('T');
    const auto hour = number(':');
    const auto minute = number(':');
    const bool hasFraction = text.find('.') != std::string_view::npos;
    const auto second = number(hasFraction ? '.' : 'Z');
    std::string fraction = hasFraction ? std::string(text.substr(0, text.find('Z'))) : "0";
    fraction.resize(6, '0');
    const auto micros = numberOf<unsigned>(fraction, 10);
    if (!year || !month || !day || !hour || !minute || !second || !micros)
        return std::nullopt;
    const year_month_day calendar(std::chrono::year(static_cast<int>(*year)),
        std::chrono::month(*month), std::chrono::day(*day));
    if (*year < 1 || *year > 9999 || !calendar.ok() || *hour > 23 || *minute > 59 || *second > 60)
        return std::nullopt;
    return sys_days(calendar) + hours(*hour) + minutes(*minute) + seconds(*second)
        + microseconds(*micros);
}

/// What each byte means in Base64: its six bits, or one of these.
constexpr std::uint8_t kNoDigit = 0xFF;
constexpr std::uint8_t kSkipped = 0xFE;
constexpr auto kBase64 = [] {
    constexpr std::string_view kDigits
        = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<std::uint8_t, 256> table {};
    table.fill(kNoDigit);
    for (const char space : kSpace)
        table[static_cast<std::uint8_t>(space)] = kSkipped;
    for (std::size_t i = 0; i < kDigits.size(); ++i)
        table[static_cast<std::uint8_t>(kDigits[i])] = static_cast<std::uint8_t>(i);
    return table;
}();

std::optional<Data> dataOf(std::string_view text)
{
    text = text.substr(0, text.find('='));
    Data data;
    data.reserve(text.size() / 4 * 3 + 3);
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char character : text) {
        const std::uint8_t digit = kBase64[static_cast<std::uint8_t>(character)];
        if (digit == kSkipped)
            continue;
        if (digit == kNoDigit)
            return std::nullopt;
        bits = (bits << 6) | digit;
        count += 6;
        if (count >= 8) {
            count -= 8;
            data.push_back(static_cast<std::byte>((bits >> count) & 0xFF));
        }
    }
    return data;
}

/// Reads one document from its start to its end, each byte once.
class XmlReader {
public:
    explicit XmlReader(std::string_view text)
        : m_rest(text)
        , m_budget(text.size())
    {
        if (m_rest.starts_with(kByteOrderMark))
            m_rest.remove_prefix(kByteOrderMark.size());
    }

    Result<Value> run()
    {
        Tag tag = TDW_TRY(nextTag());
        const bool hasFrame = tag.name == "plist";
        if (hasFrame && tag.kind == Tag::Kind::Open)
            tag = TDW_TRY(nextTag());
        Value value = TDW_TRY(this->value(tag, 0));
        if (hasFrame)
            TDW_TRY(expectClose("plist"));
        TDW_TRY(skipSpaceAndComments());
        if (!m_rest.empty())
            return corruptPropertyList("something follows its end");
        return value;
    }

private:
    struct Tag {
        enum class Kind { Open, Close, Empty };
        std::string_view name;
        Kind kind;
    };

    Result<void> skipPast(std::string_view start, std::string_view end)
    {
        const auto found = m_rest.find(end, start.size());
        if (found == std::string_view::npos)
            return corruptPropertyList("it ends before \"" + std::string(end) + "\"");
        m_rest.remove_prefix(found + end.size());
        return {};
    }

    Result<void> skipSpaceAndComments()
    {
        while (true) {
            m_rest.remove_prefix(std::min(m_rest.find_first_not_of(kSpace), m_rest.size()));
            if (m_rest.starts_with("<!--")) {
                TDW_TRY(skipPast("<!--", "-->"));
            } else if (m_rest.starts_with("<?")) {
                TDW_TRY(skipPast("<?", "?>"));
            } else if (m_rest.starts_with("<!DOCTYPE")) {
                // An internal subset would be the place of entity tricks.
                const auto end = m_rest.find_first_of("[>");
                if (end == std::string_view::npos || m_rest[end] == '[')
                    return corruptPropertyList("it holds an unfinished or internal document type");
                m_rest.remove_prefix(end + 1);
            } else {
                return {};
            }
        }
    }

    Result<Tag> nextTag()
    {
        TDW_TRY(skipSpaceAndComments());
        if (!m_rest.starts_with('<'))
            return corruptPropertyList(
                m_rest.empty() ? "it is cut short" : "text stands where an element should");
        const auto end = m_rest.find('>');
        if (end == std::string_view::npos)
            return corruptPropertyList("it ends inside a tag");
        std::string_view body = m_rest.substr(1, end - 1);
        m_rest.remove_prefix(end + 1);
        Tag::Kind kind = Tag::Kind::Open;
        if (body.starts_with('/')) {
            kind = Tag::Kind::Close;
            body.remove_prefix(1);
        } else if (body.ends_with('/')) {
            kind = Tag::Kind::Empty;
            body.remove_suffix(1);
        }
        return Tag { body.substr(0, body.find_first_of(kSpace)), kind };
    }

    Result<void> expectClose(std::string_view name)
    {
        const Tag tag = TDW_TRY(nextTag());
        if (tag.kind != Tag::Kind::Close || tag.name != name)
            return corruptPropertyList("<" + std::string(name) + "> is not closed");
        return {};
    }

    Result<Value> value(const Tag& tag, std::size_t depth)
    {
        if (depth > kPropertyListMaximumDepth)
            return corruptPropertyList("it is nested too deeply");
        if (++m_objects > kPropertyListMaximumObjects)
            return corruptPropertyList("it holds too many objects");
        if (tag.kind == Tag::Kind::Close)
            return corruptPropertyList("</" + shown(tag.name) + "> closes nothing");
        if (tag.name == "dict")
            return dictionary(tag, depth);
        if (tag.name == "array")
            return array(tag, depth);
        if (tag.name == "true" || tag.name == "false") {
            if (tag.kind == Tag::Kind::Open)
                TDW_TRY(expectClose(tag.name));
            return Value(tag.name == "true");
        }
        return scalar(tag.name, TDW_TRY(text(tag)));
    }

    static std::string shown(std::string_view name) { return std::string(name.substr(0, 40)); }

    Result<Value> scalar(std::string_view name, std::string text) const
    {
        if (name == "string")
            return Value(std::move(text));
        if (name == "integer")
            return integerOf(text);
        if (name == "real")
            return realOf(text);
        if (name == "date") {
            if (const auto date = dateOf(trimmed(text)))
                return Value(*date);
            return corruptPropertyList("a date is unreadable or out of range");
        }
        if (name == "data") {
            if (auto data = dataOf(text))
                return Value(*std::move(data));
            return corruptPropertyList("its data are not in Base64");
        }
        return corruptPropertyList("unknown element <" + shown(name) + ">");
    }

    /// What stands between `tag` and its end.
    Result<std::string> text(const Tag& tag)
    {
        std::string result;
        while (tag.kind == Tag::Kind::Open) {
            const auto length = std::min(m_rest.find_first_of("<&"), m_rest.size());
            result += m_rest.substr(0, length);
            m_rest.remove_prefix(length);
            if (m_rest.starts_with("</"))
                break;
            TDW_TRY(special(result));
        }
        if (tag.kind == Tag::Kind::Open)
            TDW_TRY(expectClose(tag.name));
        TDW_TRY(m_budget.spend(DecodingBudget::kObjectBytes + result.size()));
        return isValidUtf8(result) ? result : withInvalidUtf8Replaced(result);
    }

    /// Reads what stands for something else in a text: an entity, character data, a comment.
    Result<void> special(std::string& result)
    {
        constexpr std::string_view kCharacterData = "<![CDATA[";
        if (m_rest.starts_with('&'))
            return entity(result);
        if (m_rest.starts_with("<!--"))
            return skipPast("<!--", "-->");
        if (!m_rest.starts_with(kCharacterData))
            return corruptPropertyList("it ends inside a text, or an element stands there");
        const std::string_view data = m_rest.substr(kCharacterData.size());
        TDW_TRY(skipPast(kCharacterData, "]]>"));
        result += data.substr(0, data.find("]]>"));
        return {};
    }

    Result<void> entity(std::string& result)
    {
        constexpr std::size_t kLongestEntity = 12;
        const auto end = m_rest.substr(0, kLongestEntity).find(';');
        if (end == std::string_view::npos)
            return corruptPropertyList("an entity has no end");
        const std::string_view name = m_rest.substr(1, end - 1);
        m_rest.remove_prefix(end + 1);
        if (name.starts_with('#')) {
            const auto codePoint = name.starts_with("#x")
                ? numberOf<std::uint32_t>(name.substr(2), 16)
                : numberOf<std::uint32_t>(name.substr(1), 10);
            if (!codePoint || *codePoint == 0)
                return corruptPropertyList("an entity names no character");
            appendUtf8(result, *codePoint);
            return {};
        }
        for (const auto& [known, character] : { std::pair("lt", '<'), std::pair("gt", '>'),
                 std::pair("amp", '&'), std::pair("quot", '"'), std::pair("apos", '\'') }) {
            if (name == known) {
                result += character;
                return {};
            }
        }
        return corruptPropertyList("unknown entity &" + shown(name) + ";");
    }

    Result<Value> array(const Tag& tag, std::size_t depth)
    {
        TDW_TRY(m_budget.spend(DecodingBudget::kObjectBytes));
        Array array;
        while (tag.kind == Tag::Kind::Open) {
            const Tag next = TDW_TRY(nextTag());
            if (next.kind == Tag::Kind::Close && next.name == tag.name)
                break;
            TDW_TRY(m_budget.spend(kGrowth, sizeof(Value)));
            array.push_back(TDW_TRY(value(next, depth + 1)));
        }
        return Value(std::move(array));
    }

    Result<Value> dictionary(const Tag& tag, std::size_t depth)
    {
        TDW_TRY(m_budget.spend(DecodingBudget::kObjectBytes));
        Dictionary dictionary;
        while (tag.kind == Tag::Kind::Open) {
            const Tag next = TDW_TRY(nextTag());
            if (next.kind == Tag::Kind::Close && next.name == tag.name)
                break;
            if (next.kind == Tag::Kind::Close || next.name != "key")
                return corruptPropertyList("<" + shown(next.name) + "> stands where a key should");
            TDW_TRY(m_budget.spend(kGrowth, DecodingBudget::kEntryBytes));
            const std::string key = TDW_TRY(text(next));
            const Tag content = TDW_TRY(nextTag());
            dictionary.set(key, TDW_TRY(value(content, depth + 1)));
        }
        return Value(std::move(dictionary));
    }

    std::string_view m_rest;
    DecodingBudget m_budget;
    std::size_t m_objects = 0;
};

} // namespace

Error corruptPropertyList(std::string_view what)
{
    return Error(kCocoaErrorDomain, kPropertyListReadCorruptError,
        "Not a readable property list: " + std::string(what));
}

Result<Value> readXmlPropertyList(std::string_view text)
{
    return XmlReader(text).run();
}

} // namespace tdw
