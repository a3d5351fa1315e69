#pragma once

// The steps of a conversation with a device. A diagnosis reads from them how far it came. The words
// are shown to the user.

namespace tdw {

inline constexpr const char* kLookUpStep = "look-up of";
inline constexpr const char* kConnectionStep = "connection to";
inline constexpr const char* kQueryStep = "query of";
inline constexpr const char* kValueStep = "a value of";
inline constexpr const char* kRecordStep = "pairing record of";
inline constexpr const char* kHandshakeStep = "handshake with";
inline constexpr const char* kServiceStep = "a service of";

} // namespace tdw
