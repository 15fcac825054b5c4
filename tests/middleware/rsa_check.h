#pragma once

#include <vector>

#include <p11-kit/pkcs11.h>

using Bytes = std::vector<CK_BYTE>;

// Checks made with OpenSSL, independently of the token.
struct RsaComponents {
    Bytes n, e, p, q;
};
RsaComponents generate_rsa_components(int bits);

// A CKM_RSA_PKCS signature: PKCS#1 v1.5 padding of the raw data.
bool verify_raw_pkcs1(const Bytes& modulus, const Bytes& exponent, const Bytes& data,
                      const Bytes& signature);

Bytes read_attribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);
