#pragma once

#include <cstddef>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

/// Each target defines this one function. It takes any bytes, and ends the process where the code
/// under test breaks a promise.
void fuzz(std::span<const std::byte> bytes);

/// Documents up to this size stay far below every limit of the reader.
inline constexpr std::size_t kSmallDocument = 64 * 1024;

inline void require(bool holds)
{
    if (!holds)
        std::abort();
}

inline std::string_view textOf(std::span<const std::byte> bytes)
{
    return { reinterpret_cast<const char*>(bytes.data()), bytes.size() };
}
