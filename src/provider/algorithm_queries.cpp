#include <cstdio>
#include <cstring>
#include <string>

#include "platform/text.h"
#include "provider/caller_buffer.h"
#include "provider/operation_frame.h"
#include "provider/operations.h"
#include "provider/provider_context.h"

namespace quelmksp {
namespace {

// The provider offers one algorithm, RSA, for signing and encryption; the
// hashes are named so that callers see they can sign their digests.
constexpr const platform::WideChar* kSupportedAlgorithms[] = {
    WIDE("RSA"),    WIDE("RSA_SIGN"), WIDE("MD5"),   WIDE("SHA1"),
    WIDE("SHA256"), WIDE("SHA384"),   WIDE("SHA512")};

constexpr platform::WideChar kRsa[] = WIDE("RSA");

struct ClassBit {
    DWORD bit;
    const char* line;
};

constexpr ClassBit kClassLines[] = {
    {NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION,
     "dwAlgClass is NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION"},
    {NCRYPT_SIGNATURE_OPERATION, "dwAlgClass is NCRYPT_SIGNATURE_OPERATION"},
    {NCRYPT_HASH_OPERATION, "dwAlgClass is NCRYPT_HASH_OPERATION"},
    {NCRYPT_SECRET_AGREEMENT_OPERATION, "dwAlgClass is NCRYPT_SECRET_AGREEMENT_OPERATION"},
    {NCRYPT_CIPHER_OPERATION, "dwAlgClass is NCRYPT_CIPHER_OPERATION"},
    {NCRYPT_RNG_OPERATION, "dwAlgClass is NCRYPT_RNG_OPERATION"},
};

constexpr DWORD kListedClasses = NCRYPT_CIPHER_OPERATION | NCRYPT_HASH_OPERATION |
                                 NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION |
                                 NCRYPT_SECRET_AGREEMENT_OPERATION | NCRYPT_SIGNATURE_OPERATION;

// The array of one entry, followed in the same block by the name it points to.
NCryptAlgorithmName* NewAlgorithmList() {
    auto* list = static_cast<NCryptAlgorithmName*>(
        AllocateCallerBuffer(sizeof(NCryptAlgorithmName) + sizeof kRsa));
    if (!list) return nullptr;
    auto* name = reinterpret_cast<platform::WideChar*>(list + 1);
    std::memcpy(name, kRsa, sizeof kRsa);
    list->pszName = name;
    list->dwClass = NCRYPT_ASYMMETRIC_ENCRYPTION_INTERFACE;
    list->dwAlgOperations = NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION | NCRYPT_SIGNATURE_OPERATION;
    list->dwFlags = 0;
    return list;
}

}  // namespace

SECURITY_STATUS EnumAlgorithms(NCRYPT_PROV_HANDLE hProvider, DWORD dwAlgClass, DWORD* pdwAlgCount,
                               NCryptAlgorithmName** ppAlgList, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPEnumAlgorithms", {{"dwAlgClass", dwAlgClass},
                                                    {"pdwAlgCount", pdwAlgCount},
                                                    {"ppAlgList", ppAlgList},
                                                    {"dwFlags", dwFlags}});
    frame.Line("Validating Provider Handle...");
    if (!ProviderFromHandle(hProvider)) return frame.Fail(NTE_INVALID_HANDLE, "pProvider is NULL.");
    if (!pdwAlgCount) return frame.Fail(NTE_INVALID_PARAMETER, "pdwAlgCount is NULL.");
    if (!ppAlgList) return frame.Fail(NTE_INVALID_PARAMETER, "ppAlgList is NULL.");
    if (dwFlags & ~NCRYPT_SILENT_FLAG)
        return frame.Fail(NTE_BAD_FLAGS, "Only NCRYPT_SILENT_FLAG or 0 is an acceptable value.");

    if (dwAlgClass == 0) frame.Line("dwAlgClass is 0");
    for (const ClassBit& entry : kClassLines)
        if (dwAlgClass & entry.bit) frame.Line(entry.line);
    if (dwAlgClass != 0 && !(dwAlgClass & kListedClasses))
        return frame.Fail(NTE_NOT_SUPPORTED, "QUELM KSP currently supports RSA only.");

    NCryptAlgorithmName* list = NewAlgorithmList();
    if (!list) return frame.Fail(NTE_NO_MEMORY, "Unable to allocate enough memory for pbOutput.");
    *pdwAlgCount = 1;
    *ppAlgList = list;
    return frame.Exit(ERROR_SUCCESS);
}

SECURITY_STATUS IsAlgSupported(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszAlgId, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPIsAlgSupported",
                         {{"hProvider", hProvider}, {"pszAlgId", pszAlgId}, {"dwFlags", dwFlags}});
    if (!ProviderFromHandle(hProvider)) return frame.Fail(NTE_INVALID_HANDLE, "pProvider is NULL");
    if (!pszAlgId) return frame.Fail(NTE_INVALID_PARAMETER, "pszAlgId cannot be NULL");
    if (dwFlags & ~NCRYPT_SILENT_FLAG)
        return frame.Fail(NTE_BAD_FLAGS, "Only NCRYPT_SILENT_FLAG is an acceptable flag");

    platform::WideView wanted(pszAlgId);
    for (const platform::WideChar* name : kSupportedAlgorithms)
        if (wanted == name) return frame.Exit(ERROR_SUCCESS);

    char line[256];
    std::snprintf(line, sizeof line, "%s is not a supported algorithm",
                  platform::ToAnsi(wanted).c_str());
    return frame.Fail(NTE_NOT_SUPPORTED, line);
}

SECURITY_STATUS FreeBuffer(PVOID pvInput) {
    OperationFrame frame("QUELMKSPFreeBuffer", {{"pvInput", pvInput}});
    ReleaseCallerBuffer(pvInput);
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
