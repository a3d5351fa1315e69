#include "Trust/TlsContext.h"

#include <algorithm>

namespace tdw::simulator {

namespace {

/// The certificates that a context accepts, owned by the context.
using Accepted = std::vector<CertificateHandle>;

void freeAccepted(void*, void* accepted, CRYPTO_EX_DATA*, int, long, void*)
{
    delete static_cast<Accepted*>(accepted); // NOLINT: OpenSSL's way to own things
}

int acceptedIndex()
{
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, &freeAccepted);
    return index;
}

/// No chain, no dates: a device compares with what it remembers.
int verifyPeer(X509_STORE_CTX* store, void* context)
{
    const X509* presented = X509_STORE_CTX_get0_cert(store);
    const auto* accepted = static_cast<const Accepted*>(
        SSL_CTX_get_ex_data(static_cast<const SSL_CTX*>(context), acceptedIndex()));
    const bool isKnown = presented
        && std::any_of(accepted->begin(), accepted->end(),
            [&](const auto& certificate) { return X509_cmp(certificate.get(), presented) == 0; });
    X509_STORE_CTX_set_error(store, isKnown ? X509_V_OK : X509_V_ERR_CERT_REJECTED);
    return isKnown ? 1 : 0;
}

} // namespace

TlsContextHandle makeTlsContext(const TlsIdentity& identity, const std::vector<X509*>& accepted)
{
    TlsContextHandle context(SSL_CTX_new(TLS_server_method()));
    SSL_CTX_set_security_level(context.get(), 0);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(context.get(), 0);
    SSL_CTX_use_certificate(context.get(), &identity.certificate);
    SSL_CTX_use_PrivateKey(context.get(), &identity.key);

    auto known = std::make_unique<Accepted>();
    for (X509* certificate : accepted) {
        X509_up_ref(certificate);
        known->emplace_back(certificate);
    }
    SSL_CTX_set_ex_data(context.get(), acceptedIndex(), known.release());
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_set_cert_verify_callback(context.get(), &verifyPeer, context.get());
    return context;
}

} // namespace tdw::simulator
