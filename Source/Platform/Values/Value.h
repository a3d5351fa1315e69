#pragma once

#include "Platform/Export.h"
#include "Platform/Values/Data.h"
#include "Platform/Values/Error.h"

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace tdw {

class Dictionary;
class Value;

using Array = std::vector<Value>;

/// A moment, in microseconds since 1970 (UTC). XML property lists keep whole seconds only.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

/// An integer of a property list: the whole range of signed and of unsigned 64-bit numbers.
class TDW_EXPORT Integer {
public:
    template <std::integral T>
    constexpr explicit Integer(T value)
        : m_bits(static_cast<std::uint64_t>(value))
        , m_isNegative(std::is_signed_v<T> && value < T {})
    {
    }

    constexpr bool isNegative() const { return m_isNegative; }

    /// The number, where a signed 64-bit integer can hold it.
    constexpr std::optional<std::int64_t> asInt64() const
    {
        if (!m_isNegative && m_bits > INT64_MAX)
            return std::nullopt;
        return static_cast<std::int64_t>(m_bits);
    }

    /// The number, where an unsigned 64-bit integer can hold it.
    constexpr std::optional<std::uint64_t> asUInt64() const
    {
        if (m_isNegative)
            return std::nullopt;
        return m_bits;
    }

    /// The low 64 bits in two's complement; with `isNegative` they say everything.
    constexpr std::uint64_t bits() const { return m_bits; }

    constexpr bool operator==(const Integer&) const = default;

private:
    std::uint64_t m_bits;
    bool m_isNegative;
};

/// One property-list object.
///
///     const Value response = Dictionary { { "DeviceName", "Ada's phone" }, { "Level", 80 } };
///     if (const std::string* name = response.stringAt("DeviceName"))
///         print(*name, response.intAt("Level").value_or(0));
///
/// Immutable and cheap to copy: copies share their contents. To change a dictionary or an array,
/// copy it out, change the copy, and make a new value of it. An `Error` can be carried in a user
/// info, but no encoder accepts it.
class TDW_EXPORT Value {
public:
// The enumerators are scoped; gcc 12 warns of the like-named types all the same.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
    enum class Type { Boolean, Integer, Real, String, Data, Date, Array, Dictionary, Error };
#pragma GCC diagnostic pop

    // Values are written down as literals everywhere, so these conversions are meant.
    // NOLINTBEGIN(google-explicit-constructor)
    template <std::same_as<bool> T>
    Value(T value)
        : m_content(value)
    {
    }
    template <std::integral T>
    requires(!std::same_as<T, bool>) Value(T value)
        : m_content(Integer(value))
    {
    }
    Value(Integer value);
    Value(double value);
    Value(std::string value);
    Value(std::string_view value);
    Value(const char* value);
    Value(Data value);
    Value(Date value);
    Value(Array value);
    Value(Dictionary value);
    Value(Error value);
    // NOLINTEND(google-explicit-constructor)

    Type type() const;

    /// The content, where it is of the type asked for; none or null otherwise. No conversion takes
    /// place, apart from the width of integers. Pointers live as long as this value or a copy.
    std::optional<bool> asBoolean() const;
    std::optional<std::int64_t> asInt64() const;
    std::optional<std::uint64_t> asUInt64() const;
    const Integer* asInteger() const;
    std::optional<double> asReal() const;
    std::optional<Date> asDate() const;
    const std::string* asString() const;
    const Data* asData() const;
    const Array* asArray() const;
    const Dictionary* asDictionary() const;
    const Error* asError() const;

    /// The look-ups of `Dictionary`, where this is one; a value of another type has no keys.
    const Value* find(std::string_view key) const;
    const std::string* stringAt(std::string_view key) const;
    std::optional<std::int64_t> intAt(std::string_view key) const;
    std::optional<bool> boolAt(std::string_view key) const;
    std::optional<double> realAt(std::string_view key) const;
    const Data* dataAt(std::string_view key) const;
    const Array* arrayAt(std::string_view key) const;
    const Dictionary* dictionaryAt(std::string_view key) const;

    /// One line that shows the content, for diagnostics. Long texts and data are cut, nesting is
    /// shown to a bounded depth, and control characters are escaped.
    std::string debugDescription() const;

    bool operator==(const Value& other) const;

private:
    template <typename T>
    using Shared = std::shared_ptr<const T>;
    std::variant<bool, Integer, double, Shared<std::string>, Shared<Data>, Date, Shared<Array>,
        Shared<Dictionary>, Error>
        m_content;
};

/// Keys and values in the order in which the keys were first set.
class TDW_EXPORT Dictionary {
public:
    struct Entry {
        std::string key;
        Value value;
        bool operator==(const Entry&) const = default;
    };

    Dictionary() = default;
    Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries);

    bool isEmpty() const { return m_entries.empty(); }
    std::size_t size() const { return m_entries.size(); }
    void reserve(std::size_t count) { m_entries.reserve(count); }

    /// The value under `key`, or null. It stays valid until this dictionary is changed.
    const Value* find(std::string_view key) const;
    bool contains(std::string_view key) const { return find(key) != nullptr; }

    /// The content under `key`, where it is of that type; null or none otherwise. No conversion
    /// takes place, as in `Value::asString` and its like.
    const std::string* stringAt(std::string_view key) const;
    std::optional<std::int64_t> intAt(std::string_view key) const;
    std::optional<bool> boolAt(std::string_view key) const;
    std::optional<double> realAt(std::string_view key) const;
    const Data* dataAt(std::string_view key) const;
    const Array* arrayAt(std::string_view key) const;
    const Dictionary* dictionaryAt(std::string_view key) const;

    /// Sets or replaces; a replaced key keeps its place.
    void set(std::string_view key, Value value);

    /// Removes `key` if it is there; says whether it was.
    bool remove(std::string_view key);

    auto begin() const { return m_entries.begin(); }
    auto end() const { return m_entries.end(); }

    /// Equal keys with equal values, in whatever order.
    bool operator==(const Dictionary& other) const;

private:
    std::optional<std::size_t> position(std::string_view key) const;
    /// The slot of `key`, or the free one where it belongs.
    std::size_t slot(std::string_view key) const;
    void buildIndex();

    std::vector<Entry> m_entries;
    /// A hash table with linear probing: places in `m_entries`, counted from one, and 0 for a free
    /// slot. Kept only once a dictionary is large: a search through a few entries is faster
    /// without.
    std::vector<std::uint32_t> m_slots;
};

} // namespace tdw
