#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include "crypto/key_operation.h"
#include "platform/certificates.h"
#include "platform/last_error.h"
#include "provider/card_monitor.h"
#include "provider/operations.h"
#include "provider/property_name.h"
#include "provider/result_length.h"
#include "token/cryptoki_library.h"
#include "token/key_certificate.h"

namespace quelmksp {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes DwordValue(uint32_t value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

Bytes WideValue(platform::WideView text) {
    Bytes bytes((text.size() + 1) * sizeof(platform::WideChar), 0);
    std::memcpy(bytes.data(), text.data(), text.size() * sizeof(platform::WideChar));
    return bytes;
}

struct KeyPropertyRow {
    const platform::WideChar* name;
    const char* traceLine;
    // The value, or nothing when the key cannot answer it.
    std::optional<Bytes> (*value)(const QUELMKSP_KEY& key);
};

std::optional<Bytes> KeyNameValue(const QUELMKSP_KEY& key) {
    if (!key.KeyName()) return std::nullopt;
    return WideValue(key.KeyName());
}

// The properties answered from the key context, in the order they are
// looked up.
const KeyPropertyRow kKeyProperties[] = {
    {NCRYPT_ALGORITHM_PROPERTY, "dwProperty = QUELMKSP_ALGORITHM_PROPERTY",
     [](const QUELMKSP_KEY&) -> std::optional<Bytes> { return WideValue(WIDE("RSA")); }},
    {NCRYPT_BLOCK_LENGTH_PROPERTY, "dwProperty = QUELMKSP_BLOCK_LENGTH_PROPERTY",
     [](const QUELMKSP_KEY& key) -> std::optional<Bytes> {
         return DwordValue((key.dwBitLength + 7) / 8);
     }},
    {NCRYPT_EXPORT_POLICY_PROPERTY, "dwProperty = QUELMKSP_EXPORT_POLICY_PROPERTY",
     [](const QUELMKSP_KEY& key) -> std::optional<Bytes> {
         return DwordValue(key.dwExportPolicy);
     }},
    {NCRYPT_KEY_USAGE_PROPERTY, "dwProperty = QUELMKSP_KEY_USAGE_PROPERTY",
     [](const QUELMKSP_KEY& key) -> std::optional<Bytes> { return DwordValue(key.dwKeyUsage); }},
    {NCRYPT_KEY_TYPE_PROPERTY, "dwProperty = QUELMKSP_KEY_TYPE_PROPERTY",
     [](const QUELMKSP_KEY&) -> std::optional<Bytes> { return DwordValue(0); }},
    {NCRYPT_LENGTH_PROPERTY, "dwProperty = QUELMKSP_LENGTH_PROPERTY",
     [](const QUELMKSP_KEY& key) -> std::optional<Bytes> { return DwordValue(key.dwBitLength); }},
    {NCRYPT_LENGTHS_PROPERTY, "dwProperty = QUELMKSP_LENGTHS_PROPERTY",
     [](const QUELMKSP_KEY&) -> std::optional<Bytes> {
         Bytes lengths;
         for (uint32_t value : {512u, 4096u, 512u, 2048u}) {
             Bytes field = DwordValue(value);
             lengths.insert(lengths.end(), field.begin(), field.end());
         }
         return lengths;
     }},
    {NCRYPT_NAME_PROPERTY, "dwProperty = QUELMKSP_NAME_PROPERTY", KeyNameValue},
    {NCRYPT_SECURITY_DESCR_PROPERTY, nullptr, nullptr},
    {NCRYPT_ALGORITHM_GROUP_PROPERTY, "dwProperty = QUELMKSP_ALGORITHM_GROUP_PROPERTY",
     [](const QUELMKSP_KEY&) -> std::optional<Bytes> { return WideValue(WIDE("RSA")); }},
    {NCRYPT_UNIQUE_NAME_PROPERTY, "dwProperty = QUELMKSP_UNIQUE_NAME_PROPERTY", KeyNameValue},
};

SECURITY_STATUS CopyFixedValue(OperationFrame& frame, const KeyPropertyRow& row,
                               const QUELMKSP_KEY& key, PBYTE pbOutput, DWORD cbOutput,
                               ResultLength& result) {
    if (!row.value) return frame.Exit(NTE_NOT_SUPPORTED);
    std::optional<Bytes> value = row.value(key);
    if (!value) return frame.Exit(NTE_NOT_SUPPORTED);
    result.value = static_cast<DWORD>(value->size());
    if (!pbOutput) return frame.Exit(ERROR_SUCCESS);
    if (cbOutput < value->size()) return frame.Exit(NTE_BUFFER_TOO_SMALL);
    frame.Line(row.traceLine);
    std::memcpy(pbOutput, value->data(), value->size());
    return frame.Exit(ERROR_SUCCESS);
}

// Reads the key's certificate from the token. A context made from it is
// handed to the card monitor, which withdraws it when the card goes.
SECURITY_STATUS CopyCertificate(OperationFrame& frame, const QUELMKSP_PROVIDER& provider,
                                const QUELMKSP_KEY& key, PBYTE pbOutput, DWORD cbOutput,
                                ResultLength& result) {
    frame.Line("dwProperty = QUELMKSP_CERTIFICATE_PROPERTY");
    KeyCertificate record;
    record.pCryptoki = g_pCryptoki;
    record.hSession = provider.hSession;
    if (SECURITY_STATUS status = ReadKeyCertificate(record, key.KeyName()))
        return frame.Exit(status);
    KeyBytes der = std::move(record.pbCertificate);
    result.value = static_cast<DWORD>(der.size());
    if (!pbOutput) return frame.Exit(ERROR_SUCCESS);
    if (cbOutput < der.size()) return frame.Exit(NTE_BUFFER_TOO_SMALL);

    PCCERT_CONTEXT context = CertCreateCertificateContext(
        X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der.get(), static_cast<DWORD>(der.size()));
    if (!context) {
        frame.log().WriteHex("Failed to validate certificate context ", platform::GetLastError());
        return frame.Exit(NTE_BAD_DATA);
    }
    g_pCardMonitor->AppendCertificate(provider.dwUniqueSlotId, context);
    std::memcpy(pbOutput, der.get(), der.size());
    frame.log().WriteBytes("certificate", pbOutput, result.value);
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace

SECURITY_STATUS GetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                               LPCWSTR pszProperty, PBYTE pbOutput, DWORD cbOutput,
                               DWORD* pcbResult, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPGetKeyProperty", {{"hProvider", hProvider},
                                                    {"hKey", hKey},
                                                    {"pszProperty", pszProperty},
                                                    {"pbOutput", pbOutput},
                                                    {"cbOutput", cbOutput},
                                                    {"pcbResult", pcbResult},
                                                    {"dwFlags", dwFlags}});
    ResultLength result(pcbResult);
    QUELMKSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider)
        return frame.Fail(NTE_INVALID_HANDLE, "Invalid provider handle, pProvider is NULL");
    QUELMKSP_KEY* key = KeyFromHandle(hKey, provider);
    if (!key) return frame.Fail(NTE_INVALID_HANDLE, "Invalid key handle, pKey is NULL");
    if (!pszProperty) return frame.Fail(NTE_INVALID_PARAMETER, "pszProperty is NULL");
    if (PropertyNameTooLong(pszProperty))
        return frame.Fail(NTE_INVALID_PARAMETER,
                          "Length of pszProperty is longer than NCRYPT_MAX_PROPERTY_NAME");
    if (!pcbResult) return frame.Fail(NTE_INVALID_PARAMETER, "pcbResult is NULL");
    if (dwFlags & NCRYPT_PERSIST_ONLY_FLAG) return frame.Exit(NTE_NOT_SUPPORTED);

    platform::WideView name(pszProperty);
    for (const KeyPropertyRow& row : kKeyProperties)
        if (name == row.name) return CopyFixedValue(frame, row, *key, pbOutput, cbOutput, result);
    if (name == NCRYPT_CERTIFICATE_PROPERTY)
        return CopyCertificate(frame, *provider, *key, pbOutput, cbOutput, result);
    return frame.Exit(NTE_NOT_SUPPORTED);
}

}  // namespace quelmksp
