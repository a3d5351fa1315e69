#pragma once

#include "Model/Json.h"

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::simulator {

/// Reads one JSON object key by key, and refuses the keys that were not asked for.
///
///     JsonObject object = TDW_TRY(JsonObject::open(json, "devices[0]"));
///     const std::string udid = TDW_TRY(object.requiredString("udid"));
///     TDW_TRY(object.refuseOtherKeys());
///
/// Every error names the place in the document and the value that stands there. The JSON must
/// outlive this object.
class JsonObject {
public:
    static Result<JsonObject> open(const Json& json, std::string path);

    const std::string& path() const { return m_path; }
    std::string pathOf(std::string_view key) const;

    /// The value under `key`, or null where there is none.
    const Json* take(std::string_view key);

    Result<std::optional<std::string>> string(std::string_view key);
    Result<std::string> requiredString(std::string_view key);
    Result<std::optional<bool>> boolean(std::string_view key);

    /// A whole number from `minimum` up.
    Result<std::optional<std::uint64_t>> number(std::string_view key, std::uint64_t minimum = 0);

    /// One of `words`; the answer is its position there.
    Result<std::optional<std::size_t>> word(
        std::string_view key, std::span<const std::string_view> words);

    /// An array, empty where there is none.
    Result<std::vector<const Json*>> array(std::string_view key);

    Result<void> refuseOtherKeys() const;

private:
    JsonObject(const Json& json, std::string path)
        : m_json(&json)
        , m_path(std::move(path))
    {
    }

    Error wrong(std::string_view key, const Json& value, std::string_view expected) const;

    const Json* m_json;
    std::string m_path;
    std::set<std::string, std::less<>> m_taken;
};

/// "a, b, c": the words that a message offers.
std::string joined(std::span<const std::string_view> words);

} // namespace tdw::simulator
