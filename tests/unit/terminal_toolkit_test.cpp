#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "ui/terminal_toolkit.h"

namespace {

// Dialog logic reduced to what the terminal must carry: Acceso from four
// characters on, and an accepted PIN of "1234".
class FourDigitDialog : public DialogEvents {
public:
    explicit FourDigitDialog(DialogToolkit& ui) : ui_(ui) {}
    int DialogTemplate() const override { return dialog_ids::kTemplate; }
    void OnInitDialog() override { ui_.SetTitle(WIDE("Introduzca el PIN paraTest")); }
    void OnEnChangePin() override {
        ui_.EnableControl(dialog_ids::kOk, ui_.ControlTextLength(dialog_ids::kPin) >= 4);
    }
    void OnBnClickedOk() override {
        auto plain = ui_.PinCells().GetPlainText();
        bool right = platform::WideView(plain.get()) == WIDE("1234");
        if (!right) ui_.SetControlText(dialog_ids::kStatus, WIDE("PIN incorrecto"));
        if (right) ui_.End(kIdOk);
    }
    void OnBnClickedCancel() override { ui_.End(kIdCancel); }

private:
    DialogToolkit& ui_;
};

std::string ReadUntil(int fd, const std::string& marker) {
    std::string seen;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    char buffer[256];
    while (seen.find(marker) == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        ssize_t got = read(fd, buffer, sizeof buffer);
        if (got <= 0) break;
        seen.append(buffer, static_cast<size_t>(got));
    }
    return seen;
}

}  // namespace

TEST(TerminalToolkit, TypesIntoTheCellsFromARealTerminalWithoutEcho) {
    unsetenv("QUELMKSP_PIN_INPUT");
    int master = -1;
    pid_t child = forkpty(&master, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
        TerminalToolkit ui;
        FourDigitDialog dialog(ui);
        _exit(static_cast<int>(ui.RunModal(dialog, 0)));
    }
    std::string screen = ReadUntil(master, "PIN: ");
    EXPECT_NE(screen.find("Introduzca el PIN paraTest"), std::string::npos) << screen;
    ASSERT_EQ(write(master, "12\r", 3), 3);
    ASSERT_EQ(write(master,
                    "x\x7f"
                    "34\r",
                    5),
              5);
    screen = ReadUntil(master, "**\r\n");
    int status = 0;
    waitpid(child, &status, 0);
    close(master);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), kIdOk) << "Enter pressed Acceso once four were typed";
    EXPECT_EQ(screen.find("12"), std::string::npos) << "no echo: " << screen;
    EXPECT_NE(screen.find("***\b \b**"), std::string::npos) << screen;
}

TEST(TerminalToolkit, NamedInputEndsInCancelAndNoInputMeansNoDialog) {
    int keys[2];
    ASSERT_EQ(pipe(keys), 0);
    ASSERT_EQ(write(keys[1], "99", 2), 2);
    close(keys[1]);
    setenv("QUELMKSP_PIN_INPUT", std::to_string(keys[0]).c_str(), 1);
    {
        TerminalToolkit ui;
        FourDigitDialog dialog(ui);
        EXPECT_EQ(ui.RunModal(dialog, 0), kIdCancel) << "the end of the input cancels";
    }
    close(keys[0]);
    setenv("QUELMKSP_PIN_INPUT", "/nonexistent/keys", 1);
    TerminalToolkit ui;
    FourDigitDialog dialog(ui);
    EXPECT_EQ(ui.RunModal(dialog, 0), kDialogNotCreated);
    unsetenv("QUELMKSP_PIN_INPUT");
}
