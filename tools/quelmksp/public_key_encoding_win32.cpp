#include "client_error.h"
#include "public_key_encoding.h"

SecretBytes SubjectPublicKeyInfo(const RsaPublicKey&, TextOrBinary) {
    throw ClientError(exit_code::kUnavailable,
                      "PEM and DER public keys are not available in the Windows client; "
                      "--format blob writes the provider's RSAPUBLICBLOB");
}
