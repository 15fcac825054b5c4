#include "keys/private_key_blob.h"

#include <new>

#include "provider/ncrypt_provider.h"

int32_t PrivateKeyBlob::Parse(const uint8_t* blob, uint32_t length) {
    if (!blob) return NTE_INVALID_PARAMETER;
    if (length < RsaKeyBlobHeader::kBytes) return NTE_BUFFER_TOO_SMALL;
    RsaKeyBlobHeader header = RsaKeyBlobHeader::ReadFrom(blob);
    // In 64 bits, so that lengths near 4 GiB cannot wrap around.
    uint64_t needed = uint64_t{RsaKeyBlobHeader::kBytes} + header.cbPublicExp + header.cbModulus +
                      header.cbPrime1 + header.cbPrime2;
    if (length < needed) return NTE_BUFFER_TOO_SMALL;

    const uint8_t* at = blob + RsaKeyBlobHeader::kBytes;
    try {
        KeyBytes* parts[] = {&publicExponent_, &modulus_, &prime1_, &prime2_};
        uint32_t lengths[] = {header.cbPublicExp, header.cbModulus, header.cbPrime1,
                              header.cbPrime2};
        for (int i = 0; i < 4; ++i) {
            *parts[i] = KeyBytes(at, lengths[i]);
            at += lengths[i];
        }
    } catch (const std::bad_alloc&) {
        return NTE_NO_MEMORY;
    }
    header_ = header;
    return ERROR_SUCCESS;
}
