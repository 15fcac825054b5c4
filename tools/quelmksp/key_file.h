// Key files as users bring them: a private key in PEM or DER (PKCS#1, or
// PKCS#8, encrypted or not), a public key (SubjectPublicKeyInfo or PKCS#1),
// or a PKCS#12 bundle with its certificate. Read with OpenSSL on Linux; the
// Windows client does not offer it.
#pragma once

#include <string>

#include "secret_bytes.h"

struct KeyFile {
    // A BCRYPT_RSAKEY_BLOB: "RSA2" with both primes, or "RSA1".
    SecretBytes blob;
    bool isPrivate = false;
    // The DER of the certificate a PKCS#12 bundle carries for the key, if any.
    SecretBytes certificate;
};

// Where the passphrase of an encrypted file comes from: given (possibly
// empty), or asked on the terminal when there is one.
struct Passphrase {
    bool given = false;
    SecretBytes text;
};

// Reads the key in fileBytes (path names it in messages). publicOnly keeps
// only the public half of a private key. Throws ClientError: exit_code::kData
// for a file that holds no usable RSA key or that the passphrase does not
// open, exit_code::kUnavailable in the Windows client.
KeyFile ReadKeyFile(const SecretBytes& fileBytes, const std::string& path,
                    const Passphrase& passphrase, bool publicOnly);

// The line that --password-stdin reads, without its line end; it may be
// empty. Throws ClientError (exit_code::kData) at the end of stdin.
SecretBytes ReadPassphraseLine();
