// Keys that are there already, for runs under valgrind.
//
// libimobiledevice makes two RSA keys before it pairs. Under valgrind that takes longer than the
// server's clock allows, and none of it is our code. Preloaded, this gives it the simulator's own
// keys instead, one after the other, so that a pairing comes to its end.

// The function that is stood in for is one of those that OpenSSL 3 calls deprecated.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "Platform/Handle.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstddef>
#include <iterator>

namespace {

using BioHandle = tdw::Handle<BIO, &BIO_free>;
using RsaHandle = tdw::Handle<RSA, &RSA_free>;

constexpr const char* kKeys[] = {
    TIDEWELL_SOURCE_DIR "/Tools/tdwsimulator/Keys/simulator-root-key.pem",
    TIDEWELL_SOURCE_DIR "/Tools/tdwsimulator/Keys/simulator-host-key.pem",
};

} // namespace

extern "C" __attribute__((visibility("default"))) int RSA_generate_key_ex(
    RSA* key, int /*bits*/, BIGNUM* /*exponent*/, BN_GENCB* /*progress*/)
{
    static std::size_t count = 0;
    const BioHandle file(BIO_new_file(kKeys[count++ % std::size(kKeys)], "r"));
    const RsaHandle ready(PEM_read_bio_RSAPrivateKey(file.get(), nullptr, nullptr, nullptr));
    if (!ready)
        return 0;
    const auto copy = [&](const BIGNUM* (*part)(const RSA*)) {
        return BN_dup(part(ready.get()));
    };
    return RSA_set0_key(key, copy(&RSA_get0_n), copy(&RSA_get0_e), copy(&RSA_get0_d)) == 1
        && RSA_set0_factors(key, copy(&RSA_get0_p), copy(&RSA_get0_q)) == 1
        && RSA_set0_crt_params(
               key, copy(&RSA_get0_dmp1), copy(&RSA_get0_dmq1), copy(&RSA_get0_iqmp))
        == 1;
}
