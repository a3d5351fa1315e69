#pragma once

#include "Platform/Values/Data.h"

#include <cassert>
#include <cstddef>
#include <span>
#include <utility>

namespace tdw {

/// Bytes that have arrived and were not understood yet.
class FrameBuffer {
public:
    void append(std::span<const std::byte> bytes)
    {
        m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_start));
        m_start = 0;
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    }

    /// Valid until the next change.
    std::span<const std::byte> bytes() const { return std::span(m_bytes).subspan(m_start); }

    /// Forgets the first `count` bytes.
    void drop(std::size_t count)
    {
        assert(count <= m_bytes.size() - m_start);
        m_start += count;
    }

    /// Gives the memory of a large frame back where nothing is left in it.
    void shrinkIfEmpty()
    {
        if (bytes().empty() && m_bytes.capacity() > kKeptCapacity)
            *this = {};
    }

    /// Gives all bytes up to the caller.
    Data takeAll()
    {
        Data rest(bytes().begin(), bytes().end());
        m_bytes.clear();
        m_start = 0;
        return rest;
    }

private:
    static constexpr std::size_t kKeptCapacity = std::size_t { 64 } * 1024;

    Data m_bytes;
    std::size_t m_start = 0;
};

} // namespace tdw
