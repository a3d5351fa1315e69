#include "Support/LineSplitter.h"

namespace tdw {

namespace {

/// What a buffer may keep for later bytes; one very long line must not hold its memory for good.
constexpr std::size_t kKeptCapacity = std::size_t { 64 } * 1024;

} // namespace

void LineSplitter::append(std::span<const std::byte> bytes)
{
    dropDeliveredBytes();
    m_buffer.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

std::optional<std::string_view> LineSplitter::next()
{
    const std::size_t newline = m_buffer.find('\n', m_searched);
    if (newline == std::string::npos) {
        m_searched = m_buffer.size();
        return std::nullopt;
    }
    const auto line = std::string_view(m_buffer).substr(m_begin, newline - m_begin);
    m_begin = m_searched = newline + 1;
    return line;
}

std::optional<std::string_view> LineSplitter::rest()
{
    if (m_begin == m_buffer.size())
        return std::nullopt;
    const auto line = std::string_view(m_buffer).substr(m_begin);
    m_begin = m_searched = m_buffer.size();
    return line;
}

void LineSplitter::dropDeliveredBytes()
{
    // Only when at least as much goes as is moved, so that all the moving together is linear.
    const std::size_t left = m_buffer.size() - m_begin;
    if (m_begin < left)
        return;
    if (left == 0 && m_buffer.capacity() > kKeptCapacity)
        m_buffer = std::string();
    m_buffer.erase(0, m_begin);
    m_searched -= m_begin;
    m_begin = 0;
}

} // namespace tdw
