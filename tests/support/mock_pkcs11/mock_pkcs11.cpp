// A PKCS#11 module with scripted answers. It implements only what the
// provider calls for slots and sessions; everything else reports
// CKR_FUNCTION_NOT_SUPPORTED.
#include "mock_pkcs11.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#define MOCK_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

struct Slot {
    std::string description;
    bool tokenPresent;
};

struct State {
    std::mutex lock;
    std::vector<Slot> slots;
    std::map<std::string, CK_RV> scripted;
    std::map<CK_SESSION_HANDLE, CK_SLOT_ID> sessions;
    CK_SESSION_HANDLE nextSession = 1;
    unsigned char pinDigest[32] = {};
    bool initialized = false;
};

State& TheState() {
    static State state;
    return state;
}

// The scripted result of a function, if a test set one.
bool Scripted(const char* function, CK_RV* rv) {
    auto found = TheState().scripted.find(function);
    if (found == TheState().scripted.end()) return false;
    *rv = found->second;
    return true;
}

#define SCRIPTED(name)                                  \
    std::lock_guard<std::mutex> guard(TheState().lock); \
    if (CK_RV scripted_rv; Scripted(name, &scripted_rv)) return scripted_rv

CK_RV Initialize(CK_VOID_PTR) {
    SCRIPTED("C_Initialize");
    if (TheState().initialized) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
    TheState().initialized = true;
    return CKR_OK;
}

CK_RV Finalize(CK_VOID_PTR) {
    SCRIPTED("C_Finalize");
    TheState().initialized = false;
    return CKR_OK;
}

CK_RV GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR list, CK_ULONG_PTR count) {
    SCRIPTED("C_GetSlotList");
    std::vector<CK_SLOT_ID> ids;
    for (size_t i = 0; i < TheState().slots.size(); ++i)
        if (!tokenPresent || TheState().slots[i].tokenPresent) ids.push_back(i);
    if (!list) {
        *count = ids.size();
        return CKR_OK;
    }
    if (*count < ids.size()) {
        *count = ids.size();
        return CKR_BUFFER_TOO_SMALL;
    }
    std::copy(ids.begin(), ids.end(), list);
    *count = ids.size();
    return CKR_OK;
}

CK_RV GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO_PTR info) {
    SCRIPTED("C_GetSlotInfo");
    if (slot >= TheState().slots.size()) return CKR_SLOT_ID_INVALID;
    std::memset(info, 0, sizeof *info);
    std::memset(info->slotDescription, ' ', sizeof info->slotDescription);
    const std::string& description = TheState().slots[slot].description;
    std::memcpy(info->slotDescription, description.data(),
                std::min(description.size(), sizeof info->slotDescription));
    std::memset(info->manufacturerID, ' ', sizeof info->manufacturerID);
    info->flags =
        CKF_REMOVABLE_DEVICE | (TheState().slots[slot].tokenPresent ? CKF_TOKEN_PRESENT : 0);
    return CKR_OK;
}

CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS, CK_VOID_PTR, CK_NOTIFY,
                  CK_SESSION_HANDLE_PTR session) {
    SCRIPTED("C_OpenSession");
    if (slot >= TheState().slots.size()) return CKR_SLOT_ID_INVALID;
    *session = TheState().nextSession++;
    TheState().sessions[*session] = slot;
    return CKR_OK;
}

CK_RV CloseSession(CK_SESSION_HANDLE session) {
    SCRIPTED("C_CloseSession");
    return TheState().sessions.erase(session) ? CKR_OK : CKR_SESSION_HANDLE_INVALID;
}

CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO_PTR info) {
    SCRIPTED("C_GetTokenInfo");
    if (slot >= TheState().slots.size()) return CKR_SLOT_ID_INVALID;
    std::memset(info, ' ', sizeof *info);
    std::memcpy(info->label, "Mock Token", 10);
    std::memcpy(info->serialNumber, "MOCKSERIAL000001", 16);
    info->flags = CKF_TOKEN_INITIALIZED | CKF_USER_PIN_INITIALIZED | CKF_LOGIN_REQUIRED;
    info->ulMinPinLen = 4;
    info->ulMaxPinLen = 64;
    return CKR_OK;
}

// Hashes the PIN as it arrives and compares digests, so the module never
// holds a copy of it.
CK_RV ExtendedLogin(CK_SESSION_HANDLE session, CK_USER_TYPE, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
    SCRIPTED("ExtendedLogin");
    if (!TheState().sessions.count(session)) return CKR_SESSION_HANDLE_INVALID;
    unsigned char digest[32];
    unsigned int digestLength = 0;
    EVP_Digest(pin, length, digest, &digestLength, EVP_sha256(), nullptr);
    return std::memcmp(digest, TheState().pinDigest, sizeof digest) == 0 ? CKR_OK : 2;
}

CK_RV NotSupported() {
    return CKR_FUNCTION_NOT_SUPPORTED;
}

QUELM_FUNCTION_LIST MakeList() {
    QUELM_FUNCTION_LIST list{};
    list.standard.version = {CRYPTOKI_VERSION_MAJOR, CRYPTOKI_VERSION_MINOR};
    // Every entry answers "not supported" unless it is one of ours below.
    auto** entries = reinterpret_cast<void**>(&list.standard.C_Initialize);
    for (int i = 0; i < QUELM_STANDARD_ENTRY_COUNT; ++i)
        entries[i] = reinterpret_cast<void*>(&NotSupported);
    list.standard.C_Initialize = Initialize;
    list.standard.C_Finalize = Finalize;
    list.standard.C_GetSlotList = GetSlotList;
    list.standard.C_GetSlotInfo = GetSlotInfo;
    list.standard.C_OpenSession = OpenSession;
    list.standard.C_CloseSession = CloseSession;
    list.standard.C_GetTokenInfo = GetTokenInfo;
    list.ExtendedLogin = ExtendedLogin;
    return list;
}

QUELM_FUNCTION_LIST g_list = MakeList();

}  // namespace

MOCK_EXPORT CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
    std::lock_guard<std::mutex> guard(TheState().lock);
    CK_RV rv;
    if (Scripted("C_GetFunctionList", &rv)) return rv;
    *list = &g_list.standard;
    return CKR_OK;
}

MOCK_EXPORT void MockPkcs11_Reset() {
    std::lock_guard<std::mutex> guard(TheState().lock);
    TheState().slots.clear();
    TheState().scripted.clear();
    TheState().sessions.clear();
    TheState().initialized = false;
}

MOCK_EXPORT void MockPkcs11_Fail(const char* function, CK_RV rv) {
    std::lock_guard<std::mutex> guard(TheState().lock);
    TheState().scripted[function] = rv;
}

MOCK_EXPORT void MockPkcs11_AddSlot(const char* description, CK_BBOOL tokenPresent) {
    std::lock_guard<std::mutex> guard(TheState().lock);
    TheState().slots.push_back({description, tokenPresent == CK_TRUE});
}

MOCK_EXPORT long MockPkcs11_OpenSessions() {
    std::lock_guard<std::mutex> guard(TheState().lock);
    return static_cast<long>(TheState().sessions.size());
}

MOCK_EXPORT void MockPkcs11_SetPinDigest(const unsigned char digest[32]) {
    std::lock_guard<std::mutex> guard(TheState().lock);
    std::memcpy(TheState().pinDigest, digest, sizeof TheState().pinDigest);
}
