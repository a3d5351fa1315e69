#pragma once

#include "Platform/Handle.h"
#include "Platform/Values/Data.h"
#include "Platform/Values/Result.h"

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <filesystem>
#include <span>
#include <string_view>

namespace tdw::simulator {

using KeyHandle = Handle<EVP_PKEY, &EVP_PKEY_free>;
using CertificateHandle = Handle<X509, &X509_free>;
using TlsContextHandle = Handle<SSL_CTX, &SSL_CTX_free>;

/// Reads a private key. Errors name the file.
Result<KeyHandle> loadPrivateKey(const std::filesystem::path& file);

/// Reads one PEM certificate, or null where there is none.
CertificateHandle certificateFromPem(std::span<const std::byte> pem);

Data pemFromCertificate(const X509& certificate);
Data pemFromPrivateKey(const EVP_PKEY& key);

/// The public half in the form that devices hand out: PEM, "RSA PUBLIC KEY".
Data rsaPublicKeyPem(const EVP_PKEY& key);

/// Whose certificate is issued, by whom, and what for.
struct CertificateOrder {
    EVP_PKEY& subject;
    EVP_PKEY& issuer;
    enum class Use { Authority, Peer } use = Use::Peer;
};

/// Issues a certificate as hosts do when they pair: no names, ten years, SHA-256.
CertificateHandle issueCertificate(const CertificateOrder& order);

bool isOverKey(const X509& certificate, const EVP_PKEY& key);
bool isSignedBy(X509& certificate, const X509& issuer);

} // namespace tdw::simulator
