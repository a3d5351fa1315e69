#pragma once

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <cstdint>
#include <span>
#include <string>
#include <variant>

namespace tdw {

/// Which version of the protocol we speak: each message and each reply says it. Keys that a
/// receiver does not know it ignores, so that this grows only where something known gets another
/// meaning.
inline constexpr std::uint64_t kProtocolVersion = 1;

/// A request to the other end of a connection.
struct Message {
    /// What is asked for: the full name of the operation.
    std::string selector;

    /// What the reply refers to; 0: no reply is wanted.
    std::uint64_t identifier = 0;

    Array arguments;

    /// Where the steps of the request are sent, in the form of `traceAddress`. Empty: nowhere. A
    /// receiver of an older version ignores it.
    std::string trace {};

    bool operator==(const Message&) const = default;
};

/// The answer to a message.
struct Reply {
    /// The identifier of the message.
    std::uint64_t identifier = 0;

    /// The values that were asked for, or why there are none.
    std::variant<Array, Error> content;

    bool operator==(const Reply&) const = default;
};

/// Errors: what cannot be written as a property list, or is too large for a frame. The result is a
/// whole frame.
Result<Data> encodeMessage(const Message& message);

/// Of an error, domain, code and failure reason are carried over.
Result<Data> encodeReply(const Reply& reply);

/// Reads the payload of a frame.
/// Errors: `kCocoaErrorDomain`, `kMalformedMessageError`, saying what is wrong with it.
Result<std::variant<Message, Reply>> decodeMessage(std::span<const std::byte> payload);

inline constexpr std::int64_t kMalformedMessageError = 4864;

} // namespace tdw
