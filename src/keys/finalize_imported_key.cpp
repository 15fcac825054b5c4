#include <cstring>
#include <memory>
#include <new>

#include "keys/key_finalization.h"
#include "keys/private_key_blob.h"
#include "platform/rsa_key_completion.h"
#include "platform/secure_zero.h"
#include "token/cryptoki_library.h"
#include "token/private_key.h"
#include "token/public_key.h"
#include "token/random_key_id.h"

namespace {

constexpr uint32_t kAlgRsaKeyExchange = 0xA400;
constexpr uint32_t kAlgRsaSignature = 0x2400;

// The usage code of a key from its legacy algorithm identifier, or -1.
int UsageOf(uint32_t algId) {
    switch (algId) {
        case 0:
            return kExchangeAndSignature;
        case kAlgRsaSignature:
            return kSignature;
        case kAlgRsaKeyExchange:
            return kKeyExchange;
        default:
            return -1;
    }
}

// A component as long as the key length makes it, or null when the import
// left less than that, so that the setter skips it and the creation reports
// the key incomplete instead of reading past the buffer.
const uint8_t* Component(const KeyBytes& buffer, uint32_t length) {
    return buffer.size() >= length ? buffer.get() : nullptr;
}

// What the private key object is given beyond the blob: the key's true
// public exponent and the values derived with it. The key context keeps the
// exponent padded on the right, which the public key object carries; the
// token would derive or blind with that wrong value and sign as another key.
struct PrivateMaterial {
    uint8_t exponent[kPublicExponentBytes] = {};
    platform::RsaPrivateValues values;
    ~PrivateMaterial() { platform::SecureZero(exponent, sizeof exponent); }
};

bool DerivePrivateMaterial(const QUELMKSP_KEY& key, PrivateMaterial* material) {
    PrivateKeyBlob blob;
    if (blob.Parse(key.pbPrivateKeyBlob.get(), key.cbPrivateKeyBlob) != ERROR_SUCCESS) return false;
    const KeyBytes& exponent = blob.publicExponent();
    if (exponent.size() > sizeof material->exponent) return false;
    std::memcpy(material->exponent + sizeof material->exponent - exponent.size(), exponent.get(),
                exponent.size());
    const uint32_t modulusBytes = key.dwBitLength / 8, halfBytes = key.dwBitLength / 16;
    if (key.pbModulus.size() < modulusBytes || key.pbPrime1.size() < halfBytes ||
        key.pbPrime2.size() < halfBytes)
        return false;
    return platform::CompleteRsaPrivateKey(
        {material->exponent, sizeof material->exponent}, {key.pbModulus.get(), modulusBytes},
        {key.pbPrime1.get(), halfBytes}, {key.pbPrime2.get(), halfBytes}, &material->values);
}

struct WipedId {
    uint8_t bytes[kKeyIdBytes] = {};
    ~WipedId() { platform::SecureZero(bytes, sizeof bytes); }
};

}  // namespace

SECURITY_STATUS FinalizeImportedKey(OperationFrame& frame, const QUELMKSP_PROVIDER& provider,
                                    QUELMKSP_KEY& key, const TokenLabel& label) {
    frame.Line("Key is imported");
    std::unique_ptr<PublicKey> publicKey(new (std::nothrow) PublicKey());
    std::unique_ptr<PrivateKey> privateKey(new (std::nothrow) PrivateKey());
    if (!publicKey || !privateKey) return frame.Exit(NTE_NO_MEMORY);

    PrivateMaterial material;
    if (!DerivePrivateMaterial(key, &material))
        return frame.Fail(NTE_BAD_DATA, "The imported primes do not make an RSA key");

    WipedId id;
    if (GenerateNonZeroId(*g_pCryptoki->functions(), provider.hSession, id.bytes,
                          sizeof id.bytes) != CKR_OK)
        return frame.Fail(NTE_INTERNAL_ERROR, "Random number generation failed");

    const uint32_t modulusBytes = key.dwBitLength / 8;
    const uint32_t halfBytes = key.dwBitLength / 16;
    frame.Line("Initializing public key attributes");
    publicKey->pCryptoki = g_pCryptoki;
    publicKey->hSession = provider.hSession;
    publicKey->SetModulus(Component(key.pbModulus, modulusBytes), modulusBytes);
    publicKey->SetPublicExponent(key.rgbPublicExponent);
    publicKey->SetId(id.bytes);

    frame.Line("Initializing private key attributes");
    privateKey->pCryptoki = g_pCryptoki;
    privateKey->hSession = provider.hSession;
    privateKey->SetModulus(Component(key.pbModulus, modulusBytes), modulusBytes);
    privateKey->SetPublicExponent(material.exponent);
    privateKey->SetPrivateExponent(material.values.privateExponent.get(), modulusBytes);
    privateKey->SetPrimes(Component(key.pbPrime1, halfBytes), halfBytes,
                          Component(key.pbPrime2, halfBytes), halfBytes);
    privateKey->SetExponents(material.values.exponent1.get(), halfBytes,
                             material.values.exponent2.get(), halfBytes);
    privateKey->SetCoefficient(material.values.coefficient.get(), halfBytes);
    privateKey->SetId(id.bytes);

    int usage = UsageOf(key.dwAlgId);
    if (usage < 0) {
        frame.Line("NTE_BAD_KEYSET: key AlgID is invalid");
        return frame.ExitWithoutTrace(NTE_BAD_KEYSET);
    }

    // A key without a name makes session objects, which carry no label.
    const uint8_t* labelBytes =
        key.KeyName() ? reinterpret_cast<const uint8_t*>(label.bytes) : nullptr;
    frame.Line("Creating public key");
    CK_RV rv =
        publicKey->CreatePublicKeyObject(usage, labelBytes, static_cast<uint32_t>(label.converted));
    if (rv != CKR_OK) {
        frame.log().WriteHex("Public key creation failed: ", static_cast<uint32_t>(rv));
        return frame.ExitWithoutTrace(NTE_INTERNAL_ERROR);
    }
    frame.Line("Creating private key");
    rv = privateKey->CreatePrivateKeyObject(usage, labelBytes,
                                            static_cast<uint32_t>(label.converted) - 1);
    if (rv != CKR_OK) {
        frame.log().WriteHex("Private key creation failed: ", static_cast<uint32_t>(rv));
        return frame.ExitWithoutTrace(NTE_INTERNAL_ERROR);
    }
    key.hPrivateKey = privateKey->GetHandle();
    key.hPublicKey = publicKey->GetHandle();
    return ERROR_SUCCESS;
}
