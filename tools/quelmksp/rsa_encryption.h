// PKCS#1 v1.5 encryption with a public key, done by the client itself:
// OpenSSL on Linux, BCrypt on Windows.
#pragma once

#include "rsa_public_key.h"
#include "secret_bytes.h"

// Throws ClientError (exit_code::kData) when the message is too long for
// the key or the library refuses the key.
SecretBytes Pkcs1Encrypt(const RsaPublicKey& key, const SecretBytes& message);
