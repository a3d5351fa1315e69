#pragma once

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"
#include "Trust/Certificates.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tdw::simulator {

/// The simulator's own keys, made once and shipped with it: making keys takes too long at start.
struct SimulatorKeys {
    /// Of every simulated device.
    KeyHandle device;
    /// Of the host that scenarios call paired.
    KeyHandle host;
    KeyHandle root;

    /// Errors name the file.
    static Result<std::shared_ptr<const SimulatorKeys>> load(
        const std::filesystem::path& directory);
};

/// One host that a device trusts, and the certificates they know each other by.
struct Pairing {
    std::string hostId;
    std::string systemBuid;
    CertificateHandle root;
    CertificateHandle host;
    CertificateHandle device;
    Data escrowBag;

    /// For sessions with this host.
    TlsContextHandle tls;
};

/// The hosts that one device trusts.
class PairingStore {
public:
    explicit PairingStore(std::shared_ptr<const SimulatorKeys> keys)
        : m_keys(std::move(keys))
    {
    }

    /// Checks a host's record and remembers it, in place of one with the same HostID.
    /// @return the lockdown name of what is wrong with the record, or none
    std::optional<std::string_view> add(const Dictionary& record);

    /// The pairing with a host, or null. Stays valid while it is held.
    std::shared_ptr<const Pairing> find(std::string_view hostId) const;

    /// Says whether the host was known.
    bool remove(std::string_view hostId);

    void clear() { m_pairings.clear(); }

    /// What `Pairing::tls` is, with a certificate that the host has not signed.
    TlsContextHandle foreignContext(const Pairing& pairing) const;

private:
    std::shared_ptr<const SimulatorKeys> m_keys;
    std::map<std::string, std::shared_ptr<const Pairing>, std::less<>> m_pairings;
};

/// A host's complete record, private keys included, as device libraries keep it in the
/// multiplexer.
Dictionary makePairRecord(const SimulatorKeys& keys, const std::string& systemBuid);

} // namespace tdw::simulator
