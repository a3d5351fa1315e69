#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tdw {

/// Cuts a stream of bytes into lines: given bytes, it says lines.
///
///     splitter.append(bytes);
///     while (const auto line = splitter.next())
///         …
///     at the end of the stream: if (const auto line = splitter.rest()) …
///
/// A line is what stands before a newline byte; a carriage return there is part of it. A caller
/// that stops asking leaves the rest undelivered. The work is linear in the bytes, in whatever
/// pieces they arrive and whenever they are asked for; a line may have any length.
///
/// Not safe for use by two threads at once.
class LineSplitter {
public:
    void append(std::span<const std::byte> bytes);

    /// The next line, without its newline, or none until more bytes come. It stays valid until the
    /// next `append`.
    std::optional<std::string_view> next();

    /// What stands behind the last newline, which the end of the stream makes a line; none where
    /// nothing does. Only sensible once `next` has said none. Valid like a line.
    std::optional<std::string_view> rest();

private:
    void dropDeliveredBytes();

    std::string m_buffer;
    std::size_t m_begin = 0; // of the first line that is not delivered
    std::size_t m_searched = 0; // no newline stands between `m_begin` and here
};

} // namespace tdw
