#include "Trust/Pairing.h"

#include "Device/TlsSession.h"
#include "Platform/Values/Value.h"
#include "Support/Testing.h"

#include <openssl/err.h>

using namespace tdw;
using namespace tdw::simulator;

namespace {

KeyHandle newKey()
{
    return KeyHandle(EVP_EC_gen("P-256"));
}

std::shared_ptr<const SimulatorKeys> newKeys()
{
    auto keys = std::make_shared<SimulatorKeys>();
    keys->device = newKey();
    keys->host = newKey();
    keys->root = newKey();
    return keys;
}

Dictionary with(Dictionary record, std::string_view key, const CertificateHandle& certificate)
{
    record.set(key, pemFromCertificate(*certificate));
    return record;
}

std::span<const std::byte> bytesOf(const Dictionary& record, std::string_view key)
{
    return *record.find(key)->asData();
}

/// The host's end of a handshake, and whether the device let it through.
std::string answerToHost(SSL_CTX& device, const CertificateHandle& certificate, EVP_PKEY* key)
{
    const TlsContextHandle context(SSL_CTX_new(TLS_client_method()));
    if (certificate) {
        SSL_CTX_use_certificate(context.get(), certificate.get());
        SSL_CTX_use_PrivateKey(context.get(), key);
    }
    const Handle<SSL, &SSL_free> host(SSL_new(context.get()));
    BIO* incoming = BIO_new(BIO_s_mem());
    BIO* outgoing = BIO_new(BIO_s_mem());
    BIO_set_mem_eof_return(incoming, -1);
    SSL_set_bio(host.get(), incoming, outgoing);
    SSL_set_connect_state(host.get());

    TlsSession session(device);
    Data content;
    auto state = TlsSession::State::Handshaking;
    for (int round = 0; round < 5 && state == TlsSession::State::Handshaking; ++round) {
        SSL_do_handshake(host.get());
        Data flight(BIO_ctrl_pending(outgoing));
        BIO_read(outgoing, flight.data(), static_cast<int>(flight.size()));
        state = session.receive(flight, content);
        const Data reply = session.takeOutput();
        BIO_write(incoming, reply.data(), static_cast<int>(reply.size()));
    }
    ERR_clear_error();
    return state == TlsSession::State::Open ? "accepted" : session.failure();
}

} // namespace

TEST(PairingStore, RefusesRecordsWhoseCertificatesDoNotBelongTogether)
{
    using Use = CertificateOrder::Use;
    const auto keys = newKeys();
    const auto stranger = newKey();
    const Dictionary record = makePairRecord(*keys, "BUID");
    Dictionary withoutHost = record;
    withoutHost.remove("HostID");
    Dictionary withoutRoot = record;
    withoutRoot.remove("RootCertificate");
    const std::tuple<Dictionary, std::optional<std::string_view>, std::string_view> rows[] = {
        { record, std::nullopt, "as it is" },
        { withoutHost, "MissingHostID", "without HostID" },
        { withoutRoot, "InvalidPairRecord", "without root certificate" },
        { with(record, "DeviceCertificate", issueCertificate({ *stranger, *keys->root })),
            "InvalidPairRecord", "device certificate over another key" },
        { with(record, "DeviceCertificate", issueCertificate({ *keys->device, *stranger })),
            "InvalidPairRecord", "device certificate of another root" },
        { with(record, "HostCertificate", issueCertificate({ *keys->host, *stranger })),
            "InvalidPairRecord", "host certificate of another root" },
        { with(record, "RootCertificate",
              issueCertificate({ *stranger, *stranger, Use::Authority })),
            "InvalidPairRecord", "another root" },
    };
    for (const auto& [changed, expected, title] : rows) {
        PairingStore store(keys);
        EXPECT_EQ(store.add(changed), expected) << title;
    }
}

TEST(PairingStore, LetsExactlyTheRememberedCertificatesThroughItsHandshakes)
{
    const auto keys = newKeys();
    PairingStore store(keys);
    const Dictionary record = makePairRecord(*keys, "BUID");
    ASSERT_EQ(store.add(record), std::nullopt);
    const auto pairing = store.find(*record.find("HostID")->asString());
    ASSERT_TRUE(pairing);
    SSL_CTX& device = *pairing->tls;

    const auto host = certificateFromPem(bytesOf(record, "HostCertificate"));
    const auto root = certificateFromPem(bytesOf(record, "RootCertificate"));
    EXPECT_EQ(answerToHost(device, host, keys->host.get()), "accepted");
    EXPECT_EQ(answerToHost(device, root, keys->root.get()), "accepted");
    // Signed by the same root over the same key, and yet not the one that was remembered.
    const auto twin = issueCertificate({ *keys->host, *keys->root });
    X509_gmtime_adj(X509_getm_notAfter(twin.get()), 1000);
    X509_sign(twin.get(), keys->root.get(), EVP_sha256());
    EXPECT_EQ(answerToHost(device, twin, keys->host.get()), "certificate verify failed");
    EXPECT_EQ(answerToHost(device, nullptr, nullptr), "peer did not return a certificate");
}
