#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "pin/login.h"
#include "support/pin_dialog_fixture.h"

namespace {

using platform::WideString;

const WideString kWrongTwoLeft = WIDE("PIN incorrecto. Faltan 2 reintentos");

}  // namespace

TEST_F(PinDialog, AccesoNeedsTheShortestPinAndAnAcceptedPinIsCached) {
    script_->Type(WIDE("123")).Type(WIDE("4")).Backspace().Type(WIDE("4")).ClickOk();
    ASSERT_EQ(Login(&Provider()), 0);
    EXPECT_EQ(script_->title, WIDE("Introduzca el PIN paraToken One"));
    ASSERT_EQ(script_->snapshots.size(), 5u);
    EXPECT_FALSE(script_->snapshots[0].okEnabled);
    EXPECT_TRUE(script_->snapshots[1].okEnabled);
    EXPECT_FALSE(script_->snapshots[2].okEnabled);
    EXPECT_EQ(script_->snapshots[3].pinText, WIDE("****")) << "the field shows asterisks only";
    EXPECT_EQ(g_pPinManager->pool.size(), 1u);

    // Another provider on the same token logs in with the cached PIN.
    NCRYPT_PROV_HANDLE other = OpenAnother();
    EXPECT_EQ(Login(Record(other)), 0);
    EXPECT_EQ(script_->runs, 1) << "no second dialog";
    TearDownOthers();
}

TEST_F(PinDialog, AWrongPinShowsTheTriesLeftAndLetsTheUserTryAgain) {
    script_->Type(WIDE("9999")).ClickOk().Type(WIDE("1234")).ClickOk();
    ASSERT_EQ(Login(&Provider()), 0);
    const DialogSnapshot& wrong = script_->snapshots[1];
    EXPECT_EQ(wrong.status, kWrongTwoLeft);
    EXPECT_EQ(wrong.pinText, WIDE("")) << "the field is emptied";
    EXPECT_FALSE(wrong.okEnabled);
    EXPECT_NE(TokenLog().find("PIN incorrecto. Faltan 2 reintentos"), std::string::npos);
}

TEST_F(PinDialog, ALockedTokenLeavesOnlyCancel) {
    script_->Type(WIDE("0000"))
        .ClickOk()
        .Type(WIDE("0000"))
        .ClickOk()
        .Type(WIDE("0000"))
        .ClickOk()
        .Type(WIDE("1234"));
    EXPECT_EQ(Login(&Provider()), SCARD_W_CANCELLED_BY_USER);
    const DialogSnapshot& locked = script_->snapshots[5];
    EXPECT_EQ(locked.status, WIDE("El PIN est\u00e1 bloqueado"));
    EXPECT_FALSE(locked.okEnabled);
    EXPECT_FALSE(locked.pinEnabled);
    EXPECT_EQ(script_->snapshots[6].pinText, locked.pinText)
        << "typing into a locked field does nothing";
    EXPECT_EQ(g_pPinManager->pool.size(), 0u);
}

TEST_F(PinDialog, CancelAndCachingOffAndAnAlreadyLoggedInToken) {
    script_->Type(WIDE("12")).ClickCancel();
    EXPECT_EQ(Login(&Provider()), SCARD_W_CANCELLED_BY_USER);
    EXPECT_NE(TokenLog().find("SCARD_W_CANCELLED_BY_USER: PIN submission has been cancelled by the "
                              "user."),
              std::string::npos);

    RegistryFile noCaching(dir_, Aliases() + RegistryFile::kSdkKey + "\"PINCACHE\"=\"00000000\"\n");
    NewScript().Type(WIDE("1234")).ClickOk();
    EXPECT_EQ(Login(&Provider()), 0);
    EXPECT_EQ(g_pPinManager->pool.size(), 0u) << "caching switched off";
    EXPECT_NE(TokenLog().find("PIN caching is not allowed"), std::string::npos);

    // The token is logged in now: the dialog's login finds it so.
    NewScript().Type(WIDE("5555")).ClickOk();
    EXPECT_EQ(Login(&Provider()), 0);
    EXPECT_NE(TokenLog().find("User is already logged in"), std::string::npos);
}

TEST_F(PinDialog, OnlyOneDialogOpensAtATime) {
    NCRYPT_PROV_HANDLE other = OpenAnother();
    SECURITY_STATUS second = 0;
    script_->Type(WIDE("12")).Then([&] {
        std::thread([&] { second = Login(Record(other)); }).join();
    });
    script_->Type(WIDE("34")).ClickOk();
    EXPECT_EQ(Login(&Provider()), 0);
    EXPECT_EQ(second, SCARD_W_CANCELLED_BY_USER) << "refused while the first was open";
    EXPECT_EQ(script_->runs, 2);
    EXPECT_EQ(g_pPinManager->pinCacheLock, 0u);
    TearDownOthers();
}

namespace {

std::atomic<int> g_toolkitsMade{0};

std::unique_ptr<DialogToolkit> CountingNoToolkit() {
    ++g_toolkitsMade;
    return nullptr;
}

}  // namespace

TEST_F(PinDialog, TheDialogsToolkitIsMadeOnlyWhenTheDialogIsShown) {
    script_->Type(WIDE("1234")).ClickOk();
    ASSERT_EQ(Login(&Provider()), 0);
    ASSERT_EQ(script_->runs, 1);

    g_toolkitsMade = 0;
    SetDialogToolkitFactory(&CountingNoToolkit);
    ClearLog();
    EXPECT_EQ(Login(&Provider()), 0) << "from the cache";
    EXPECT_EQ(g_toolkitsMade, 0);
    std::vector<std::string> lines = LogLines();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "Deleting Login Dialog"), lines.end());

    // With nothing cached the dialog is needed, and without a toolkit it
    // cannot be shown.
    delete g_pPinManager;
    g_pPinManager = new PinManager();
    ClearLog();
    EXPECT_EQ(Login(&Provider()), NTE_NOT_FOUND);
    EXPECT_EQ(g_toolkitsMade, 1);
    lines = LogLines();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "DoModal failed to create Dialog"),
              lines.end());
}
