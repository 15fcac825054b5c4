// The Wine bridge as the Windows build calls it: Windows PKCS#11 ABI calls
// in, the Linux middleware and a SoftHSM2 token behind it.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "quelmpkcs11/extended_function_list.h"
#include "support/softhsm_tokens.h"

namespace {

static_assert(sizeof(CK_ULONG) == 4, "the Windows ABI");
static_assert(sizeof(CK_ATTRIBUTE) == 16, "packed to one byte");

class WineBridge : public ::testing::Test {
protected:
    void SetUp() override {
        tokens_.emplace(dir_, std::vector<std::string>{"bridge"});
        HMODULE module = LoadLibraryW(L"quelmpkcs11.dll");
        ASSERT_NE(module, nullptr) << "the bridge is not beside the test";
        auto getList = reinterpret_cast<CK_C_GetFunctionList>(
            reinterpret_cast<void*>(GetProcAddress(module, "C_GetFunctionList")));
        ASSERT_NE(getList, nullptr);
        CK_FUNCTION_LIST_PTR list = nullptr;
        ASSERT_EQ(getList(&list), CKR_OK);
        f_ = list;
        extended_ = reinterpret_cast<QUELM_FUNCTION_LIST*>(list);
        ASSERT_EQ(f_->C_Initialize(nullptr), CKR_OK);
        CK_ULONG count = 1;
        ASSERT_EQ(f_->C_GetSlotList(CK_TRUE, &slot_, &count), CKR_OK);
        ASSERT_EQ(count, 1u);
        ASSERT_EQ(f_->C_OpenSession(slot_, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                    &session_),
                  CKR_OK);
    }
    void TearDown() override {
        if (f_) f_->C_Finalize(nullptr);
    }

    CK_RV Login(const std::string& pin) {
        return extended_->ExtendedLogin(
            session_, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<char*>(pin.data())),
            static_cast<CK_ULONG>(pin.size()));
    }

    TempDir dir_;
    std::optional<SoftHsmTokens> tokens_;
    CK_FUNCTION_LIST* f_ = nullptr;
    QUELM_FUNCTION_LIST* extended_ = nullptr;
    CK_SLOT_ID slot_ = 0;
    CK_SESSION_HANDLE session_ = 0;
};

}  // namespace

TEST_F(WineBridge, InformationAndTheExtendedLoginCrossTheAbi) {
    CK_TOKEN_INFO token{};
    ASSERT_EQ(f_->C_GetTokenInfo(slot_, &token), CKR_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(token.label), 7), "bridge ");
    EXPECT_TRUE(token.flags & CKF_TOKEN_INITIALIZED);
    EXPECT_EQ(token.ulMaxSessionCount, CK_EFFECTIVELY_INFINITE);
    EXPECT_EQ(token.ulTotalPublicMemory, CK_UNAVAILABLE_INFORMATION) << "all ones on both sides";
    EXPECT_GE(token.ulMaxPinLen, 4u);

    CK_SLOT_INFO slot{};
    ASSERT_EQ(f_->C_GetSlotInfo(slot_, &slot), CKR_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(slot.slotDescription), 18), "SoftHSM slot ID 0x");
    EXPECT_TRUE(slot.flags & CKF_TOKEN_PRESENT);

    CK_SESSION_INFO session{};
    ASSERT_EQ(f_->C_GetSessionInfo(session_, &session), CKR_OK);
    EXPECT_EQ(session.slotID, slot_) << "the slot id as the Windows side knows it";
    EXPECT_EQ(session.state, CKS_RW_PUBLIC_SESSION);

    // Entry 72: a wrong PIN answers with the tries left, as the middleware counts them.
    EXPECT_EQ(Login("0000"), 2u);
    ASSERT_EQ(f_->C_GetTokenInfo(slot_, &token), CKR_OK);
    EXPECT_TRUE(token.flags & CKF_USER_PIN_COUNT_LOW);
    EXPECT_EQ(Login(SoftHsmTokens::kUserPin), CKR_OK);
    ASSERT_EQ(f_->C_GetSessionInfo(session_, &session), CKR_OK);
    EXPECT_EQ(session.state, CKS_RW_USER_FUNCTIONS);

    EXPECT_EQ(f_->C_CloseSession(0x80000005u), CKR_SESSION_HANDLE_INVALID)
        << "a number the bridge never handed out";
    EXPECT_EQ(f_->C_GetSlotInfo(0x80000005u, &slot), CKR_SLOT_ID_INVALID);
}

TEST_F(WineBridge, CkUlongAttributesAreFourBytesOnWindows) {
    ASSERT_EQ(Login(SoftHsmTokens::kUserPin), CKR_OK);
    CK_MECHANISM generation = {CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
    CK_ULONG bits = 1024;
    CK_BYTE exponent[] = {1, 0, 1};
    CK_BBOOL yes = CK_TRUE;
    CK_BYTE id[] = {0x42};
    CK_ATTRIBUTE publicTemplate[] = {{CKA_TOKEN, &yes, 1},
                                     {CKA_ID, id, 1},
                                     {CKA_MODULUS_BITS, &bits, sizeof(bits)},
                                     {CKA_PUBLIC_EXPONENT, exponent, sizeof(exponent)},
                                     {CKA_VERIFY, &yes, 1}};
    CK_ATTRIBUTE privateTemplate[] = {{CKA_TOKEN, &yes, 1}, {CKA_ID, id, 1}, {CKA_SIGN, &yes, 1}};
    CK_OBJECT_HANDLE publicKey = 0, privateKey = 0;
    ASSERT_EQ(f_->C_GenerateKeyPair(session_, &generation, publicTemplate, 5, privateTemplate, 3,
                                    &publicKey, &privateKey),
              CKR_OK);

    // A 4-byte CKA_CLASS finds exactly the private key; the middleware's
    // count of what is left comes through a null handle array.
    CK_OBJECT_CLASS privateClass = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE byClass[] = {{CKA_CLASS, &privateClass, sizeof(privateClass)}};
    ASSERT_EQ(f_->C_FindObjectsInit(session_, byClass, 1), CKR_OK);
    CK_ULONG count = 0;
    ASSERT_EQ(f_->C_FindObjects(session_, nullptr, 0, &count), CKR_OK);
    EXPECT_EQ(count, 1u);
    CK_OBJECT_HANDLE found[4] = {};
    ASSERT_EQ(f_->C_FindObjects(session_, found, 4, &count), CKR_OK);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(found[0], privateKey);
    EXPECT_EQ(f_->C_FindObjectsFinal(session_), CKR_OK);

    CK_ULONG eightBytes[2] = {CKO_PRIVATE_KEY, 0};
    CK_ATTRIBUTE malformed[] = {{CKA_CLASS, eightBytes, sizeof(eightBytes)}};
    EXPECT_EQ(f_->C_FindObjectsInit(session_, malformed, 1), CKR_ATTRIBUTE_VALUE_INVALID);

    CK_ATTRIBUTE lengths[] = {{CKA_CLASS, nullptr, 0},
                              {CKA_KEY_TYPE, nullptr, 0},
                              {CKA_MODULUS_BITS, nullptr, 0},
                              {CKA_MODULUS, nullptr, 0}};
    ASSERT_EQ(f_->C_GetAttributeValue(session_, privateKey, lengths, 4), CKR_OK);
    EXPECT_EQ(lengths[0].ulValueLen, 4u);
    EXPECT_EQ(lengths[1].ulValueLen, 4u);
    EXPECT_EQ(lengths[2].ulValueLen, 4u);
    EXPECT_EQ(lengths[3].ulValueLen, 128u);

    CK_OBJECT_CLASS keyClass = 0;
    CK_KEY_TYPE keyType = 0xFFFF;
    CK_ULONG modulusBits = 0;
    CK_ATTRIBUTE values[] = {{CKA_CLASS, &keyClass, sizeof(keyClass)},
                             {CKA_KEY_TYPE, &keyType, sizeof(keyType)},
                             {CKA_MODULUS_BITS, &modulusBits, sizeof(modulusBits)}};
    ASSERT_EQ(f_->C_GetAttributeValue(session_, privateKey, values, 3), CKR_OK);
    EXPECT_EQ(keyClass, CKO_PRIVATE_KEY);
    EXPECT_EQ(keyType, CKK_RSA);
    EXPECT_EQ(modulusBits, 1024u);
    EXPECT_EQ(values[0].ulValueLen, 4u);

    // A signature made and checked through the bridge, lengths included.
    CK_MECHANISM pkcs1 = {CKM_RSA_PKCS, nullptr, 0};
    CK_BYTE data[] = "digest info";
    ASSERT_EQ(f_->C_SignInit(session_, &pkcs1, privateKey), CKR_OK);
    CK_ULONG length = 0;
    ASSERT_EQ(f_->C_Sign(session_, data, sizeof(data), nullptr, &length), CKR_OK);
    ASSERT_EQ(length, 128u);
    std::vector<CK_BYTE> signature(length);
    ASSERT_EQ(f_->C_Sign(session_, data, sizeof(data), signature.data(), &length), CKR_OK);
    ASSERT_EQ(f_->C_VerifyInit(session_, &pkcs1, publicKey), CKR_OK);
    EXPECT_EQ(f_->C_Verify(session_, data, sizeof(data), signature.data(), length), CKR_OK);
    signature[5] ^= 1;
    ASSERT_EQ(f_->C_VerifyInit(session_, &pkcs1, publicKey), CKR_OK);
    EXPECT_EQ(f_->C_Verify(session_, data, sizeof(data), signature.data(), length),
              CKR_SIGNATURE_INVALID);
}
