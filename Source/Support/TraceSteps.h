#pragma once

// The steps of a conversation with a device by which a diagnosis tells how far it came; the words
// are those that people read.

namespace tdw {

inline constexpr const char* kLookUpStep = "look-up of";
inline constexpr const char* kConnectionStep = "connection to";
inline constexpr const char* kQueryStep = "query of";
inline constexpr const char* kValueStep = "a value of";
inline constexpr const char* kRecordStep = "pairing record of";
inline constexpr const char* kHandshakeStep = "handshake with";
inline constexpr const char* kServiceStep = "a service of";

} // namespace tdw
