#include "token/object_list.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "diag/debug_class.h"
#include "keys/key_context.h"
#include "provider/provider_context.h"
#include "token/cryptoki_library.h"
#include "token/key_name.h"

namespace {

constexpr CK_ULONG kAttributeBufferBytes = 200;
constexpr CK_ULONG kCountingPassLimit = 1000;
constexpr size_t kNameScanLimit = 1025;
constexpr uint32_t kFirstListCapacity = 8;

// The words of the traces that differ between the public and the private
// pass.
struct Pass {
    CK_OBJECT_CLASS objectClass;
    const char* findLine;
    const char* findError;
    const char* readLine;
    bool readLineFirst;
    const char* readError;
    const char* pairedLine;
    const char* createdLine;
    CK_OBJECT_HANDLE QUELMKSP_KEY::*handle;
};

constexpr Pass kPublicPass = {CKO_PUBLIC_KEY,
                              "Find Token Public Keys",
                              "Find Token Public Keys error",
                              "Get Public Key atrributes ",
                              true,
                              "Get Public Keys atrributes error",
                              "Public key paired with private key in object list",
                              "Public key created and added to object list",
                              &QUELMKSP_KEY::hPublicKey};

constexpr Pass kPrivatePass = {CKO_PRIVATE_KEY,
                               "Find Token Private Keys ",
                               "Find Token Private Keys error",
                               "Get Private Key atrributes",
                               false,
                               "Get Private Keys atrributes error",
                               "Private key paired with public key in object list",
                               "Private key created and added to object list",
                               &QUELMKSP_KEY::hPrivateKey};

class ListBuilder {
public:
    ListBuilder(QUELMKSP_PROVIDER& provider, CryptokiLibrary& cryptoki)
        : provider_(provider), token_(*cryptoki.functions()) {}

    SECURITY_STATUS Build() {
        g_pTokenLog->WriteLine("InitializeObjectList - Entry");
        DiscardObjectList(provider_);
        SECURITY_STATUS status = FindBoth();
        if (status == ERROR_SUCCESS) status = AddObjects(kPublicPass, publicKeys_);
        if (status == ERROR_SUCCESS) status = AddObjects(kPrivatePass, privateKeys_);
        g_pTokenLog->WriteLine("InitializeObjectList - Exit");
        return status;
    }

private:
    SECURITY_STATUS FindBoth() {
        g_pTokenLog->WriteLine(kPublicPass.findLine);
        SECURITY_STATUS status = Find(kPublicPass, publicKeys_);
        if (status != ERROR_SUCCESS) return status;
        g_pTokenLog->WriteInt("numPublicKeys = ", static_cast<int32_t>(publicKeys_.size()));
        g_pTokenLog->WriteLine(kPrivatePass.findLine);
        return Find(kPrivatePass, privateKeys_);
    }

    // A counting pass that the module answers without a handle array, then
    // a fetching pass into an array of that size.
    SECURITY_STATUS Find(const Pass& pass, std::vector<CK_OBJECT_HANDLE>& found) {
        CK_BBOOL onToken = CK_TRUE;
        CK_OBJECT_CLASS objectClass = pass.objectClass;
        CK_ATTRIBUTE search[] = {{CKA_TOKEN, &onToken, 1},
                                 {CKA_CLASS, &objectClass, sizeof objectClass}};
        CK_SESSION_HANDLE session = provider_.hSession;
        CK_ULONG count = 0;
        bool ok = token_.C_FindObjectsInit(session, search, 2) == CKR_OK &&
                  token_.C_FindObjects(session, nullptr, kCountingPassLimit, &count) == CKR_OK;
        ok = token_.C_FindObjectsFinal(session) == CKR_OK && ok;
        if (!ok) return FindFailed(pass);
        try {
            found.assign(count, 0);
        } catch (const std::bad_alloc&) {
            g_pTokenLog->WriteLine("NTE_INTERNAL_ERROR: Object memory allocation error");
            return NTE_INTERNAL_ERROR;
        }
        CK_ULONG fetched = 0;
        ok = token_.C_FindObjectsInit(session, search, 2) == CKR_OK &&
             token_.C_FindObjects(session, found.data(), count, &fetched) == CKR_OK;
        ok = token_.C_FindObjectsFinal(session) == CKR_OK && ok;
        if (!ok) return FindFailed(pass);
        found.resize(std::min(fetched, count));
        return ERROR_SUCCESS;
    }

    static SECURITY_STATUS FindFailed(const Pass& pass) {
        g_pTokenLog->WriteLine(pass.findError);
        return NTE_INTERNAL_ERROR;
    }

    SECURITY_STATUS AddObjects(const Pass& pass, const std::vector<CK_OBJECT_HANDLE>& handles) {
        for (CK_OBJECT_HANDLE handle : handles) {
            SECURITY_STATUS status = AddObject(pass, handle);
            if (status != ERROR_SUCCESS) return status;
        }
        return ERROR_SUCCESS;
    }

    SECURITY_STATUS AddObject(const Pass& pass, CK_OBJECT_HANDLE handle) {
        uint8_t id[kAttributeBufferBytes] = {};
        uint8_t label[kAttributeBufferBytes] = {};
        CK_ULONG bits = 0;
        CK_ATTRIBUTE read[] = {{CKA_ID, id, sizeof id},
                               {CKA_LABEL, label, sizeof label},
                               {CKA_MODULUS_BITS, &bits, sizeof bits}};
        if (pass.readLineFirst) g_pTokenLog->WriteLine(pass.readLine);
        CK_RV rv = token_.C_GetAttributeValue(provider_.hSession, handle, read, 3);
        if (!pass.readLineFirst) g_pTokenLog->WriteLine(pass.readLine);
        if (rv != CKR_OK) {
            g_pTokenLog->WriteLine(pass.readError);
            return NTE_INTERNAL_ERROR;
        }
        auto idLength = static_cast<uint32_t>(read[0].ulValueLen);
        g_pTokenLog->WriteBytes("CKA_ID\t\t: ", id, idLength);
        g_pTokenLog->WriteBytes("CKA_LABEL\t: ", label, static_cast<uint32_t>(read[1].ulValueLen));
        g_pTokenLog->WriteInt("CKA_MODULUS_BITS: ", static_cast<int32_t>(bits));

        if (QUELMKSP_KEY* entry = PairedEntry(id)) {
            if (entry->*pass.handle == 0) {
                entry->*pass.handle = handle;
                g_pTokenLog->WriteLine(pass.pairedLine);
            } else {
                g_pTokenLog->WriteLine("Duplicate Key ID error, skip key");
            }
            return ERROR_SUCCESS;
        }

        platform::WideString name;
        if (ConvertIdToKeyName(id, idLength, label, static_cast<uint32_t>(read[1].ulValueLen),
                               &name) != ERROR_SUCCESS) {
            // A key without an identifier has no name to be listed or found
            // by, so it is left out.
            g_pTokenLog->WriteLine("Key object without CKA_ID skipped");
            return ERROR_SUCCESS;
        }
        QUELMKSP_KEY* record = nullptr;
        SECURITY_STATUS status = CreateNewKeyObject(name.c_str(), &record);
        if (status != ERROR_SUCCESS) return status;
        record->*pass.handle = handle;
        g_pTokenLog->WriteLine(pass.createdLine);
        std::memcpy(record->rgbKeyId, id, idLength);
        record->cbKeyId = idLength;
        record->dwBitLength = static_cast<uint32_t>(bits);
        record->fFinished = 1;
        AppendKeyToList(provider_, record);
        IndexEntry(provider_.cObjectList - 1);
        return ERROR_SUCCESS;
    }

    // The first entry whose identifier is a leading part of (or equal to)
    // this one. The identifier is read over each entry's length from the
    // zero-padded buffer, so an entry longer than the object's own CKA_ID
    // can match through trailing zeros.
    QUELMKSP_KEY* PairedEntry(const uint8_t* id) const {
        uint32_t first = provider_.cObjectList;
        for (uint32_t length : idLengths_) {
            auto found =
                firstEntryWithId_.find(std::string(reinterpret_cast<const char*>(id), length));
            if (found != firstEntryWithId_.end()) first = std::min(first, found->second);
        }
        return first < provider_.cObjectList ? &provider_.pObjectList[first] : nullptr;
    }

    // Entries are only ever appended during a build, so the first entry
    // recorded for an identifier is the first in list order.
    void IndexEntry(uint32_t index) {
        const QUELMKSP_KEY& entry = provider_.pObjectList[index];
        firstEntryWithId_.emplace(
            std::string(reinterpret_cast<const char*>(entry.rgbKeyId), entry.cbKeyId), index);
        auto at = std::lower_bound(idLengths_.begin(), idLengths_.end(), entry.cbKeyId);
        if (at == idLengths_.end() || *at != entry.cbKeyId) idLengths_.insert(at, entry.cbKeyId);
    }

    QUELMKSP_PROVIDER& provider_;
    CK_FUNCTION_LIST& token_;
    std::vector<CK_OBJECT_HANDLE> publicKeys_;
    std::vector<CK_OBJECT_HANDLE> privateKeys_;
    std::unordered_map<std::string, uint32_t> firstEntryWithId_;
    std::vector<uint32_t> idLengths_;
};

// Fills destination with a copy of the entry that shares nothing with it.
SECURITY_STATUS CopyEntry(const QUELMKSP_KEY& entry, QUELMKSP_KEY& destination) {
    destination.cbLength = QUELMKSP_KEY::kRecordLength;
    destination.dwMagic = QUELMKSP_KEY::kMagic;
    destination.pszKeyName =
        platform::SecureBuffer<platform::WideChar>::CopyOf(entry.pszKeyName.get(), entry.cbKeyName);
    if (entry.cbKeyName && !destination.pszKeyName) return NTE_NO_MEMORY;
    destination.cbKeyName = entry.cbKeyName;
    std::memcpy(destination.rgbKeyId, entry.rgbKeyId, sizeof entry.rgbKeyId);
    destination.cbKeyId = entry.cbKeyId;
    destination.hPrivateKey = entry.hPrivateKey;
    destination.hPublicKey = entry.hPublicKey;
    destination.hAlgProvider = entry.hAlgProvider;
    destination.dwAlgId = entry.dwAlgId;
    destination.dwExportPolicy = entry.dwExportPolicy;
    destination.dwBitLength = entry.dwBitLength;
    destination.dwKeyUsage = entry.dwKeyUsage;
    std::memcpy(destination.rgbPublicExponent, entry.rgbPublicExponent,
                sizeof entry.rgbPublicExponent);
    destination.fFinished = entry.fFinished;
    destination.fOverwrite = entry.fOverwrite;
    return ERROR_SUCCESS;
}

platform::WideView NameOf(const QUELMKSP_KEY& entry) {
    return platform::ViewOf(entry.pszKeyName.get());
}

SECURITY_STATUS FindEntry(QUELMKSP_PROVIDER& provider, const platform::WideChar* keyName,
                          QUELMKSP_KEY& destination) {
    g_pTokenLog->WriteWide("Looking for key with name: ", keyName);
    if (provider.cObjectList == 0) {
        g_pTokenLog->WriteLine("Number of key objects is 0.");
        SECURITY_STATUS status = InitializeObjectList(provider, *g_pCryptoki);
        if (status != ERROR_SUCCESS) {
            g_pTokenLog->WriteHex("LoadTokenKeys error ", static_cast<uint32_t>(status));
            return status;
        }
    }
    g_pTokenLog->WriteLine("Test KeyName pointer");
    platform::WideView given(keyName);
    if (given.size() >= kNameScanLimit) g_pTokenLog->WriteLine("Overflow!");

    g_pTokenLog->WriteWide("Searching KeyName = ", keyName);
    g_pTokenLog->WriteInt("Starting iteration. Count: ",
                          static_cast<int32_t>(provider.cObjectList));
    bool hexMade = false;
    platform::WideString hexName;
    for (uint32_t i = 0; i < provider.cObjectList; ++i) {
        const QUELMKSP_KEY& entry = provider.pObjectList[i];
        g_pTokenLog->WriteInt("Iteration: ", static_cast<int32_t>(i));
        g_pTokenLog->WriteWide("Compare name to: ", entry.pszKeyName.get());
        bool match = SelectsKeyName(given, NameOf(entry));
        if (!match) {
            g_pTokenLog->WriteLine("Checking hex string equivalent of key name");
            if (!hexMade) hexName = HexToKeyName(given);
            hexMade = true;
            match = SelectsKeyName(hexName, NameOf(entry));
        }
        if (match) {
            g_pTokenLog->WriteLine("Key name match found");
            g_pTokenLog->WriteLine("Copying key");
            SECURITY_STATUS status = CopyEntry(entry, destination);
            if (status == ERROR_SUCCESS) g_pTokenLog->WriteLine("Key was reconstructed");
            return status;
        }
    }
    g_pTokenLog->WriteLine("Key name match not found");
    return NTE_BAD_KEYSET;
}

}  // namespace

SECURITY_STATUS InitializeObjectList(QUELMKSP_PROVIDER& provider, CryptokiLibrary& cryptoki) {
    return ListBuilder(provider, cryptoki).Build();
}

SECURITY_STATUS FindQULMKSPKeyfromObjectList(QUELMKSP_PROVIDER& provider,
                                             const platform::WideChar* keyName,
                                             QUELMKSP_KEY& destination) {
    g_pTokenLog->WriteLine("FindQULMKSPKeyfromObjectList - Entry");
    SECURITY_STATUS status = FindEntry(provider, keyName, destination);
    g_pTokenLog->WriteLine("FindQULMKSPKeyfromObjectList - Exit");
    return status;
}

void AppendKeyToList(QUELMKSP_PROVIDER& provider, QUELMKSP_KEY* record) {
    std::unique_ptr<QUELMKSP_KEY> appended(record);
    if (!provider.pObjectList) provider.cObjectListCapacity = 0;
    if (provider.cObjectList == provider.cObjectListCapacity) {
        uint32_t capacity = std::max<uint32_t>(kFirstListCapacity, provider.cObjectList * 2);
        auto grown = std::make_unique<QUELMKSP_KEY[]>(capacity);
        for (uint32_t i = 0; i < provider.cObjectList; ++i)
            grown[i] = std::move(provider.pObjectList[i]);
        provider.pObjectList = std::move(grown);
        provider.cObjectListCapacity = capacity;
    }
    provider.pObjectList[provider.cObjectList] = std::move(*appended);
    ++provider.cObjectList;
}

void DiscardObjectList(QUELMKSP_PROVIDER& provider) {
    provider.pObjectList.reset();
    provider.cObjectList = 0;
    provider.cObjectListCapacity = 0;
}
