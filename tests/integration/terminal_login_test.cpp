#include <gtest/gtest.h>
#include <unistd.h>

#include "pin/login.h"
#include "support/pin_dialog_fixture.h"
#include "ui/terminal_toolkit.h"

TEST_F(PinDialog, TheTerminalDialogTakesKeystrokesFromTheNamedInput) {
    SetDialogToolkitFactory(
        []() -> std::unique_ptr<DialogToolkit> { return std::make_unique<TerminalToolkit>(); });
    int input[2];
    ASSERT_EQ(pipe(input), 0);
    const char keys[] =
        "0000\n12xy\b\x7f"
        "34\n";
    ASSERT_EQ(write(input[1], keys, sizeof keys - 1), static_cast<ssize_t>(sizeof keys - 1));
    close(input[1]);
    setenv("QUELMKSP_PIN_INPUT", std::to_string(input[0]).c_str(), 1);
    EXPECT_EQ(Login(&Provider()), 0) << "wrong, then right after two corrections";
    close(input[0]);
    unsetenv("QUELMKSP_PIN_INPUT");
    EXPECT_EQ(g_pPinManager->pool.size(), 1u);
    NCRYPT_PROV_HANDLE other = OpenAnother();
    EXPECT_EQ(Login(Record(other)), 0) << "cached: no input needed";
    TearDownOthers();

    std::string path = dir_ / "keys";
    WriteFile(path, "0000\n0000\n0000\n1234\n");
    setenv("QUELMKSP_PIN_INPUT", path.c_str(), 1);
    delete g_pPinManager;
    g_pPinManager = new PinManager();
    // Closing every session of the token logs it out.
    table_->FreeProvider(provider_);
    ASSERT_EQ(table_->OpenProvider(&provider_, WIDE("Velmora KSP v4.5"), NCRYPT_SILENT_FLAG), 0);
    EXPECT_EQ(Login(&Provider()), SCARD_W_CANCELLED_BY_USER)
        << "locked after three, and the input ends";
    unsetenv("QUELMKSP_PIN_INPUT");
}
