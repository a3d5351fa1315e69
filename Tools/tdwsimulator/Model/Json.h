#pragma once

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace tdw::simulator {

using Json = nlohmann::json;

/// The largest JSON text that is read, in bytes.
inline constexpr std::size_t kMaximumJsonSize = 16u << 20;

/// Reads one JSON document. Errors say where the text stops being JSON (line and column).
Result<Json> parseJson(std::string_view text);

/// Reads a whole file, up to `kMaximumJsonSize`. Errors name the file.
Result<std::string> readTextFile(const std::filesystem::path& path);

/// One line of JSON; text that is not UTF-8 gets replacement characters.
std::string jsonText(const Json& json);

/// Makes a property-list value of JSON.
///
/// What JSON cannot say is written as an object with one key: `{"$hex": "00ff"}` is data,
/// `{"$date": "2025-06-01T10:00:00Z"}` a date, `{"$plist": "phone.plist"}` the content of a
/// property list file (further keys beside it replace or add to those of the file).
/// @param path where the value stands, for errors: "devices[0].lockdown"
/// @param directory what names of files are relative to
Result<Value> valueFromJson(
    const Json& json, const std::string& path, const std::filesystem::path& directory);

/// The same where only a dictionary will do.
Result<Dictionary> dictionaryFromJson(
    const Json& json, const std::string& path, const std::filesystem::path& directory);

/// The JSON that `valueFromJson` reads back.
Json jsonFromValue(const Value& value);
Json jsonFromDictionary(const Dictionary& dictionary);

} // namespace tdw::simulator
