#include "Model/JsonObject.h"

#include "Model/SimulatorError.h"

#include <algorithm>

namespace tdw::simulator {

Result<JsonObject> JsonObject::open(const Json& json, std::string path)
{
    if (!json.is_object()) {
        return simulatorError((path.empty() ? std::string("the document") : path) + ": "
            + jsonText(json).substr(0, 80) + " is not an object");
    }
    return JsonObject(json, std::move(path));
}

std::string JsonObject::pathOf(std::string_view key) const
{
    return m_path.empty() ? std::string(key) : m_path + "." + std::string(key);
}

const Json* JsonObject::take(std::string_view key)
{
    m_taken.emplace(key);
    const auto found = m_json->find(key);
    return found == m_json->end() ? nullptr : &*found;
}

Error JsonObject::wrong(std::string_view key, const Json& value, std::string_view expected) const
{
    return simulatorError(
        pathOf(key) + ": " + jsonText(value).substr(0, 80) + " is not " + std::string(expected));
}

Result<std::optional<std::string>> JsonObject::string(std::string_view key)
{
    const Json* value = take(key);
    if (!value)
        return std::optional<std::string>();
    if (!value->is_string())
        return wrong(key, *value, "a string");
    return std::optional(value->get_ref<const std::string&>());
}

Result<std::string> JsonObject::requiredString(std::string_view key)
{
    auto value = TDW_TRY(string(key));
    if (!value)
        return simulatorError(pathOf(key) + ": this key is missing");
    return *std::move(value);
}

Result<std::optional<bool>> JsonObject::boolean(std::string_view key)
{
    const Json* value = take(key);
    if (!value)
        return std::optional<bool>();
    if (!value->is_boolean())
        return wrong(key, *value, "true or false");
    return std::optional(*value->get_ptr<const Json::boolean_t*>());
}

Result<std::optional<std::uint64_t>> JsonObject::number(std::string_view key, std::uint64_t minimum)
{
    const Json* value = take(key);
    if (!value)
        return std::optional<std::uint64_t>();
    const auto* number = value->get_ptr<const Json::number_unsigned_t*>();
    if (!number || *number < minimum)
        return wrong(key, *value, "a whole number from " + std::to_string(minimum) + " up");
    return std::optional<std::uint64_t>(*number);
}

Result<std::optional<std::size_t>> JsonObject::word(
    std::string_view key, std::span<const std::string_view> words)
{
    const Json* value = take(key);
    if (!value)
        return std::optional<std::size_t>();
    if (value->is_string()) {
        const auto found
            = std::find(words.begin(), words.end(), value->get_ref<const std::string&>());
        if (found != words.end())
            return std::optional(static_cast<std::size_t>(found - words.begin()));
    }
    return wrong(key, *value, "one of " + joined(words));
}

Result<std::vector<const Json*>> JsonObject::array(std::string_view key)
{
    std::vector<const Json*> items;
    const Json* value = take(key);
    if (!value)
        return items;
    if (!value->is_array())
        return wrong(key, *value, "an array");
    for (const Json& item : *value)
        items.push_back(&item);
    return items;
}

Result<void> JsonObject::refuseOtherKeys() const
{
    for (const auto& [key, value] : m_json->items()) {
        if (!m_taken.contains(key)) {
            const std::vector<std::string_view> known(m_taken.begin(), m_taken.end());
            return simulatorError(
                pathOf(key) + ": this key is not known here (known: " + joined(known) + ")");
        }
    }
    return {};
}

std::string joined(std::span<const std::string_view> words)
{
    std::string text;
    for (const std::string_view word : words) {
        if (!text.empty())
            text += ", ";
        text += word;
    }
    return text;
}

} // namespace tdw::simulator
