#include <memory>
#include <new>

#include "keys/key_finalization.h"
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
    privateKey->SetPublicExponent(key.rgbPublicExponent);
    privateKey->SetPrivateExponent(Component(key.pbPrivateExponent, modulusBytes), modulusBytes);
    privateKey->SetPrimes(Component(key.pbPrime1, halfBytes), halfBytes,
                          Component(key.pbPrime2, halfBytes), halfBytes);
    privateKey->SetExponents(Component(key.pbExponent1, halfBytes), halfBytes,
                             Component(key.pbExponent2, halfBytes), halfBytes);
    privateKey->SetCoefficient(Component(key.pbCoefficient, halfBytes), halfBytes);
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
