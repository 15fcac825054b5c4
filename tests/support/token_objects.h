// Puts key objects on a test token the way another tool would: through its
// own logged-in session, with the identifiers and labels the test chooses.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "softhsm_tokens.h"
#include "token/cryptoki_library.h"

using Bytes = std::vector<uint8_t>;

inline Bytes BytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

class TokenObjects {
public:
    struct Pair {
        CK_OBJECT_HANDLE publicKey;
        CK_OBJECT_HANDLE privateKey;
    };

    // Opens a session on a token slot (the first one unless told) and logs
    // the user in.
    explicit TokenObjects(CryptokiLibrary& cryptoki, CK_ULONG slotIndex = 0)
        : token_(*cryptoki.functions()) {
        CK_SLOT_ID slots[8];
        CK_ULONG count = 8;
        Check(token_.C_GetSlotList(CK_TRUE, slots, &count), "C_GetSlotList");
        if (count <= slotIndex) throw std::runtime_error("no token");
        Check(token_.C_OpenSession(slots[slotIndex], CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr,
                                   nullptr, &session_),
              "C_OpenSession");
        std::string pin = SoftHsmTokens::kUserPin;
        CK_RV rv = token_.C_Login(session_, CKU_USER, reinterpret_cast<CK_UTF8CHAR*>(pin.data()),
                                  pin.size());
        if (rv != CKR_USER_ALREADY_LOGGED_IN) Check(rv, "C_Login");
    }
    ~TokenObjects() {
        token_.C_Logout(session_);
        token_.C_CloseSession(session_);
    }
    TokenObjects(const TokenObjects&) = delete;
    TokenObjects& operator=(const TokenObjects&) = delete;

    // A 1024-bit RSA pair; each half gets its own identifier.
    Pair Generate(const Bytes& publicId, const Bytes& privateId, const std::string& label = "key",
                  bool decrypts = true) {
        CK_MECHANISM mechanism = {CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
        CK_ULONG bits = 1024;
        CK_BYTE exponent[] = {1, 0, 1};
        CK_BBOOL yes = CK_TRUE;
        CK_BBOOL decrypt = decrypts ? CK_TRUE : CK_FALSE;
        std::string labelCopy = label;
        CK_ATTRIBUTE publicTemplate[] = {
            {CKA_TOKEN, &yes, 1},
            {CKA_ID, const_cast<uint8_t*>(publicId.data()), static_cast<CK_ULONG>(publicId.size())},
            {CKA_LABEL, labelCopy.data(), static_cast<CK_ULONG>(labelCopy.size())},
            {CKA_MODULUS_BITS, &bits, sizeof bits},
            {CKA_PUBLIC_EXPONENT, exponent, sizeof exponent},
            {CKA_VERIFY, &yes, 1},
            {CKA_ENCRYPT, &yes, 1}};
        CK_ATTRIBUTE privateTemplate[] = {
            {CKA_TOKEN, &yes, 1},
            {CKA_ID, const_cast<uint8_t*>(privateId.data()),
             static_cast<CK_ULONG>(privateId.size())},
            {CKA_LABEL, labelCopy.data(), static_cast<CK_ULONG>(labelCopy.size())},
            {CKA_SIGN, &yes, 1},
            {CKA_DECRYPT, &decrypt, 1}};
        Pair pair{};
        Check(token_.C_GenerateKeyPair(session_, &mechanism, publicTemplate, 7, privateTemplate, 5,
                                       &pair.publicKey, &pair.privateKey),
              "C_GenerateKeyPair");
        return pair;
    }

    // An attribute's bytes, read as any other application reads them.
    Bytes Attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
        CK_ATTRIBUTE attribute = {type, nullptr, 0};
        Check(token_.C_GetAttributeValue(session_, object, &attribute, 1), "C_GetAttributeValue");
        Bytes value(attribute.ulValueLen);
        attribute.pValue = value.data();
        Check(token_.C_GetAttributeValue(session_, object, &attribute, 1), "C_GetAttributeValue");
        return value;
    }
    CK_ULONG UlongAttribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
        CK_ULONG value = 0;
        CK_ATTRIBUTE attribute = {type, &value, sizeof value};
        Check(token_.C_GetAttributeValue(session_, object, &attribute, 1), "C_GetAttributeValue");
        return value;
    }
    bool BoolAttribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
        return Attribute(object, type) == Bytes{CK_TRUE};
    }

    // The token objects of a class, optionally only those with the label.
    std::vector<CK_OBJECT_HANDLE> Find(CK_OBJECT_CLASS objectClass,
                                       const std::string* label = nullptr) {
        std::string labelCopy = label ? *label : std::string();
        CK_ATTRIBUTE search[] = {
            {CKA_CLASS, &objectClass, sizeof objectClass},
            {CKA_LABEL, labelCopy.data(), static_cast<CK_ULONG>(labelCopy.size())}};
        Check(token_.C_FindObjectsInit(session_, search, label ? 2 : 1), "C_FindObjectsInit");
        std::vector<CK_OBJECT_HANDLE> found(64);
        CK_ULONG count = 0;
        CK_RV rv = token_.C_FindObjects(session_, found.data(), found.size(), &count);
        token_.C_FindObjectsFinal(session_);
        Check(rv, "C_FindObjects");
        found.resize(count);
        return found;
    }

    void Destroy(CK_OBJECT_HANDLE object) {
        Check(token_.C_DestroyObject(session_, object), "C_DestroyObject");
    }

private:
    static void Check(CK_RV rv, const char* call) {
        if (rv != CKR_OK)
            throw std::runtime_error(std::string(call) + " failed: " + std::to_string(rv));
    }

    CK_FUNCTION_LIST& token_;
    CK_SESSION_HANDLE session_ = 0;
};
