#include "Trust/Certificates.h"

#include "Model/Json.h"
#include "Model/SimulatorError.h"

#include <openssl/encoder.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cassert>

namespace tdw::simulator {

namespace {

using MemoryHandle = Handle<BIO, &BIO_free>;
using ExtensionHandle = Handle<X509_EXTENSION, &X509_EXTENSION_free>;
using EncoderHandle = Handle<OSSL_ENCODER_CTX, &OSSL_ENCODER_CTX_free>;

MemoryHandle memoryOf(std::span<const std::byte> bytes)
{
    return MemoryHandle(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

Data contentOf(BIO& memory)
{
    const std::byte* start = nullptr;
    const long size = BIO_ctrl(&memory, BIO_CTRL_INFO, 0, static_cast<void*>(&start));
    return start ? Data(start, start + size) : Data();
}

void addExtension(X509& certificate, int kind, const char* value)
{
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, nullptr, &certificate, nullptr, nullptr, 0);
    const ExtensionHandle extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value));
    assert(extension);
    X509_add_ext(&certificate, extension.get(), -1);
}

constexpr long kTenYears = 60L * 60 * 24 * 365 * 10;

} // namespace

Result<KeyHandle> loadPrivateKey(const std::filesystem::path& file)
{
    const std::string text = TDW_TRY(readTextFile(file));
    const MemoryHandle memory = memoryOf(std::as_bytes(std::span(text)));
    KeyHandle key(PEM_read_bio_PrivateKey(memory.get(), nullptr, nullptr, nullptr));
    if (!key)
        return simulatorError(file.string() + " holds no private key");
    return key;
}

CertificateHandle certificateFromPem(std::span<const std::byte> pem)
{
    constexpr std::size_t kMaximumSize = 64 * 1024;
    if (pem.size() > kMaximumSize)
        return nullptr;
    const MemoryHandle memory = memoryOf(pem);
    return CertificateHandle(PEM_read_bio_X509(memory.get(), nullptr, nullptr, nullptr));
}

Data pemFromCertificate(const X509& certificate)
{
    const MemoryHandle memory(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(memory.get(), &certificate);
    return contentOf(*memory);
}

Data pemFromPrivateKey(const EVP_PKEY& key)
{
    const MemoryHandle memory(BIO_new(BIO_s_mem()));
    PEM_write_bio_PrivateKey_traditional(memory.get(), &key, nullptr, nullptr, 0, nullptr, nullptr);
    return contentOf(*memory);
}

Data rsaPublicKeyPem(const EVP_PKEY& key)
{
    const MemoryHandle memory(BIO_new(BIO_s_mem()));
    const EncoderHandle encoder(
        OSSL_ENCODER_CTX_new_for_pkey(&key, EVP_PKEY_PUBLIC_KEY, "PEM", "type-specific", nullptr));
    OSSL_ENCODER_to_bio(encoder.get(), memory.get());
    return contentOf(*memory);
}

CertificateHandle issueCertificate(const CertificateOrder& order)
{
    CertificateHandle certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 0);
    // A clock that runs behind must not make a fresh certificate one of the future.
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -60L * 60 * 24);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kTenYears);
    X509_set_pubkey(certificate.get(), &order.subject);
    if (order.use == CertificateOrder::Use::Authority) {
        addExtension(*certificate, NID_basic_constraints, "critical,CA:TRUE");
    } else {
        addExtension(*certificate, NID_basic_constraints, "critical,CA:FALSE");
        addExtension(*certificate, NID_key_usage, "critical,digitalSignature,keyEncipherment");
    }
    addExtension(*certificate, NID_subject_key_identifier, "hash");
    X509_sign(certificate.get(), &order.issuer, EVP_sha256());
    return certificate;
}

bool isOverKey(const X509& certificate, const EVP_PKEY& key)
{
    const EVP_PKEY* own = X509_get0_pubkey(&certificate);
    return own && EVP_PKEY_eq(own, &key) == 1;
}

bool isSignedBy(X509& certificate, const X509& issuer)
{
    EVP_PKEY* key = X509_get0_pubkey(&issuer);
    return key && X509_verify(&certificate, key) == 1;
}

} // namespace tdw::simulator
