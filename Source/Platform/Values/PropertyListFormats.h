#pragma once

#include "Platform/Values/PropertyList.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tdw {

/// Reads a binary property list ("bplist00"). Errors: `kPropertyListReadCorruptError`.
Result<Value> readBinaryPropertyList(std::span<const std::byte> bytes);

/// Reads an XML property list. Errors: `kPropertyListReadCorruptError`.
Result<Value> readXmlPropertyList(std::string_view text);

/// Writes a binary property list. The value can be written: it has been checked.
Data writeBinaryPropertyList(const Value& value);

/// Writes an XML property list. The value can be written: it has been checked.
Data writeXmlPropertyList(const Value& value);

/// The number in digits, as XML property lists and descriptions have it.
std::string integerText(const Integer& integer);

/// "2026-11-22T03:00:07Z": a date as XML property lists have it, in whole seconds.
std::string dateText(Date date);

/// The error of bytes that are no property list.
/// @param what what is wrong with them, to stand after a colon
Error corruptPropertyList(std::string_view what);

/// The first and the last moment that a property list can name: the years 1 to 9999.
inline constexpr Date kFirstPropertyListDate { std::chrono::sys_days {
    std::chrono::year { 1 } / 1 / 1 } };
inline constexpr Date kLastPropertyListDate
    = Date { std::chrono::sys_days { std::chrono::year { 10'000 } / 1 / 1 } }
    - std::chrono::microseconds(1);

/// Binary property lists count dates from the start of 2001.
inline constexpr std::chrono::sys_days kPropertyListEpoch { std::chrono::year { 2001 } / 1 / 1 };

/// Keeps what is built from a document in proportion to its bytes: without it a message of 60 MiB
/// becomes gigabytes of values.
class DecodingBudget {
public:
    explicit DecodingBudget(std::size_t documentBytes)
        : m_left(kFreeBytes + kFactor * documentBytes)
    {
    }

    /// Takes the memory for `count` pieces of `size` bytes, before they are made.
    Result<void> spend(std::size_t count, std::size_t size = 1)
    {
        if (count > m_left / size)
            return corruptPropertyList("its values are out of proportion to its size");
        m_left -= count * size;
        return {};
    }

    /// What a text, data, an array or a dictionary takes beside its contents.
    static constexpr std::size_t kObjectBytes = 112;
    static constexpr std::size_t kEntryBytes = sizeof(Dictionary::Entry) + 16;

private:
    static constexpr std::size_t kFreeBytes = std::size_t { 16 } << 20;
    static constexpr std::size_t kFactor = 8;

    std::size_t m_left;
};

} // namespace tdw
