#include "Trust/Pairing.h"

#include "Trust/TlsContext.h"

namespace tdw::simulator {

namespace {

constexpr std::string_view kHostId = "7E57057A-0000-4000-8000-000000000001";

CertificateHandle certificateIn(const Dictionary& record, std::string_view key)
{
    const Data* pem = record.dataAt(key);
    return pem ? certificateFromPem(*pem) : nullptr;
}

/// The bag's content is read only by the device that made it.
Data escrowBag()
{
    Data bag(32);
    for (std::size_t i = 0; i < bag.size(); ++i)
        bag[i] = static_cast<std::byte>(i);
    return bag;
}

} // namespace

Result<std::shared_ptr<const SimulatorKeys>> SimulatorKeys::load(
    const std::filesystem::path& directory)
{
    auto keys = std::make_shared<SimulatorKeys>();
    keys->device = TDW_TRY(loadPrivateKey(directory / "simulator-device-key.pem"));
    keys->host = TDW_TRY(loadPrivateKey(directory / "simulator-host-key.pem"));
    keys->root = TDW_TRY(loadPrivateKey(directory / "simulator-root-key.pem"));
    return std::shared_ptr<const SimulatorKeys>(std::move(keys));
}

std::optional<std::string_view> PairingStore::add(const Dictionary& record)
{
    const std::string* hostId = record.stringAt("HostID");
    if (!hostId || hostId->empty())
        return "MissingHostID";
    auto pairing = std::make_shared<Pairing>();
    pairing->hostId = *hostId;
    if (const std::string* buid = record.stringAt("SystemBUID"))
        pairing->systemBuid = *buid;
    pairing->root = certificateIn(record, "RootCertificate");
    pairing->host = certificateIn(record, "HostCertificate");
    pairing->device = certificateIn(record, "DeviceCertificate");
    if (!pairing->root || !pairing->host || !pairing->device
        || !isSignedBy(*pairing->root, *pairing->root)
        || !isSignedBy(*pairing->host, *pairing->root)
        || !isSignedBy(*pairing->device, *pairing->root)
        || !isOverKey(*pairing->device, *m_keys->device))
        return "InvalidPairRecord";
    pairing->escrowBag = escrowBag();
    pairing->tls = makeTlsContext(TlsIdentity { *pairing->device, *m_keys->device },
        { pairing->root.get(), pairing->host.get() });
    m_pairings.insert_or_assign(pairing->hostId, pairing);
    return std::nullopt;
}

std::shared_ptr<const Pairing> PairingStore::find(std::string_view hostId) const
{
    const auto found = m_pairings.find(hostId);
    return found == m_pairings.end() ? nullptr : found->second;
}

bool PairingStore::remove(std::string_view hostId)
{
    const auto found = m_pairings.find(hostId);
    if (found == m_pairings.end())
        return false;
    m_pairings.erase(found);
    return true;
}

TlsContextHandle PairingStore::foreignContext(const Pairing& pairing) const
{
    const auto certificate = issueCertificate({ *m_keys->device, *m_keys->host });
    return makeTlsContext(
        TlsIdentity { *certificate, *m_keys->device }, { pairing.root.get(), pairing.host.get() });
}

Dictionary makePairRecord(const SimulatorKeys& keys, const std::string& systemBuid)
{
    using Use = CertificateOrder::Use;
    const auto root = issueCertificate({ *keys.root, *keys.root, Use::Authority });
    const auto host = issueCertificate({ *keys.host, *keys.root });
    const auto device = issueCertificate({ *keys.device, *keys.root });
    return Dictionary { { "DeviceCertificate", pemFromCertificate(*device) },
        { "EscrowBag", escrowBag() }, { "HostCertificate", pemFromCertificate(*host) },
        { "HostID", kHostId }, { "HostPrivateKey", pemFromPrivateKey(*keys.host) },
        { "RootCertificate", pemFromCertificate(*root) },
        { "RootPrivateKey", pemFromPrivateKey(*keys.root) }, { "SystemBUID", systemBuid } };
}

} // namespace tdw::simulator
