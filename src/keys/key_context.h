// The key context: the record behind a key handle, and the element of a
// provider's key object list.
#pragma once

#include <cstdint>

#include "platform/algorithm_provider.h"
#include "platform/secure_buffer.h"
#include "platform/wide_string.h"
#include "provider/ncrypt_provider.h"
#include "token/pkcs11.h"

struct QUELMKSP_KEY {
    static constexpr uint32_t kMagic = 0x31415352;  // "RSA1"
    // What the handle check expects, whatever the record's size in memory.
    static constexpr uint32_t kRecordLength = 440;
    static constexpr size_t kKeyIdBytes = 200;

    QUELMKSP_KEY() = default;
    QUELMKSP_KEY(QUELMKSP_KEY&&) = default;
    QUELMKSP_KEY& operator=(QUELMKSP_KEY&&) = default;

    uint32_t cbLength = 0;
    uint32_t dwMagic = 0;
    // The name with its terminator; cbKeyName counts its characters.
    platform::SecureBuffer<platform::WideChar> pszKeyName;
    uint32_t cbKeyName = 0;
    uint32_t dwAlgId = 0;
    uint32_t dwBitLength = 0;
    uint32_t dwExportPolicy = 0;
    uint32_t dwKeyUsage = 0;
    uint32_t fOverwrite = 0;
    uint32_t fFinished = 0;
    platform::SecureBuffer<uint8_t> pbPrivateKeyBlob;
    uint32_t cbPrivateKeyBlob = 0;
    platform::AlgorithmHandle hAlgProvider = nullptr;
    CK_OBJECT_HANDLE hPublicKey = 0;
    CK_OBJECT_HANDLE hPrivateKey = 0;
    uint8_t rgbKeyId[kKeyIdBytes] = {};
    uint32_t cbKeyId = 0;
    uint8_t rgbPublicExponent[4] = {};
    // The components of an imported key.
    platform::SecureBuffer<uint8_t> pbModulus;
    platform::SecureBuffer<uint8_t> pbPrime1;
    platform::SecureBuffer<uint8_t> pbPrime2;
    platform::SecureBuffer<uint8_t> pbExponent1;
    platform::SecureBuffer<uint8_t> pbExponent2;
    platform::SecureBuffer<uint8_t> pbCoefficient;
    platform::SecureBuffer<uint8_t> pbPrivateExponent;

    const platform::WideChar* KeyName() const { return pszKeyName.get(); }
};

// Longest key name, terminator included.
inline constexpr size_t kMaxKeyNameChars = 260;

// A new unfinalized record with the defaults of a 2048-bit key that may
// sign and decrypt, named keyName when one is given.
SECURITY_STATUS CreateNewKeyObject(const platform::WideChar* keyName, QUELMKSP_KEY** record);

// Releases, wiping first, everything the record owns; the record, its token
// handles and its finalized state stay.
SECURITY_STATUS DeleteKeyObject(QUELMKSP_KEY& record);

// The record behind a key handle, or null when the handle is not a live key
// of that provider or its length or magic is wrong.
QUELMKSP_KEY* KeyFromHandle(NCRYPT_KEY_HANDLE handle, const void* provider);

// The status for a failure of the platform's algorithm provider.
SECURITY_STATUS NtStatusToSecurityStatus(int32_t status);
