#include "key_access.h"

#include "status_messages.h"

namespace {

constexpr LPCWSTR kRsaPublicBlob = QKSP_TEXT("RSAPUBLICBLOB");

}  // namespace

SECURITY_STATUS ReadKeyProperty(const KeyRef& key, LPCWSTR property, SecretBytes* value) {
    DWORD length = 0;
    SECURITY_STATUS status =
        key.table.GetKeyProperty(key.provider, key.key, property, nullptr, 0, &length, 0);
    if (status != ERROR_SUCCESS) return status;
    SecretBytes bytes(length);
    if (length > 0) {
        status = key.table.GetKeyProperty(key.provider, key.key, property, bytes.data(), length,
                                          &length, 0);
        if (status != ERROR_SUCCESS) return status;
        bytes.resize(length);
    }
    *value = std::move(bytes);
    return ERROR_SUCCESS;
}

SECURITY_STATUS ReadKeyDword(const KeyRef& key, LPCWSTR property, DWORD* value) {
    DWORD length = 0;
    SECURITY_STATUS status = key.table.GetKeyProperty(
        key.provider, key.key, property, reinterpret_cast<PBYTE>(value), sizeof *value, &length, 0);
    if (status == ERROR_SUCCESS && length != sizeof *value) return NTE_BAD_DATA;
    return status;
}

SECURITY_STATUS ExportRsaPublicBlob(const KeyRef& key, SecretBytes* blob) {
    DWORD length = 0;
    SECURITY_STATUS status = key.table.ExportKey(key.provider, key.key, 0, kRsaPublicBlob, nullptr,
                                                 nullptr, 0, &length, 0);
    if (status != ERROR_SUCCESS) return status;
    if (length == 0) return NTE_BAD_DATA;
    SecretBytes bytes(length);
    status = key.table.ExportKey(key.provider, key.key, 0, kRsaPublicBlob, nullptr, bytes.data(),
                                 length, &length, 0);
    if (status != ERROR_SUCCESS) return status;
    bytes.resize(length);
    *blob = std::move(bytes);
    return ERROR_SUCCESS;
}

SECURITY_STATUS ExportPublicKey(const KeyRef& key, RsaPublicKey* publicKey) {
    SecretBytes blob;
    SECURITY_STATUS status = ExportRsaPublicBlob(key, &blob);
    if (status != ERROR_SUCCESS) return status;
    std::optional<RsaPublicKey> parsed = ParseRsaPublicBlob(blob.data(), blob.size());
    if (!parsed) return NTE_BAD_DATA;
    *publicKey = std::move(*parsed);
    return ERROR_SUCCESS;
}

RsaPublicKey PublicKeyOf(const KeyRef& key) {
    RsaPublicKey publicKey;
    SECURITY_STATUS status = ExportPublicKey(key, &publicKey);
    if (status == NTE_BAD_DATA)
        ThrowStatus(status, "the provider's public key blob is not an RSA1 blob");
    if (status == NTE_NOT_SUPPORTED)
        ThrowStatus(status, "the provider does not export public keys (yet)");
    if (status != ERROR_SUCCESS) ThrowStatus(status, "the public key could not be exported");
    return publicKey;
}
