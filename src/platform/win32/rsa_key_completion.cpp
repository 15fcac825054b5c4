#include "platform/rsa_key_completion.h"

#include <windows.h>
// bcrypt.h needs the types that windows.h defines.
#include <bcrypt.h>

#include <cstring>
#include <vector>

namespace platform {
namespace {

// CNG derives the values itself: the key is imported from the four that
// are known and exported again in full.
class ImportedKey {
public:
    ~ImportedKey() {
        if (key_) BCryptDestroyKey(key_);
        if (algorithm_) BCryptCloseAlgorithmProvider(algorithm_, 0);
    }
    bool Import(SecureBuffer<uint8_t>& blob) {
        return BCryptOpenAlgorithmProvider(&algorithm_, BCRYPT_RSA_ALGORITHM, nullptr, 0) == 0 &&
               BCryptImportKeyPair(algorithm_, nullptr, BCRYPT_RSAPRIVATE_BLOB, &key_, blob.get(),
                                   static_cast<ULONG>(blob.size()), BCRYPT_NO_KEY_VALIDATION) == 0;
    }
    bool ExportFull(SecureBuffer<uint8_t>* blob) {
        ULONG length = 0;
        if (BCryptExportKey(key_, nullptr, BCRYPT_RSAFULLPRIVATE_BLOB, nullptr, 0, &length, 0) != 0)
            return false;
        *blob = SecureBuffer<uint8_t>(length);
        return BCryptExportKey(key_, nullptr, BCRYPT_RSAFULLPRIVATE_BLOB, blob->get(), length,
                               &length, 0) == 0 &&
               length == blob->size();
    }

private:
    BCRYPT_ALG_HANDLE algorithm_ = nullptr;
    BCRYPT_KEY_HANDLE key_ = nullptr;
};

uint8_t* Append(uint8_t* at, BigEndian value) {
    std::memcpy(at, value.bytes, value.length);
    return at + value.length;
}

// A value of the full blob, left-padded to the length the caller expects.
bool Take(const uint8_t*& at, const uint8_t* end, size_t length, size_t wanted,
          SecureBuffer<uint8_t>* out) {
    if (static_cast<size_t>(end - at) < length || length > wanted) return false;
    *out = SecureBuffer<uint8_t>(wanted);
    std::memcpy(out->get() + (wanted - length), at, length);
    at += length;
    return true;
}

}  // namespace

bool CompleteRsaPrivateKey(BigEndian exponent, BigEndian modulus, BigEndian prime1,
                           BigEndian prime2, RsaPrivateValues* values) {
    try {
        BCRYPT_RSAKEY_BLOB header = {BCRYPT_RSAPRIVATE_MAGIC,
                                     static_cast<ULONG>(8 * modulus.length),
                                     static_cast<ULONG>(exponent.length),
                                     static_cast<ULONG>(modulus.length),
                                     static_cast<ULONG>(prime1.length),
                                     static_cast<ULONG>(prime2.length)};
        SecureBuffer<uint8_t> blob(sizeof header + exponent.length + modulus.length +
                                   prime1.length + prime2.length);
        std::memcpy(blob.get(), &header, sizeof header);
        uint8_t* at = blob.get() + sizeof header;
        for (BigEndian part : {exponent, modulus, prime1, prime2}) at = Append(at, part);

        ImportedKey key;
        SecureBuffer<uint8_t> full;
        if (!key.Import(blob) || !key.ExportFull(&full) || full.size() < sizeof header)
            return false;
        BCRYPT_RSAKEY_BLOB fullHeader;
        std::memcpy(&fullHeader, full.get(), sizeof fullHeader);
        const uint8_t* read = full.get() + sizeof fullHeader;
        const uint8_t* end = full.get() + full.size();
        read += fullHeader.cbPublicExp + fullHeader.cbModulus + fullHeader.cbPrime1 +
                fullHeader.cbPrime2;
        if (read > end) return false;
        return Take(read, end, fullHeader.cbPrime1, prime1.length, &values->exponent1) &&
               Take(read, end, fullHeader.cbPrime2, prime2.length, &values->exponent2) &&
               Take(read, end, fullHeader.cbPrime1, prime1.length, &values->coefficient) &&
               Take(read, end, fullHeader.cbModulus, modulus.length, &values->privateExponent);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace platform
