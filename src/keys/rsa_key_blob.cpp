#include "keys/rsa_key_blob.h"

#include <initializer_list>

namespace {

uint32_t ReadLittleEndian(const uint8_t* bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}

void WriteLittleEndian(uint32_t value, uint8_t* bytes) {
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

}  // namespace

RsaKeyBlobHeader RsaKeyBlobHeader::ReadFrom(const uint8_t* bytes) {
    RsaKeyBlobHeader header;
    uint32_t* fields[] = {&header.Magic,     &header.BitLength, &header.cbPublicExp,
                          &header.cbModulus, &header.cbPrime1,  &header.cbPrime2};
    for (uint32_t* field : fields) {
        *field = ReadLittleEndian(bytes);
        bytes += 4;
    }
    return header;
}

void RsaKeyBlobHeader::WriteTo(uint8_t* bytes) const {
    for (uint32_t field : {Magic, BitLength, cbPublicExp, cbModulus, cbPrime1, cbPrime2}) {
        WriteLittleEndian(field, bytes);
        bytes += 4;
    }
}
