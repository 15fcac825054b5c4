// The Win32 card selection dialog, run for real under Wine and Xvfb:
// SelectCard opens dialog 105, and a second thread finds it by its title and
// answers with the keyboard, as a user would. Wine's winscard is a stub, so
// the runner loads tests/support/fake_winscard in its place, which lists
// three fixed readers.
#include <gtest/gtest.h>

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "provider/card_selection.h"
#include "provider/ncrypt_provider.h"
#include "windows/dialog_screen.h"

namespace {

using dialog_screen::TestDesktop;
using dialog_screen::WindowsPath;

constexpr int kReaders = 1005;

// The second thread: waits for the dialog, then plays a script on it. A
// failed step fails the test and cancels the dialog, so SelectCard returns.
class SelectionDriver {
public:
    using Script = std::function<void(SelectionDriver&)>;

    explicit SelectionDriver(Script script)
        : dialogThread_(GetCurrentThreadId()), thread_([this, script] { Run(script); }) {}
    ~SelectionDriver() { thread_.join(); }
    void SelectCardReturned() { returned_ = true; }

    HWND dialog() const { return dialog_; }
    HWND Item(int id) const { return GetDlgItem(dialog_, id); }

    std::vector<std::wstring> Readers() const {
        std::vector<std::wstring> names;
        const LRESULT count = SendMessageW(Item(kReaders), CB_GETCOUNT, 0, 0);
        for (LRESULT i = 0; i < count; ++i) {
            wchar_t name[256] = {};
            SendMessageW(Item(kReaders), CB_GETLBTEXT, static_cast<WPARAM>(i),
                         reinterpret_cast<LPARAM>(name));
            names.push_back(name);
        }
        return names;
    }

    void WaitFor(const std::string& what, const std::function<bool()>& condition,
                 std::chrono::seconds timeout = std::chrono::seconds(10)) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline)
                throw std::runtime_error("timed out waiting for " + what);
            Sleep(10);
        }
    }

    void Press(WORD key) {
        INPUT inputs[2] = {};
        for (INPUT& in : inputs) {
            in.type = INPUT_KEYBOARD;
            in.ki.wVk = key;
        }
        inputs[1].ki.dwFlags = KEYEVENTF_KEYUP;
        SetForegroundWindow(dialog_);
        if (SendInput(2, inputs, sizeof(INPUT)) != 2) throw std::runtime_error("SendInput failed");
    }

private:
    void Run(const Script& script) {
        try {
            if (!SetThreadDesktop(TestDesktop()))
                throw std::runtime_error("the driver cannot join the dialog's desktop");
            WaitFor(
                "a visible window titled \"Corvanta KSP\"",
                [&] {
                    dialog_ = FindWindowW(L"#32770", L"Corvanta KSP");
                    return dialog_ && IsWindowVisible(dialog_);
                },
                std::chrono::seconds(40));
            AttachThreadInput(GetCurrentThreadId(), dialogThread_, TRUE);
            // The default focus: the first control with a tab stop, Bueno.
            WaitFor("Bueno to have the keyboard", [&] {
                GUITHREADINFO info{};
                info.cbSize = sizeof info;
                return GetGUIThreadInfo(dialogThread_, &info) && info.hwndActive == dialog_ &&
                       info.hwndFocus == Item(IDOK);
            });
            script(*this);
            WaitFor("the dialog to close", [&] { return !IsWindow(dialog_); });
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
            while (!returned_) {
                EnumThreadWindows(
                    dialogThread_,
                    [](HWND window, LPARAM) {
                        PostMessageW(window, WM_COMMAND, IDCANCEL, 0);
                        return TRUE;
                    },
                    0);
                Sleep(50);
            }
        }
    }

    DWORD dialogThread_;
    HWND dialog_ = nullptr;
    std::atomic<bool> returned_{false};
    std::thread thread_;
};

class Win32CardSelection : public ::testing::Test {
protected:
    void SetUp() override {
        char display[64] = {};
        ASSERT_GT(GetEnvironmentVariableA("DISPLAY", display, sizeof display), 0u)
            << "no X display: run the Windows tests under xvfb-run, as scripts/test.sh does";
        ASSERT_TRUE(SetThreadDesktop(TestDesktop())) << "no desktop for the dialog";
    }

    int32_t SelectWith(SelectionDriver::Script script, std::wstring* chosen) {
        wchar_t buffer[kSelectedReaderChars] = {};
        int32_t result;
        {
            SelectionDriver driver(std::move(script));
            result = SelectCard(buffer);
            driver.SelectCardReturned();
        }
        *chosen = buffer;
        return result;
    }
};

TEST_F(Win32CardSelection, ShowsTheSortedReadersAndEnterConfirmsThePreselectedOne) {
    std::wstring chosen;
    int32_t result = SelectWith(
        [](SelectionDriver& d) {
            const LONG_PTR style = GetWindowLongPtrW(d.dialog(), GWL_STYLE);
            EXPECT_FALSE(style & WS_SYSMENU) << "no close box";
            EXPECT_TRUE(GetWindowLongPtrW(d.dialog(), GWL_EXSTYLE) & WS_EX_TOPMOST);
            EXPECT_NE(SendMessageW(d.dialog(), WM_GETICON, ICON_SMALL, 0), 0);
            EXPECT_EQ(d.Readers(), (std::vector<std::wstring>{L"alpha reader", L"Beta Reader",
                                                              L"Virtual PCD 00 01"}));
            EXPECT_EQ(SendMessageW(d.Item(kReaders), CB_GETCURSEL, 0, 0), 0);

            // Painted and settled: two captures alike.
            dialog_screen::Image shot, previous;
            d.WaitFor("the dialog on screen", [&] {
                RedrawWindow(d.dialog(), nullptr, nullptr,
                             RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW);
                previous = std::move(shot);
                shot = dialog_screen::Capture(d.dialog());
                return !shot.rgb.empty() && shot.rgb == previous.rgb;
            });
            const std::string folder = QUELMKSP_ARTIFACT_DIR;
            std::filesystem::create_directories(WindowsPath(folder));
            dialog_screen::SavePng(shot, WindowsPath(folder + "/card_selection_dialog.png"));
            d.Press(VK_RETURN);
        },
        &chosen);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(chosen, L"alpha reader");
}

TEST_F(Win32CardSelection, EscapeCancels) {
    std::wstring chosen;
    int32_t result = SelectWith([](SelectionDriver& d) { d.Press(VK_ESCAPE); }, &chosen);
    EXPECT_EQ(result, static_cast<int32_t>(SCARD_E_CANCELLED_BY_USER));
    EXPECT_EQ(chosen, L"");
}

// The shipped library carries template 105 as the selection needs it.
TEST(CardSelectionResource, Dialog105IsLaidOutAsDesigned) {
    HMODULE module = LoadLibraryExW(WindowsPath(QUELMKSP_DLL_PATH).c_str(), nullptr,
                                    LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
    ASSERT_NE(module, nullptr) << "cannot open " << QUELMKSP_DLL_PATH;
    // 5: RT_DIALOG, whose macro is the narrow form here.
    HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(105), MAKEINTRESOURCEW(5));
    ASSERT_NE(found, nullptr);
    const char* data = static_cast<const char*>(LockResource(LoadResource(module, found)));
    const std::string bytes(data, SizeofResource(module, found));
    FreeLibrary(module);

    size_t at = 0;
    auto get16 = [&] {
        uint16_t v = 0;
        if (at + 2 > bytes.size()) throw std::out_of_range("past the end");
        std::memcpy(&v, bytes.data() + at, 2);
        at += 2;
        return v;
    };
    auto get32 = [&] { return get16() | (uint32_t{get16()} << 16); };
    auto text = [&] {
        std::wstring s;
        uint16_t first = get16();
        if (first == 0xFFFF) return L"#" + std::to_wstring(get16());
        for (; first; first = get16()) s.push_back(static_cast<wchar_t>(first));
        return s;
    };
    ASSERT_EQ(get16(), 1);
    ASSERT_EQ(get16(), 0xFFFF);
    get32();
    EXPECT_EQ(get32(), 0x8u) << "WS_EX_TOPMOST";
    EXPECT_EQ(get32(), 0x90C000C8u);
    ASSERT_EQ(get16(), 4) << "controls";
    EXPECT_EQ(get32(), 0u) << "at 0, 0";
    EXPECT_EQ(get16(), 250);
    EXPECT_EQ(get16(), 55);
    EXPECT_EQ(text(), L"");
    EXPECT_EQ(text(), L"");
    EXPECT_EQ(text(), L"Corvanta KSP");
    EXPECT_EQ(get16(), 8);
    EXPECT_EQ(get16(), 400);
    EXPECT_EQ(get16(), 0x0100) << "not italic, character set 1";
    EXPECT_EQ(text(), L"MS Shell Dlg");

    struct Control {
        int32_t id;
        std::wstring kind, caption;
        std::vector<int> box;
        uint32_t style;
        bool operator==(const Control&) const = default;
    };
    const std::vector<Control> expected = {
        {1, L"#128", L"Bueno", {72, 34, 50, 14}, 0x50010001},
        {2, L"#128", L"Cancelar", {127, 34, 50, 14}, 0x50010000},
        {1005, L"#133", L"", {7, 19, 236, 30}, 0x50210103},
        {-1, L"#130", L"Por favor seleccione una tarjeta inteligente", {7, 7, 236, 8}, 0x50020001},
    };
    for (const Control& want : expected) {
        at = (at + 3) & ~size_t{3};
        Control got;
        get32();
        EXPECT_EQ(get32(), 0u);
        got.style = get32();
        for (int i = 0; i < 4; ++i) got.box.push_back(static_cast<int16_t>(get16()));
        got.id = static_cast<int32_t>(get32());
        got.kind = text();
        got.caption = text();
        at += get16();
        EXPECT_TRUE(got == want) << "control " << want.id << ": style 0x" << std::hex << got.style;
    }
}

}  // namespace
