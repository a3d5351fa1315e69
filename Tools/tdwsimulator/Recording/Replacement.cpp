#include "Recording/Replacement.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <span>

namespace tdw::simulator {

namespace {

/// The shortest number and the shortest data that are looked for inside others.
constexpr std::size_t kShortestForm = 6;

constexpr std::size_t kLongestKeptText = 64;
constexpr std::size_t kLongestKeptDigits = 12;
constexpr std::size_t kLongestKey = 64;
constexpr std::ptrdiff_t kMostKeyDigits = 4;

constexpr int kAttempts = 100;

/// The bytes that an even number of hexadecimal digits stands for, or none.
std::string bytesOf(const std::string& hex)
{
    std::string bytes;
    for (std::size_t i = 0; hex.size() % 2 == 0 && i < hex.size(); i += 2) {
        unsigned byte = 0;
        std::from_chars(hex.data() + i, hex.data() + i + 2, byte, 16);
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

std::uint64_t magnitude(Integer number)
{
    return number.isNegative() ? ~number.bits() + 1 : number.bits();
}

} // namespace

Replacement::Replacement()
    : Replacement([device = std::make_shared<std::random_device>()](std::uint64_t bound) {
        return std::uniform_int_distribution<std::uint64_t>(0, bound - 1)(*device);
    })
{
}

void Replacement::learnIdentifier(const std::string& text)
{
    if (m_identifiers.contains(text))
        return;
    const auto upper = m_identifiers.find(cased(text, true));
    std::string replacement
        = upper == m_identifiers.end() ? falseIdentifier(text) : cased(upper->second, false);
    m_identifiers.emplace(text, replacement);
    m_identifiers.emplace(cased(text, true), cased(replacement, true));
    addForms(text, replacement);
    if (const auto number = chipIdentifier(text)) {
        const std::uint64_t other = *chipIdentifier(replacement);
        m_integers.emplace(std::pair(false, *number), other);
        addForm(std::to_string(*number), std::to_string(other));
        addForms(text.substr(9), replacement.substr(9));
    }
}

void Replacement::learn(const Value& value)
{
    if (const std::string* text = value.asString()) {
        for (const std::string& word : words(*text)) {
            if (isIdentifier(word))
                learnIdentifier(word);
        }
    } else if (const Integer* number = value.asInteger()) {
        const Integer other = integer(*number);
        addForm(std::to_string(magnitude(*number)), std::to_string(magnitude(other)));
    } else if (const Array* array = value.asArray()) {
        for (const Value& item : *array)
            learn(item);
    } else if (const Dictionary* dictionary = value.asDictionary()) {
        for (const auto& [key, item] : *dictionary) {
            learn(Value(key));
            learn(item);
        }
    }
}

std::string Replacement::text(const std::string& original)
{
    if (const auto known = m_texts.find(original); known != m_texts.end())
        return known->second;
    std::string result;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        result.clear();
        std::size_t rest = 0;
        for (std::size_t i = 0; i < original.size();) {
            const Form* form = formAt(original, i);
            if (!form) {
                ++i;
                continue;
            }
            result += falseText(
                std::string_view(original).substr(rest, i - rest), Digits::Decimal, m_random);
            result += form->replacement;
            i += form->original.size();
            rest = i;
        }
        const auto tail = std::string_view(original).substr(rest);
        const bool isNumber = rest == 0 && isAllHexadecimal(tail) && tail.size() > kShortestForm;
        result += falseText(tail, isNumber ? Digits::Hexadecimal : Digits::Decimal, m_random);
        if (result != original)
            break;
    }
    m_texts.emplace(original, result);
    return result;
}

Value Replacement::value(const Value& original, Kept kept)
{
    if (kept == Kept::Content && mayStay(original)) {
        ++m_keptCount;
        return original;
    }
    ++m_replacedCount;
    return replaced(original, kept);
}

std::string Replacement::key(const std::string& original)
{
    const bool isPlain = std::all_of(original.begin(), original.end(), [](char character) {
        return isAlphanumeric(character) || character == '-' || character == '_'
            || character == '.';
    });
    const auto digits = std::count_if(original.begin(), original.end(), isDigit);
    return isPlain && digits <= kMostKeyDigits && original.size() <= kLongestKey
            && !original.empty() && !isDigit(original.front()) && !identifierIn(original)
        ? original
        : text(original);
}

std::optional<std::string> Replacement::identifierIn(
    std::string_view text, std::size_t minimumLength) const
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const Form* form = formAt(text, i);
        if (form && form->original.size() >= minimumLength)
            return form->original;
    }
    return std::nullopt;
}

/// What the allow list names stays only where it looks like what is meant there.
bool Replacement::mayStay(const Value& value) const
{
    if (const std::string* text = value.asString()) {
        std::size_t run = 0;
        std::size_t longest = 0;
        for (const char character : *text) {
            run = isHexadecimal(character) || character == ':' ? run + 1 : 0;
            longest = std::max(longest, run);
        }
        const bool isPlain = std::all_of(text->begin(), text->end(),
            [](char character) { return character >= ' ' && character <= '~'; });
        return isPlain && text->size() <= kLongestKeptText && longest < kLongestKeptDigits
            && !identifierIn(*text);
    }
    if (const Array* array = value.asArray())
        return std::all_of(
            array->begin(), array->end(), [&](const Value& item) { return mayStay(item); });
    if (const Integer* number = value.asInteger())
        return !identifierIn(std::to_string(magnitude(*number)));
    if (const auto real = value.asReal())
        return std::isfinite(*real);
    return value.asBoolean().has_value();
}

Value Replacement::replaced(const Value& original, Kept names)
{
    switch (original.type()) {
    case Value::Type::Boolean:
        return false;
    case Value::Type::Integer:
        return integer(*original.asInteger());
    case Value::Type::Real:
        return real(*original.asReal());
    case Value::Type::String:
        return text(*original.asString());
    case Value::Type::Data:
        return data(*original.asData());
    case Value::Type::Date: {
        // A whole second of the years 2001 to 2032.
        constexpr std::uint64_t kFirst = 978'307'200;
        constexpr std::uint64_t kSeconds = 1'000'000'000;
        return Date(std::chrono::seconds(kFirst + m_random(kSeconds)));
    }
    case Value::Type::Array: {
        Array array;
        for (const Value& item : *original.asArray())
            array.push_back(replaced(item, Kept::Nothing));
        return array;
    }
    case Value::Type::Dictionary: {
        Dictionary dictionary;
        for (const auto& [name, item] : *original.asDictionary())
            dictionary.set(
                names == Kept::Names ? key(name) : text(name), replaced(item, Kept::Nothing));
        return dictionary;
    }
    case Value::Type::Error:
        break;
    }
    return false;
}

Integer Replacement::integer(Integer original)
{
    const bool isNegative = original.isNegative();
    const std::uint64_t size = magnitude(original);
    const auto known = m_integers.find({ isNegative, size });
    std::uint64_t other = size;
    if (known != m_integers.end()) {
        other = known->second;
    } else {
        const std::uint64_t bound = isNegative ? std::numeric_limits<std::int64_t>::max()
                                               : std::numeric_limits<std::uint64_t>::max();
        const std::size_t length = std::to_string(size).size();
        std::uint64_t lowest = 1;
        for (std::size_t i = 1; i < length; ++i)
            lowest *= 10;
        const std::uint64_t highest = bound / 10 < lowest ? bound : lowest * 10 - 1;
        while (other == size)
            other = lowest + m_random(highest - lowest + 1);
        m_integers.emplace(std::pair(isNegative, size), other);
    }
    return isNegative ? Integer(-static_cast<std::int64_t>(other)) : Integer(other);
}

double Replacement::real(double original)
{
    std::array<char, 32> buffer {};
    auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), original);
    if (!std::isfinite(original) || error != std::errc())
        return 1.5;
    const std::string_view digits(buffer.data(), static_cast<std::size_t>(end - buffer.data()));
    const std::string mantissa(digits.substr(0, digits.find('e')));
    const std::string exponent(digits.substr(mantissa.size()));
    double result = original;
    for (int attempt = 0; attempt < kAttempts && result == original; ++attempt) {
        std::string other = falseText(mantissa, Digits::Decimal, m_random);
        const auto first = other.find_first_not_of("-0.");
        if (first == std::string::npos)
            continue;
        other += exponent;
        std::from_chars(other.data(), other.data() + other.size(), result);
    }
    return result;
}

Data Replacement::data(const Data& original)
{
    if (const auto known = m_data.find(original); known != m_data.end())
        return known->second;
    const std::string_view bytes(reinterpret_cast<const char*>(original.data()), original.size());
    Data result;
    result.reserve(original.size());
    while (result.size() < original.size()) {
        const Form* form = formAt(bytes, result.size());
        if (form && form->replacement.size() == form->original.size()) {
            const auto piece = std::as_bytes(std::span(form->replacement));
            result.insert(result.end(), piece.begin(), piece.end());
        } else {
            result.push_back(static_cast<std::byte>(m_random(256)));
        }
    }
    m_data.emplace(original, result);
    return result;
}

/// Everything that an identifier is written as.
void Replacement::addForms(const std::string& original, const std::string& replacement)
{
    for (const bool upper : { true, false })
        addForm(cased(original, upper), cased(replacement, upper));
    addForm(original, replacement);
    const std::string digits = withoutMarks(original);
    const std::string others = withoutMarks(replacement);
    for (const bool upper : { true, false })
        addForm(cased(digits, upper), cased(others, upper));
    if (!isAllHexadecimal(digits))
        return;
    std::string bytes = bytesOf(digits);
    std::string otherBytes = bytesOf(others);
    if (bytes.size() < kShortestForm)
        return;
    addForm(bytes, otherBytes);
    std::reverse(bytes.begin(), bytes.end());
    std::reverse(otherBytes.begin(), otherBytes.end());
    addForm(std::move(bytes), std::move(otherBytes));
}

void Replacement::addForm(std::string original, std::string replacement)
{
    if (original.size() < kShortestForm)
        return;
    std::vector<Form>& forms = m_forms[static_cast<unsigned char>(original.front())];
    const bool isKnown = std::any_of(
        forms.begin(), forms.end(), [&](const Form& form) { return form.original == original; });
    if (isKnown)
        return;
    // The longest first: an identifier can be a part of another one.
    const auto place = std::find_if(forms.begin(), forms.end(),
        [&](const Form& form) { return form.original.size() < original.size(); });
    forms.insert(place, Form { std::move(original), std::move(replacement) });
}

const Replacement::Form* Replacement::formAt(std::string_view text, std::size_t position) const
{
    const auto forms = m_forms.find(static_cast<unsigned char>(text[position]));
    if (forms == m_forms.end())
        return nullptr;
    const auto found = std::find_if(forms->second.begin(), forms->second.end(),
        [&](const Form& form) { return text.substr(position).starts_with(form.original); });
    return found == forms->second.end() ? nullptr : &*found;
}

/// A false identifier that differs. A UDID keeps its first half, which is the model's, and the
/// length of the number that it ends with.
std::string Replacement::falseIdentifier(const std::string& original)
{
    const auto number = chipIdentifier(original);
    std::string result = original;
    for (int attempt = 0; attempt < kAttempts && result == original; ++attempt) {
        if (!number) {
            result = falseText(original,
                isAllHexadecimal(original) ? Digits::Hexadecimal : Digits::Decimal, m_random);
            continue;
        }
        const std::uint64_t other = integer(Integer(*number)).bits();
        std::array<char, 16> digits {};
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), other, 16).ptr;
        std::string tail(digits.data(), end);
        tail.insert(0, digits.size() - tail.size(), '0');
        result = original.substr(0, 9) + cased(std::move(tail), cased(original, true) == original);
    }
    return result;
}

} // namespace tdw::simulator
