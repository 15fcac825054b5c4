// A public key as OpenSSL and most tools read it: SubjectPublicKeyInfo, in
// DER or PEM ("BEGIN PUBLIC KEY"). Made with OpenSSL on Linux; the Windows
// client does not offer it.
#pragma once

#include "rsa_public_key.h"
#include "secret_bytes.h"

enum class TextOrBinary { kPem, kDer };

// Throws ClientError: exit_code::kUnavailable in the Windows client.
SecretBytes SubjectPublicKeyInfo(const RsaPublicKey& key, TextOrBinary form);
