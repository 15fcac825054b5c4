#include <openssl/pem.h>

#include "client_error.h"
#include "crypto_objects_openssl.h"
#include "public_key_encoding.h"

SecretBytes SubjectPublicKeyInfo(const RsaPublicKey& key, TextOrBinary form) {
    EvpPkeyPtr pkey = NewRsaPublicKey(key);
    BioPtr bio = NewWipedMemoryBio();
    bool written = pkey && bio &&
                   (form == TextOrBinary::kPem ? PEM_write_bio_PUBKEY(bio.get(), pkey.get())
                                               : i2d_PUBKEY_bio(bio.get(), pkey.get()));
    if (!written)
        throw ClientError(exit_code::kProvider, "OpenSSL could not encode the exported public key");
    return BioContents(bio.get());
}
