#pragma once

#include "Platform/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tdw::simulator {

/// The text under a key, or null where there is none or something else.
inline const std::string* stringIn(const Dictionary& dictionary, std::string_view key)
{
    const Value* value = dictionary.find(key);
    return value == nullptr ? nullptr : value->asString();
}

/// The data under a key, or null.
inline const Data* dataIn(const Dictionary& dictionary, std::string_view key)
{
    const Value* value = dictionary.find(key);
    return value == nullptr ? nullptr : value->asData();
}

/// The dictionary under a key, or null.
inline const Dictionary* dictionaryIn(const Dictionary& dictionary, std::string_view key)
{
    const Value* value = dictionary.find(key);
    return value == nullptr ? nullptr : value->asDictionary();
}

/// The number under a key, where it is not negative.
inline std::optional<std::uint64_t> numberIn(const Dictionary& dictionary, std::string_view key)
{
    const Value* value = dictionary.find(key);
    return value == nullptr ? std::nullopt : value->asUInt64();
}

} // namespace tdw::simulator
