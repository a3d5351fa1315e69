#include "Model/Json.h"

#include "Model/SimulatorError.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/PropertyList.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <optional>

namespace tdw::simulator {

namespace {

/// Reading and writing values goes down by recursion.
constexpr int kMaximumDepth = 100;

/// Accepts everything and remembers where reading failed.
struct FailureFinder : nlohmann::json_sax<Json> {
    std::size_t failedAt = 0;
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool string(string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool start_object(std::size_t) override { return true; }
    bool key(string_t&) override { return true; }
    bool end_object() override { return true; }
    bool start_array(std::size_t) override { return true; }
    bool end_array() override { return true; }
    bool parse_error(
        std::size_t position, const std::string&, const nlohmann::detail::exception&) override
    {
        failedAt = position;
        return false;
    }
};

std::optional<Data> dataFromHex(std::string_view hex)
{
    auto digit = [](char character) -> int {
        if (character >= '0' && character <= '9')
            return character - '0';
        if (character >= 'a' && character <= 'f')
            return character - 'a' + 10;
        if (character >= 'A' && character <= 'F')
            return character - 'A' + 10;
        return -1;
    };
    if (hex.size() % 2 != 0)
        return std::nullopt;
    Data data;
    data.reserve(hex.size() / 2);
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const int high = digit(hex[i]);
        const int low = digit(hex[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        data.push_back(static_cast<std::byte>(high * 16 + low));
    }
    return data;
}

std::string hexText(const Data& data)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(data.size() * 2);
    for (const std::byte byte : data) {
        text += kDigits[std::to_integer<unsigned>(byte) >> 4];
        text += kDigits[std::to_integer<unsigned>(byte) & 15u];
    }
    return text;
}

std::optional<Date> dateFromText(const std::string& text)
{
    std::tm parts {};
    const char* end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    if (!end || *end != '\0')
        return std::nullopt;
    return Date(std::chrono::seconds(timegm(&parts)));
}

std::string dateText(Date date)
{
    const std::time_t seconds
        = std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
    std::tm parts {};
    std::array<char, 64> text {};
    if (!gmtime_r(&seconds, &parts)
        || std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
        return "out of range";
    return text.data();
}

Result<Value> valueFromPropertyListFile(
    const Json& json, const std::string& path, const std::filesystem::path& directory)
{
    if (!json.is_string())
        return simulatorError(path + ": " + jsonText(json) + " is not the name of a file");
    const std::filesystem::path file = directory / json.get_ref<const std::string&>();
    auto content = readTextFile(file);
    if (!content)
        return simulatorError(path + ": " + content.error().failureReason());
    auto value = decodePropertyList(std::as_bytes(std::span(*content)));
    if (!value) {
        return simulatorError(path + ": " + file.string()
            + " is not a property list: " + value.error().failureReason());
    }
    return *std::move(value);
}

Result<Value> valueFromObject(
    const Json& json, const std::string& path, const std::filesystem::path& directory)
{
    if (json.size() == 1 && json.begin().key() == "$hex" && json.front().is_string()) {
        if (auto data = dataFromHex(json.front().get_ref<const std::string&>()))
            return Value(*std::move(data));
    }
    if (json.size() == 1 && json.begin().key() == "$date" && json.front().is_string()) {
        if (const auto date = dateFromText(json.front().get_ref<const std::string&>()))
            return Value(*date);
    }
    Dictionary dictionary;
    if (const auto file = json.find("$plist"); file != json.end()) {
        const Value loaded = TDW_TRY(valueFromPropertyListFile(*file, path + ".$plist", directory));
        if (json.size() == 1)
            return loaded;
        if (!loaded.asDictionary())
            return simulatorError(
                path + ".$plist: " + jsonText(*file) + " holds no dictionary to add keys to");
        dictionary = *loaded.asDictionary();
    }
    for (const auto& [key, item] : json.items()) {
        if (key == "$plist")
            continue;
        if (key.starts_with("$"))
            return simulatorError(path + "." + key + ": " + jsonText(item)
                + " cannot be read ($hex takes an even number of hexadecimal digits, $date "
                  "takes 2025-06-01T10:00:00Z, each alone in its object)");
        dictionary.set(key, TDW_TRY(valueFromJson(item, path + "." + key, directory)));
    }
    return Value(std::move(dictionary));
}

} // namespace

Result<Json> parseJson(std::string_view text)
{
    if (text.size() > kMaximumJsonSize)
        return simulatorError(
            "the text is longer than " + std::to_string(kMaximumJsonSize) + " bytes");
    bool isTooDeep = false;
    const auto watchDepth = [&](int depth, Json::parse_event_t, Json&) {
        isTooDeep = isTooDeep || depth > kMaximumDepth;
        return !isTooDeep;
    };
    Json json = Json::parse(text, watchDepth, false);
    if (isTooDeep)
        return simulatorError("nesting deeper than " + std::to_string(kMaximumDepth));
    if (!json.is_discarded())
        return json;
    FailureFinder finder;
    Json::sax_parse(text, &finder);
    const std::string_view before = text.substr(0, finder.failedAt);
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const auto column = before.size() - (before.rfind('\n') + 1);
    return simulatorError("line " + std::to_string(line) + ", column " + std::to_string(column)
        + ": this is not JSON");
}

Result<std::string> readTextFile(const std::filesystem::path& path)
{
    FileHandle file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status { };
    if (!file.isOpen() || ::fstat(file.descriptor(), &status) != 0)
        return Error::posix(errno, "Cannot read " + path.string());
    if (!S_ISREG(status.st_mode))
        return simulatorError("Cannot read " + path.string() + ": it is not a regular file");
    if (static_cast<std::size_t>(status.st_size) > kMaximumJsonSize)
        return simulatorError("Cannot read " + path.string() + ": it is longer than "
            + std::to_string(kMaximumJsonSize) + " bytes");
    const Data data = TDW_TRY(file.readToEnd());
    return std::string(reinterpret_cast<const char*>(data.data()), data.size());
}

std::string jsonText(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Result<Value> valueFromJson(
    const Json& json, const std::string& path, const std::filesystem::path& directory)
{
    switch (json.type()) {
    case Json::value_t::boolean:
        return Value(*json.get_ptr<const Json::boolean_t*>());
    case Json::value_t::number_unsigned:
        return Value(*json.get_ptr<const Json::number_unsigned_t*>());
    case Json::value_t::number_integer:
        return Value(*json.get_ptr<const Json::number_integer_t*>());
    case Json::value_t::number_float:
        return Value(*json.get_ptr<const Json::number_float_t*>());
    case Json::value_t::string:
        return Value(json.get_ref<const std::string&>());
    case Json::value_t::array: {
        Array array;
        array.reserve(json.size());
        for (const Json& item : json) {
            array.push_back(TDW_TRY(
                valueFromJson(item, path + "[" + std::to_string(array.size()) + "]", directory)));
        }
        return Value(std::move(array));
    }
    case Json::value_t::object:
        return valueFromObject(json, path, directory);
    default:
        return simulatorError(path + ": null is not a value that a device can have");
    }
}

Result<Dictionary> dictionaryFromJson(
    const Json& json, const std::string& path, const std::filesystem::path& directory)
{
    const Value value = TDW_TRY(valueFromJson(json, path, directory));
    if (!value.asDictionary())
        return simulatorError(path + ": " + jsonText(json) + " is not a dictionary");
    return *value.asDictionary();
}

Json jsonFromValue(const Value& value)
{
    switch (value.type()) {
    case Value::Type::Boolean:
        return *value.asBoolean();
    case Value::Type::Integer:
        if (value.asInteger()->isNegative())
            return *value.asInt64();
        return *value.asUInt64();
    case Value::Type::Real:
        return *value.asReal();
    case Value::Type::String:
        return *value.asString();
    case Value::Type::Data:
        return Json { { "$hex", hexText(*value.asData()) } };
    case Value::Type::Date:
        return Json { { "$date", dateText(*value.asDate()) } };
    case Value::Type::Array: {
        Json array = Json::array();
        for (const Value& item : *value.asArray())
            array.push_back(jsonFromValue(item));
        return array;
    }
    case Value::Type::Dictionary:
        return jsonFromDictionary(*value.asDictionary());
    case Value::Type::Error:
        return value.debugDescription();
    }
    return nullptr;
}

Json jsonFromDictionary(const Dictionary& dictionary)
{
    Json object = Json::object();
    for (const auto& [key, value] : dictionary)
        object[key] = jsonFromValue(value);
    return object;
}

} // namespace tdw::simulator
