#include "Platform/Values/PropertyListFormats.h"
#include "Platform/Values/Utf8.h"
#include "Platform/Values/Value.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tdw {

namespace {

/// Bounds of a debug description: it is for one line of a diagnostic, whatever a device sent.
constexpr std::size_t kDescribedDepth = 8;
constexpr std::size_t kDescribedElements = 64;
constexpr std::size_t kDescribedTextBytes = 256;
constexpr std::size_t kDescribedDataBytes = 16;

void describe(const Value& value, std::size_t depth, std::string& result);

void describeText(std::string_view text, std::string& result)
{
    result += '"';
    result += withControlCharactersEscaped(text.substr(0, kDescribedTextBytes));
    result += text.size() > kDescribedTextBytes ? "…\"" : "\"";
}

void describeData(const Data& data, std::string& result)
{
    result += '<' + std::to_string(data.size()) + " bytes";
    for (std::size_t i = 0; i < std::min(data.size(), kDescribedDataBytes); ++i) {
        std::array<char, 4> hex {};
        std::snprintf(hex.data(), hex.size(), "%02x", std::to_integer<unsigned>(data[i]));
        result += i == 0 ? ": " : " ";
        result += hex.data();
    }
    result += data.size() > kDescribedDataBytes ? " …>" : ">";
}

/// Writes "(", the elements with commas between them, and ")", each by `element`.
template <typename Range, typename Describe>
void describeElements(
    const Range& range, std::string_view brackets, Describe&& element, std::string& result)
{
    result += brackets.front();
    std::size_t count = 0;
    for (const auto& item : range) {
        if (count > 0)
            result += ", ";
        if (count++ == kDescribedElements) {
            result += "…";
            break;
        }
        element(item);
    }
    result += brackets.back();
}

void describeContainer(const Value& value, std::size_t depth, std::string& result)
{
    if (depth == kDescribedDepth) {
        result += value.asArray() ? "[…]" : "{…}";
    } else if (const Array* array = value.asArray()) {
        describeElements(
            *array, "[]", [&](const Value& item) { describe(item, depth + 1, result); }, result);
    } else if (const Dictionary* dictionary = value.asDictionary()) {
        describeElements(
            *dictionary, "{}",
            [&](const Dictionary::Entry& entry) {
                describeText(entry.key, result);
                result += ": ";
                describe(entry.value, depth + 1, result);
            },
            result);
    }
}

std::string realText(double number)
{
    std::array<char, 32> text {};
    std::snprintf(text.data(), text.size(), "%.17g", number);
    return text.data();
}

void describe(const Value& value, std::size_t depth, std::string& result)
{
    switch (value.type()) {
    case Value::Type::Boolean:
        result += *value.asBoolean() ? "true" : "false";
        break;
    case Value::Type::Integer:
        result += integerText(*value.asInteger());
        break;
    case Value::Type::Real:
        result += realText(*value.asReal());
        break;
    case Value::Type::String:
        describeText(*value.asString(), result);
        break;
    case Value::Type::Data:
        describeData(*value.asData(), result);
        break;
    case Value::Type::Date:
        result += dateText(*value.asDate());
        break;
    case Value::Type::Array:
    case Value::Type::Dictionary:
        describeContainer(value, depth, result);
        break;
    case Value::Type::Error: {
        const Error& error = *value.asError();
        result += "Error Domain=" + error.domain() + " Code=" + std::to_string(error.code());
        result += " UserInfo=";
        describe(Value(error.userInfo()), depth + 1, result);
        break;
    }
    }
}

} // namespace

std::string integerText(const Integer& integer)
{
    if (const auto number = integer.asInt64())
        return std::to_string(*number);
    return std::to_string(integer.bits());
}

std::string dateText(Date date)
{
    const auto day = std::chrono::floor<std::chrono::days>(date);
    const std::chrono::year_month_day calendar(day);
    const std::chrono::hh_mm_ss time(std::chrono::floor<std::chrono::seconds>(date - day));
    std::array<char, 48> text {};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ",
        static_cast<int>(calendar.year()), static_cast<unsigned>(calendar.month()),
        static_cast<unsigned>(calendar.day()), static_cast<int>(time.hours().count()),
        static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
    return text.data();
}

std::string Value::debugDescription() const
{
    std::string result;
    describe(*this, 0, result);
    return result;
}

} // namespace tdw
