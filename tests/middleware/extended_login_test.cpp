#include <cstdlib>
#include <cstring>

#include "module_fixture.h"

namespace {

constexpr CK_FLAGS kPinFlags =
    CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED;

class ExtendedLoginTest : public ModuleTest {
protected:
    CK_RV so_login() {
        return p11().C_Login(session_, CKU_SO, (CK_UTF8CHAR_PTR)SoftHsmToken::kSoPin,
                             std::strlen(SoftHsmToken::kSoPin));
    }
    void lock_the_pin() {
        ASSERT_EQ(extended_login("0000"), 2u);
        ASSERT_EQ(extended_login("0000"), 1u);
        ASSERT_EQ(extended_login("0000"), CKR_PIN_LOCKED);
    }
};

}  // namespace

TEST_F(ExtendedLoginTest, WrongPinsCountDownToLockedAndTheFlagsFollow) {
    EXPECT_EQ(token_flags() & kPinFlags, 0u);
    EXPECT_EQ(extended_login("0000"), 2u);
    EXPECT_EQ(token_flags() & kPinFlags, CKF_USER_PIN_COUNT_LOW);
    EXPECT_EQ(extended_login("0000"), 1u);
    EXPECT_EQ(token_flags() & kPinFlags, CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY);
    EXPECT_EQ(extended_login("0000"), CKR_PIN_LOCKED);
    EXPECT_EQ(token_flags() & kPinFlags, CKF_USER_PIN_LOCKED);

    EXPECT_EQ(extended_login(SoftHsmToken::kUserPin), CKR_PIN_LOCKED);
    EXPECT_EQ(login(SoftHsmToken::kUserPin), CKR_PIN_LOCKED);
    CK_SESSION_INFO info{};
    ASSERT_EQ(p11().C_GetSessionInfo(session_, &info), CKR_OK);
    EXPECT_EQ(info.state, CKS_RW_PUBLIC_SESSION);
}

TEST_F(ExtendedLoginTest, RightPinResetsAndAlreadyLoggedInIsNoTry) {
    EXPECT_EQ(extended_login("0000"), 2u);
    EXPECT_EQ(extended_login(SoftHsmToken::kUserPin), CKR_OK);
    EXPECT_EQ(token_flags() & kPinFlags, 0u);
    EXPECT_EQ(extended_login(SoftHsmToken::kUserPin), CKR_USER_ALREADY_LOGGED_IN);
    EXPECT_EQ(extended_login("0000"), CKR_USER_ALREADY_LOGGED_IN);
    ASSERT_EQ(p11().C_Logout(session_), CKR_OK);
    EXPECT_EQ(extended_login("0000"), 2u);
}

TEST_F(ExtendedLoginTest, StandardLoginSharesTheCounter) {
    EXPECT_EQ(login("0000"), CKR_PIN_INCORRECT);
    EXPECT_EQ(extended_login("0000"), 1u);
    EXPECT_EQ(login("0000"), CKR_PIN_LOCKED);
    EXPECT_EQ(extended_login(SoftHsmToken::kUserPin), CKR_PIN_LOCKED);
}

TEST_F(ExtendedLoginTest, SetPinWithAWrongOldPinCountsAsATry) {
    const char* new_pin = "5678";
    EXPECT_EQ(p11().C_SetPIN(session_, (CK_UTF8CHAR_PTR) "0000", 4, (CK_UTF8CHAR_PTR)new_pin, 4),
              CKR_PIN_INCORRECT);
    EXPECT_EQ(extended_login("0000"), 1u);
}

TEST_F(ExtendedLoginTest, SoInitPinUnlocks) {
    lock_the_pin();
    ASSERT_EQ(so_login(), CKR_OK);
    ASSERT_EQ(p11().C_InitPIN(session_, (CK_UTF8CHAR_PTR) "4321", 4), CKR_OK);
    ASSERT_EQ(p11().C_Logout(session_), CKR_OK);
    EXPECT_EQ(token_flags() & kPinFlags, 0u);
    EXPECT_EQ(extended_login(SoftHsmToken::kUserPin), 2u);
    EXPECT_EQ(extended_login("4321"), CKR_OK);
}

TEST_F(ExtendedLoginTest, AdminToolUnlocksAndCounterIsSharedBetweenProcesses) {
    EXPECT_EQ(extended_login("0000"), 2u);
    EXPECT_EQ(run_probe("login 0000"), "rv=0x1\n");
    EXPECT_EQ(extended_login("0000"), CKR_PIN_LOCKED);
    EXPECT_EQ(run_probe("login 1234"), "rv=0xa4\n");

    CK_TOKEN_INFO info{};
    ASSERT_EQ(p11().C_GetTokenInfo(slot_, &info), CKR_OK);
    const std::string serial(reinterpret_cast<char*>(info.serialNumber), 16);
    const std::string status = run_command(std::string(QUELMPKCS11_TEST_ADMIN) + " status");
    EXPECT_NE(status.find(serial + "\t3 wrong tries, locked"), std::string::npos) << status;
    int exit_status = -1;
    run_command(std::string(QUELMPKCS11_TEST_ADMIN) + " unlock --serial " + serial, &exit_status);
    EXPECT_EQ(exit_status, 0);
    EXPECT_EQ(run_probe("login 1234"), "rv=0x0\n");
    EXPECT_EQ(extended_login(SoftHsmToken::kUserPin), CKR_OK);
}

class LargestMaxTriesTest : public ExtendedLoginTest {
    void configure() override { setenv("QUELMPKCS11_MAX_TRIES", "99", 1); }
};

TEST_F(LargestMaxTriesTest, MaximumIsCappedSoThatTriesLeftStayBelowFifteen) {
    EXPECT_EQ(extended_login("0000"), 14u);
}

namespace {

// A counter store that cannot be written: a file where its folder should be.
class UnwritableCounterTest : public ModuleTest {
    void configure() override { setenv("QUELMPKCS11_STATE", "/dev/null/state", 1); }
};

}  // namespace

TEST_F(UnwritableCounterTest, NoFailureLooksLikeTriesLeft) {
    const CK_RV right = extended_login(SoftHsmToken::kUserPin);
    EXPECT_EQ(right, CKR_DEVICE_ERROR) << "not 6, which would read as six tries left";
    EXPECT_EQ(extended_login("0000"), CKR_DEVICE_ERROR);
    EXPECT_EQ(login(SoftHsmToken::kUserPin), CKR_FUNCTION_FAILED)
        << "the standard entry has no tries to confuse it with";
    EXPECT_EQ(middleware().ExtendedLogin(CK_INVALID_HANDLE, CKU_USER, nullptr, 0),
              CKR_SESSION_HANDLE_INVALID);
}
