#include <openssl/core_names.h>
#include <openssl/decoder.h>
#include <openssl/err.h>
#include <openssl/pkcs12.h>
#include <openssl/ui.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "client_error.h"
#include "console.h"
#include "crypto_objects_openssl.h"
#include "key_file.h"

namespace {

constexpr uint32_t kRsaPublicMagic = 0x31415352;   // "RSA1"
constexpr uint32_t kRsaPrivateMagic = 0x32415352;  // "RSA2"
constexpr size_t kMaxPassphrase = 1023;

using Pkcs12Ptr = std::unique_ptr<PKCS12, OpenSslDeleter<PKCS12, PKCS12_free>>;
using DecoderPtr =
    std::unique_ptr<OSSL_DECODER_CTX, OpenSslDeleter<OSSL_DECODER_CTX, OSSL_DECODER_CTX_free>>;

// The passphrase callback's state: what was given, and whether a
// passphrase was needed at all, so that a wrong one is told from a file
// that is not a key.
struct PassphraseUse {
    const Passphrase& passphrase;
    std::string prompt;
    bool asked = false;
    bool unavailable = false;
};

int SupplyPassphrase(char* buffer, int size, int, void* data) {
    auto* use = static_cast<PassphraseUse*>(data);
    use->asked = true;
    if (use->passphrase.given) {
        const SecretBytes& text = use->passphrase.text;
        if (text.size() > static_cast<size_t>(size)) return -1;
        std::memcpy(buffer, text.data(), text.size());
        return static_cast<int>(text.size());
    }
    if (!StdinIsTerminal()) {
        use->unavailable = true;
        return -1;
    }
    if (EVP_read_pw_string_min(buffer, 0, size, use->prompt.c_str(), 0) != 0) return -1;
    return static_cast<int>(std::strlen(buffer));
}

EvpPkeyPtr Decode(const SecretBytes& bytes, int selection, PassphraseUse* use) {
    EVP_PKEY* pkey = nullptr;
    DecoderPtr decoder(
        OSSL_DECODER_CTX_new_for_pkey(&pkey, nullptr, nullptr, "RSA", selection, nullptr, nullptr));
    if (!decoder) return nullptr;
    OSSL_DECODER_CTX_set_pem_password_cb(decoder.get(), SupplyPassphrase, use);
    const unsigned char* data = bytes.data();
    size_t left = bytes.size();
    if (!OSSL_DECODER_from_data(decoder.get(), &data, &left)) {
        EVP_PKEY_free(pkey);
        return nullptr;
    }
    return EvpPkeyPtr(pkey);
}

Pkcs12Ptr ParsePkcs12(const SecretBytes& bytes) {
    const unsigned char* cursor = bytes.data();
    Pkcs12Ptr bundle(d2i_PKCS12(nullptr, &cursor, static_cast<long>(bytes.size())));
    if (bundle && cursor != bytes.data() + bytes.size()) bundle.reset();
    return bundle;
}

// The bundle's password: none, the empty one, or the one the user gives.
SecretBytes Pkcs12Password(PKCS12* bundle, PassphraseUse* use) {
    if (use->passphrase.given) return use->passphrase.text;
    if (PKCS12_verify_mac(bundle, nullptr, 0) || PKCS12_verify_mac(bundle, "", 0)) return {};
    SecretBytes text(kMaxPassphrase + 1);
    int length = SupplyPassphrase(reinterpret_cast<char*>(text.data()),
                                  static_cast<int>(text.size()), 0, use);
    text.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return text;
}

struct Pkcs12Contents {
    EvpPkeyPtr key;
    X509Ptr certificate;
};

Pkcs12Contents OpenPkcs12(PKCS12* bundle, const std::string& path, PassphraseUse* use) {
    SecretBytes password = Pkcs12Password(bundle, use);
    if (use->unavailable)
        throw ClientError(exit_code::kData, path +
                                                " is protected by a password; give it with "
                                                "--password-stdin");
    // PKCS12_parse tries both no password and the empty one for "".
    password.push_back(0);
    const char* text = reinterpret_cast<const char*>(password.data());
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    STACK_OF(X509)* chain = nullptr;
    const bool opened = PKCS12_parse(bundle, text, &key, &certificate, &chain) == 1;
    sk_X509_pop_free(chain, X509_free);
    Pkcs12Contents contents{EvpPkeyPtr(key), X509Ptr(certificate)};
    ERR_clear_error();
    if (!opened)
        throw ClientError(exit_code::kData,
                          "the password does not open the PKCS#12 bundle " + path);
    if (!contents.key)
        throw ClientError(exit_code::kData, "the PKCS#12 bundle " + path + " holds no key");
    return contents;
}

BignumPtr Parameter(const EVP_PKEY* pkey, const char* name) {
    BIGNUM* value = nullptr;
    if (!EVP_PKEY_get_bn_param(pkey, name, &value)) return nullptr;
    return BignumPtr(value);
}

void Append32(SecretBytes* blob, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8)
        blob->push_back(static_cast<uint8_t>(value >> shift));
}

bool AppendPadded(SecretBytes* blob, const BIGNUM* number, size_t size) {
    const size_t at = blob->size();
    blob->resize(at + size);
    return BN_bn2binpad(number, blob->data() + at, static_cast<int>(size)) ==
           static_cast<int>(size);
}

SecretBytes RsaBlob(const EVP_PKEY* pkey, bool withPrimes, const std::string& path) {
    BignumPtr modulus = Parameter(pkey, OSSL_PKEY_PARAM_RSA_N);
    BignumPtr exponent = Parameter(pkey, OSSL_PKEY_PARAM_RSA_E);
    BignumPtr prime1 = withPrimes ? Parameter(pkey, OSSL_PKEY_PARAM_RSA_FACTOR1) : nullptr;
    BignumPtr prime2 = withPrimes ? Parameter(pkey, OSSL_PKEY_PARAM_RSA_FACTOR2) : nullptr;
    if (!modulus || !exponent || (withPrimes && (!prime1 || !prime2)))
        throw ClientError(exit_code::kData, "the RSA key in " + path + " lacks its components" +
                                                (withPrimes ? " (two primes are needed)" : ""));
    const auto modulusSize = static_cast<size_t>(BN_num_bytes(modulus.get()));
    const auto exponentSize = static_cast<size_t>(BN_num_bytes(exponent.get()));
    // The blob's bit length is 8 times the modulus size, and each prime
    // takes half of it.
    const size_t primeSize = modulusSize / 2;
    if (withPrimes &&
        (modulusSize % 2 != 0 || static_cast<size_t>(BN_num_bytes(prime1.get())) > primeSize ||
         static_cast<size_t>(BN_num_bytes(prime2.get())) > primeSize))
        throw ClientError(exit_code::kData, "the primes of the key in " + path +
                                                " are not of half the modulus' size each");
    SecretBytes blob;
    blob.reserve(24 + exponentSize + modulusSize + 2 * primeSize);
    Append32(&blob, withPrimes ? kRsaPrivateMagic : kRsaPublicMagic);
    Append32(&blob, static_cast<uint32_t>(modulusSize * 8));
    Append32(&blob, static_cast<uint32_t>(exponentSize));
    Append32(&blob, static_cast<uint32_t>(modulusSize));
    Append32(&blob, static_cast<uint32_t>(withPrimes ? primeSize : 0));
    Append32(&blob, static_cast<uint32_t>(withPrimes ? primeSize : 0));
    bool written = AppendPadded(&blob, exponent.get(), exponentSize) &&
                   AppendPadded(&blob, modulus.get(), modulusSize);
    if (withPrimes)
        written = written && AppendPadded(&blob, prime1.get(), primeSize) &&
                  AppendPadded(&blob, prime2.get(), primeSize);
    if (!written) throw ClientError(exit_code::kData, "OpenSSL could not write the key blob");
    return blob;
}

SecretBytes CertificateDerOf(X509* certificate) {
    if (!certificate) return {};
    unsigned char* bytes = nullptr;
    int length = i2d_X509(certificate, &bytes);
    if (length <= 0)
        throw ClientError(exit_code::kData, "OpenSSL could not encode the certificate");
    SecretBytes der(bytes, bytes + length);
    OPENSSL_clear_free(bytes, static_cast<size_t>(length));
    return der;
}

}  // namespace

KeyFile ReadKeyFile(const SecretBytes& fileBytes, const std::string& path,
                    const Passphrase& passphrase, bool publicOnly) {
    if (fileBytes.size() > static_cast<size_t>(LONG_MAX))
        throw ClientError(exit_code::kData, path + " is too large for a key file");
    PassphraseUse use{passphrase, "Passphrase for " + path + ": "};
    KeyFile file;
    EvpPkeyPtr pkey;
    bool isPrivate = false;
    if (Pkcs12Ptr bundle = ParsePkcs12(fileBytes)) {
        Pkcs12Contents contents = OpenPkcs12(bundle.get(), path, &use);
        pkey = std::move(contents.key);
        file.certificate = CertificateDerOf(contents.certificate.get());
        isPrivate = true;
    } else {
        pkey = Decode(fileBytes, EVP_PKEY_KEYPAIR, &use);
        isPrivate = pkey != nullptr;
        if (!pkey && !use.asked) pkey = Decode(fileBytes, EVP_PKEY_PUBLIC_KEY, &use);
    }
    ERR_clear_error();
    if (!pkey && use.unavailable)
        throw ClientError(exit_code::kData,
                          path + " is encrypted; give its passphrase with --password-stdin");
    if (!pkey && use.asked)
        throw ClientError(exit_code::kData, "the passphrase does not open " + path);
    if (!pkey)
        throw ClientError(exit_code::kData, path +
                                                " holds no RSA key in PEM or DER (PKCS#1, PKCS#8, "
                                                "SubjectPublicKeyInfo) and is no PKCS#12 bundle");
    if (!EVP_PKEY_is_a(pkey.get(), "RSA"))
        throw ClientError(exit_code::kData, "the key in " + path + " is not an RSA key");
    file.isPrivate = isPrivate && !publicOnly;
    file.blob = RsaBlob(pkey.get(), file.isPrivate, path);
    return file;
}

SecretBytes ReadPassphraseLine() {
    SecretBytes line;
    line.reserve(kMaxPassphrase + 2);
    bool ended = false;
    for (;;) {
        unsigned char byte = 0;
        ssize_t got = read(STDIN_FILENO, &byte, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        if (byte == '\n') {
            ended = true;
            break;
        }
        if (line.size() > kMaxPassphrase)
            throw ClientError(exit_code::kData, "the passphrase on stdin is too long");
        line.push_back(byte);
    }
    if (!ended && line.empty())
        throw ClientError(exit_code::kData, "--password-stdin: no passphrase line on stdin");
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}
