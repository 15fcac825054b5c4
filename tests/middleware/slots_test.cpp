#include <cstdlib>
#include <cstring>
#include <string>

#include "module_fixture.h"

namespace {

std::string description(CK_SLOT_ID slot) {
    CK_SLOT_INFO info{};
    EXPECT_EQ(p11().C_GetSlotInfo(slot, &info), CKR_OK);
    return std::string(reinterpret_cast<char*>(info.slotDescription), 64);
}

std::vector<CK_SLOT_ID> all_slots() {
    CK_ULONG count = 0;
    EXPECT_EQ(p11().C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
    std::vector<CK_SLOT_ID> slots(count);
    if (count > 0) {
        CK_ULONG too_small = count - 1;
        EXPECT_EQ(p11().C_GetSlotList(CK_FALSE, slots.data(), &too_small), CKR_BUFFER_TOO_SMALL);
    }
    EXPECT_EQ(p11().C_GetSlotList(CK_FALSE, slots.data(), &count), CKR_OK);
    return slots;
}

// 63 bytes, then a character of two bytes that does not fit in the 64-byte field.
const std::string kLongName = "Virtual PCD 00 00 " + std::string(45, '-') + "\xC3\xA9";

class SlotNamesTest : public ModuleTest {
    void configure() override {
        setenv("QUELMPKCS11_SLOT_NAMES", ("nothing=Unused;quelm test=" + kLongName).c_str(), 1);
    }
};

class ShowUninitialisedTest : public ModuleTest {
    void configure() override { setenv("QUELMPKCS11_SHOW_UNINITIALIZED", "1", 1); }
};

}  // namespace

TEST_F(ModuleTest, UninitialisedTokensAreHidden) {
    EXPECT_EQ(all_slots(), std::vector<CK_SLOT_ID>{slot_});
    EXPECT_EQ(description(slot_).rfind("SoftHSM slot ID", 0), 0u);
}

TEST_F(ShowUninitialisedTest, SwitchShowsUninitialisedTokens) {
    EXPECT_EQ(all_slots().size(), 2u);
}

TEST_F(SlotNamesTest, TokenLabelMapsToADescription) {
    // The character that would straddle the end of the field is left out, not split.
    EXPECT_EQ(description(slot_), kLongName.substr(0, 63) + " ");
}

TEST_F(ModuleTest, TokenSerialMapsToADescription) {
    CK_TOKEN_INFO info{};
    ASSERT_EQ(p11().C_GetTokenInfo(slot_, &info), CKR_OK);
    const std::string serial(reinterpret_cast<char*>(info.serialNumber), 16);
    ASSERT_EQ(p11().C_Finalize(nullptr), CKR_OK);
    setenv("QUELMPKCS11_SLOT_NAMES", (" " + serial + " =Reader One").c_str(), 1);
    ASSERT_EQ(p11().C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(description(slot_), "Reader One" + std::string(54, ' '));
}
