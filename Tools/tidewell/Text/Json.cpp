#include "Text/Json.h"

#include "Interfaces/TDWResponse.h"
#include "Platform/Values/Error.h"
#include "Terminal/Encoding.h"

#include <nlohmann/json.hpp>

#include <cstdint>

namespace tdw::cli {

namespace {

using Json = nlohmann::ordered_json;

/// The largest integer that every reader takes as it is.
constexpr std::int64_t kLargestExactInteger = (std::int64_t { 1 } << 53) - 1;

Json jsonOf(const Value& value);

Json jsonOf(const Integer& integer)
{
    if (const auto number = integer.asInt64()) {
        const bool isExact = *number >= -kLargestExactInteger && *number <= kLargestExactInteger;
        return isExact ? Json(*number) : Json(std::to_string(*number));
    }
    return std::to_string(integer.bits());
}

Json jsonOf(const Array& array)
{
    Json result = Json::array();
    for (const Value& element : array)
        result.push_back(jsonOf(element));
    return result;
}

Json jsonOf(const Dictionary& dictionary)
{
    Json result = Json::object();
    for (const auto& [key, value] : dictionary)
        result[key] = jsonOf(value);
    return result;
}

Json jsonOf(const Value& value)
{
    switch (value.type()) {
    case Value::Type::Boolean:
        return *value.asBoolean();
    case Value::Type::Integer:
        return jsonOf(*value.asInteger());
    case Value::Type::Real:
        return *value.asReal();
    case Value::Type::String:
        return *value.asString();
    case Value::Type::Data:
        return base64(*value.asData());
    case Value::Type::Date:
        return iso8601(*value.asDate());
    case Value::Type::Array:
        return jsonOf(*value.asArray());
    case Value::Type::Dictionary:
        return jsonOf(*value.asDictionary());
    case Value::Type::Error:
        return jsonOf(TDWCreateErrorResponseDictionary(*value.asError()));
    }
    return nullptr;
}

} // namespace

std::string jsonLine(const Value& value)
{
    return jsonOf(value).dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

} // namespace tdw::cli
