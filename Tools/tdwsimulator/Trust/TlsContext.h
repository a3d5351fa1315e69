#pragma once

#include "Trust/Certificates.h"

#include <vector>

namespace tdw::simulator {

/// What a device presents in a TLS handshake. Borrowed for the call.
struct TlsIdentity {
    X509& certificate;
    EVP_PKEY& key;
};

/// Makes the device's side of TLS sessions, from version 1.0 up: hosts are of all ages, and so
/// are the signatures of their certificates.
/// @param accepted the client must present exactly one of these
TlsContextHandle makeTlsContext(const TlsIdentity& identity, const std::vector<X509*>& accepted);

} // namespace tdw::simulator
