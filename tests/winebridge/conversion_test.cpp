// The Wine bridge's conversions: Windows-side structures in, Linux-side
// values out, and back.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "conversion.h"

using namespace bridge;

namespace {

WinUlong Read32(const void* bytes) {
    WinUlong value;
    std::memcpy(&value, bytes, sizeof(value));
    return value;
}

}  // namespace

TEST(BridgeConversion, ValuesGoingInAreWidenedWhereTheyAreCkUlongs) {
    WinUlong keyClass = CKO_PUBLIC_KEY, bits = 2048, unavailable = 0xFFFFFFFFu;
    WinUlong mechanisms[] = {CKM_RSA_PKCS, CKM_SHA256_RSA_PKCS};
    char label[] = "key";
    CK_BBOOL yes = CK_TRUE;
    // The Windows layout: 4-byte type, 8-byte pointer, 4-byte length, no padding.
    WinAttribute windows[] = {{CKA_CLASS, &keyClass, 4},
                              {CKA_LABEL, label, 3},
                              {CKA_TOKEN, &yes, 1},
                              {CKA_MODULUS_BITS, &bits, 4},
                              {CKA_ALLOWED_MECHANISMS, mechanisms, sizeof(mechanisms)},
                              {CKA_VALUE_LEN, &unavailable, 4},
                              {CKA_MODULUS, nullptr, 0}};
    static_assert(offsetof(WinAttribute, ulValueLen) == 12);

    LinuxTemplate converted;
    ASSERT_EQ(converted.TakeValues(windows, 7), CKR_OK);
    ASSERT_EQ(converted.size(), 7u);
    const CK_ATTRIBUTE* out = converted.data();
    EXPECT_EQ(out[0].type, CKA_CLASS);
    EXPECT_EQ(out[0].ulValueLen, sizeof(CK_ULONG));
    EXPECT_EQ(*static_cast<CK_ULONG*>(out[0].pValue), CKO_PUBLIC_KEY);
    EXPECT_EQ(out[1].pValue, label) << "bytes are handed on, not copied";
    EXPECT_EQ(out[1].ulValueLen, 3u);
    EXPECT_EQ(out[2].pValue, &yes);
    EXPECT_EQ(out[2].ulValueLen, 1u);
    EXPECT_EQ(out[3].ulValueLen, 8u);
    EXPECT_EQ(*static_cast<CK_ULONG*>(out[3].pValue), 2048u);
    ASSERT_EQ(out[4].ulValueLen, 16u);
    EXPECT_EQ(static_cast<CK_ULONG*>(out[4].pValue)[0], CKM_RSA_PKCS);
    EXPECT_EQ(static_cast<CK_ULONG*>(out[4].pValue)[1], CKM_SHA256_RSA_PKCS);
    EXPECT_EQ(*static_cast<CK_ULONG*>(out[5].pValue), CK_UNAVAILABLE_INFORMATION);
    EXPECT_EQ(out[6].pValue, nullptr);
    EXPECT_EQ(out[6].ulValueLen, 0u);

    // A CK_ULONG value of any length but 4 is malformed on Windows; a nested
    // template is not carried; a missing template with a count is refused.
    WinAttribute eightBytes[] = {{CKA_KEY_TYPE, mechanisms, 8}};
    EXPECT_EQ(converted.TakeValues(eightBytes, 1), CKR_ATTRIBUTE_VALUE_INVALID);
    WinAttribute oddArray[] = {{CKA_ALLOWED_MECHANISMS, mechanisms, 6}};
    EXPECT_EQ(converted.TakeValues(oddArray, 1), CKR_ATTRIBUTE_VALUE_INVALID);
    WinAttribute nested[] = {{CKA_WRAP_TEMPLATE, label, 3}};
    EXPECT_EQ(converted.TakeValues(nested, 1), CKR_ATTRIBUTE_TYPE_INVALID);
    EXPECT_EQ(converted.TakeValues(nullptr, 2), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(converted.TakeValues(nullptr, 0), CKR_OK);
    EXPECT_EQ(converted.data(), nullptr);
}

TEST(BridgeConversion, ReadValuesComeBackNarrowedWithWindowsLengths) {
    // Length query: no buffers, and the Linux lengths of CK_ULONG values
    // come back as Windows lengths.
    WinAttribute query[] = {{CKA_CLASS, nullptr, 0},
                            {CKA_MODULUS, nullptr, 0},
                            {CKA_ALLOWED_MECHANISMS, nullptr, 0},
                            {CKA_PRIVATE_EXPONENT, nullptr, 0}};
    LinuxTemplate converted;
    ASSERT_EQ(converted.PrepareToReceive(query, 4), CKR_OK);
    for (CK_ULONG i = 0; i < 4; ++i) EXPECT_EQ(converted.data()[i].pValue, nullptr);
    converted.data()[0].ulValueLen = sizeof(CK_ULONG);
    converted.data()[1].ulValueLen = 256;
    converted.data()[2].ulValueLen = 3 * sizeof(CK_ULONG);
    converted.data()[3].ulValueLen = CK_UNAVAILABLE_INFORMATION;
    converted.GiveBack(query);
    EXPECT_EQ(query[0].ulValueLen, 4u);
    EXPECT_EQ(query[1].ulValueLen, 256u);
    EXPECT_EQ(query[2].ulValueLen, 12u);
    EXPECT_EQ(query[3].ulValueLen, 0xFFFFFFFFu);

    // Reading: the caller's 4-byte room becomes 8 on Linux, and the value
    // comes back as 4 bytes without touching the bytes after them.
    uint8_t keyClass[8];
    std::memset(keyClass, 0xAA, sizeof(keyClass));
    uint8_t tooSmall[2] = {0x55, 0x55};
    WinUlong mechanisms[2] = {};
    uint8_t modulus[4] = {};
    WinAttribute read[] = {{CKA_CLASS, keyClass, 8},
                           {CKA_KEY_TYPE, tooSmall, 2},
                           {CKA_ALLOWED_MECHANISMS, mechanisms, 8},
                           {CKA_MODULUS, modulus, 4}};
    ASSERT_EQ(converted.PrepareToReceive(read, 4), CKR_OK);
    CK_ATTRIBUTE* out = converted.data();
    EXPECT_EQ(out[0].ulValueLen, 16u) << "room for two CK_ULONGs";
    EXPECT_EQ(out[1].ulValueLen, 0u) << "no room for one CK_ULONG";
    EXPECT_EQ(out[2].ulValueLen, 16u);
    EXPECT_EQ(out[3].pValue, modulus);
    // What the middleware answers.
    *static_cast<CK_ULONG*>(out[0].pValue) = CKO_PRIVATE_KEY;
    out[0].ulValueLen = sizeof(CK_ULONG);
    out[1].ulValueLen = CK_UNAVAILABLE_INFORMATION;
    static_cast<CK_ULONG*>(out[2].pValue)[0] = CKM_RSA_PKCS;
    static_cast<CK_ULONG*>(out[2].pValue)[1] = CKM_VENDOR_DEFINED | 7;
    out[3].ulValueLen = 3;
    converted.GiveBack(read);
    EXPECT_EQ(read[0].ulValueLen, 4u);
    EXPECT_EQ(Read32(keyClass), CKO_PRIVATE_KEY);
    EXPECT_EQ(keyClass[4], 0xAA);
    EXPECT_EQ(read[1].ulValueLen, 0xFFFFFFFFu);
    EXPECT_EQ(tooSmall[0], 0x55);
    EXPECT_EQ(read[2].ulValueLen, 8u);
    EXPECT_EQ(mechanisms[0], CKM_RSA_PKCS);
    EXPECT_EQ(mechanisms[1], CKM_VENDOR_DEFINED | 7);
    EXPECT_EQ(read[3].ulValueLen, 3u);
}

TEST(BridgeConversion, InformationStructuresArePackedWith32BitCounts) {
    static_assert(offsetof(WinTokenInfo, flags) == 96);
    static_assert(offsetof(WinTokenInfo, ulMaxSessionCount) == 100);
    static_assert(offsetof(WinTokenInfo, hardwareVersion) == 140);
    static_assert(offsetof(WinTokenInfo, utcTime) == 144);
    static_assert(offsetof(WinSlotInfo, flags) == 96);
    static_assert(offsetof(WinInfo, flags) == 34);

    CK_TOKEN_INFO token{};
    std::memset(token.label, 'L', sizeof(token.label));
    std::memset(token.serialNumber, 'S', sizeof(token.serialNumber));
    token.flags = CKF_TOKEN_INITIALIZED | CKF_USER_PIN_COUNT_LOW;
    token.ulMaxSessionCount = CK_EFFECTIVELY_INFINITE;
    token.ulSessionCount = CK_UNAVAILABLE_INFORMATION;
    token.ulMaxPinLen = 255;
    token.ulMinPinLen = 4;
    token.ulFreePrivateMemory = 0x123456789ull;
    token.hardwareVersion = {2, 6};
    std::memcpy(token.utcTime, "2024010112000000", 16);
    WinTokenInfo windows;
    std::memset(&windows, 0xCC, sizeof(windows));
    ToWindows(token, &windows);
    EXPECT_EQ(std::memcmp(windows.label, token.label, 32), 0);
    EXPECT_EQ(std::memcmp(windows.serialNumber, token.serialNumber, 16), 0);
    EXPECT_EQ(windows.flags, CKF_TOKEN_INITIALIZED | CKF_USER_PIN_COUNT_LOW);
    EXPECT_EQ(windows.ulMaxSessionCount, 0u);
    EXPECT_EQ(windows.ulSessionCount, 0xFFFFFFFFu);
    EXPECT_EQ(windows.ulMaxPinLen, 255u);
    EXPECT_EQ(windows.ulMinPinLen, 4u);
    EXPECT_EQ(windows.ulFreePrivateMemory, 0xFFFFFFFFu) << "too big reads as unavailable";
    EXPECT_EQ(windows.hardwareVersion.major, 2);
    EXPECT_EQ(windows.hardwareVersion.minor, 6);
    EXPECT_EQ(std::memcmp(windows.utcTime, "2024010112000000", 16), 0);

    CK_SLOT_INFO slot{};
    std::memset(slot.slotDescription, 'D', sizeof(slot.slotDescription));
    slot.flags = CKF_TOKEN_PRESENT | CKF_HW_SLOT;
    slot.firmwareVersion = {1, 2};
    WinSlotInfo windowsSlot;
    ToWindows(slot, &windowsSlot);
    EXPECT_EQ(std::memcmp(windowsSlot.slotDescription, slot.slotDescription, 64), 0);
    EXPECT_EQ(windowsSlot.flags, CKF_TOKEN_PRESENT | CKF_HW_SLOT);
    EXPECT_EQ(windowsSlot.firmwareVersion.minor, 2);

    CK_INFO info{};
    info.cryptokiVersion = {2, 40};
    std::memset(info.libraryDescription, 'M', sizeof(info.libraryDescription));
    WinInfo windowsInfo;
    ToWindows(info, &windowsInfo);
    EXPECT_EQ(windowsInfo.cryptokiVersion.minor, 40);
    EXPECT_EQ(windowsInfo.libraryDescription[31], 'M');

    CK_MECHANISM_INFO mechanism{512, 4096, CKF_SIGN | CKF_HW};
    WinMechanismInfo windowsMechanism;
    ToWindows(mechanism, &windowsMechanism);
    EXPECT_EQ(windowsMechanism.ulMinKeySize, 512u);
    EXPECT_EQ(windowsMechanism.ulMaxKeySize, 4096u);
    EXPECT_EQ(windowsMechanism.flags, CKF_SIGN | CKF_HW);
}

TEST(BridgeConversion, MechanismsKeepTheirParameterBytesUnlessTheyHoldCkUlongs) {
    CK_MECHANISM mechanism{};
    WinMechanism plain{CKM_RSA_PKCS, nullptr, 0};
    ASSERT_EQ(ToLinux(&plain, &mechanism), CKR_OK);
    EXPECT_EQ(mechanism.mechanism, CKM_RSA_PKCS);
    EXPECT_EQ(mechanism.pParameter, nullptr);

    uint8_t iv[16] = {};
    WinMechanism withBytes{CKM_AES_CBC, iv, 16};
    ASSERT_EQ(ToLinux(&withBytes, &mechanism), CKR_OK);
    EXPECT_EQ(mechanism.pParameter, iv);
    EXPECT_EQ(mechanism.ulParameterLen, 16u);

    uint8_t pss[12] = {};
    WinMechanism withUlongs{CKM_RSA_PKCS_PSS, pss, 12};
    EXPECT_EQ(ToLinux(&withUlongs, &mechanism), CKR_MECHANISM_PARAM_INVALID);
    EXPECT_EQ(ToLinux(nullptr, &mechanism), CKR_ARGUMENTS_BAD);
}

TEST(BridgeConversion, HandlesBeyond31BitsAreMappedNeverTruncated) {
    HandleMap map(CKR_OBJECT_HANDLE_INVALID);
    WinUlong small = 0, big = 0, highBit = 0, again = 0;
    ASSERT_EQ(map.ToWindows(7, &small), CKR_OK);
    EXPECT_EQ(small, 7u) << "small values keep their number";
    ASSERT_EQ(map.ToWindows(0x100000007ull, &big), CKR_OK);
    ASSERT_EQ(map.ToWindows(0x80000001ull, &highBit), CKR_OK);
    EXPECT_GE(big, HandleMap::kFirstMapped);
    EXPECT_GE(highBit, HandleMap::kFirstMapped);
    EXPECT_NE(big, highBit);
    EXPECT_NE(big, 7u) << "not the low 32 bits";
    ASSERT_EQ(map.ToWindows(0x100000007ull, &again), CKR_OK);
    EXPECT_EQ(again, big) << "the same handle, the same number";

    CK_ULONG back = 0;
    ASSERT_EQ(map.ToLinux(big, &back), CKR_OK);
    EXPECT_EQ(back, 0x100000007ull);
    ASSERT_EQ(map.ToLinux(highBit, &back), CKR_OK);
    EXPECT_EQ(back, 0x80000001ull);
    ASSERT_EQ(map.ToLinux(7, &back), CKR_OK);
    EXPECT_EQ(back, 7u);
    EXPECT_EQ(map.ToLinux(HandleMap::kFirstMapped + 2, &back), CKR_OBJECT_HANDLE_INVALID)
        << "a number never handed out";

    EXPECT_EQ(Widen(0xFFFFFFFFu), CK_UNAVAILABLE_INFORMATION);
    EXPECT_EQ(Narrow(CK_UNAVAILABLE_INFORMATION), 0xFFFFFFFFu);
    EXPECT_EQ(Widen(0x80000000u), 0x80000000ull);
}
