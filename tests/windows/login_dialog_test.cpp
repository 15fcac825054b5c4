// The Win32 PIN dialog, run for real: Login on a SoftHSM2 token behind the
// Wine bridge opens dialog 121, and a second thread finds it by its title,
// types into the PIN field with synthesised keyboard and mouse input and
// presses the buttons, as a user would. Needs an X display (Xvfb).
#include <gtest/gtest.h>

// Lean, as the provider's own headers include it, so that the two agree.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "pin/login.h"
#include "pin/pin_manager.h"
#include "provider/ncrypt_provider.h"
#include "provider/provider_context.h"
#include "support/fresh_provider_state.h"
#include "support/softhsm_tokens.h"
#include "windows/dialog_screen.h"

namespace {

using dialog_screen::Capture;
using dialog_screen::Image;
using dialog_screen::SavePng;
using dialog_screen::TestDesktop;
using dialog_screen::WindowsPath;

constexpr int kPin = 1001, kStatus = 1004;
const std::wstring kTitle = L"Introduzca el PIN paraTarjeta QA";

// The provider's registered name, "Velmora KSP v4.5", as REG_MULTI_SZ.
const std::string kAliases =
    std::string(RegistryFile::kProviderKey) +
    "\"Aliases\"=hex(7):56,00,65,00,6c,00,6d,00,6f,00,72,00,61,00,20,00,4b,00,53,00,50,00,20,"
    "00,76,00,34,00,2e,00,35,00,00,00,00,00\n";

// The second thread: finds the dialog, then plays a script on it. A failed
// step is a test failure, and the dialog is cancelled so that Login returns.
class DialogDriver {
public:
    using Script = std::function<void(DialogDriver&)>;

    explicit DialogDriver(Script script)
        : dialogThread_(GetCurrentThreadId()), thread_([this, script] { Run(script); }) {}
    ~DialogDriver() { thread_.join(); }

    HWND dialog() const { return dialog_; }
    HWND Item(int id) const { return GetDlgItem(dialog_, id); }

    std::wstring Text(HWND window) const {
        wchar_t text[256] = {};
        GetWindowTextW(window, text, 256);
        return text;
    }
    std::wstring Text(int id) const { return Text(Item(id)); }
    std::pair<DWORD, DWORD> Selection() const {
        DWORD start = 0, end = 0;
        SendMessageW(Item(kPin), EM_GETSEL, reinterpret_cast<WPARAM>(&start),
                     reinterpret_cast<LPARAM>(&end));
        return {start, end};
    }

    // Login has returned: a dialog still to be cancelled will not come.
    void LoginReturned() { loginReturned_ = true; }

    void WaitFor(const std::string& what, const std::function<bool()>& condition,
                 std::chrono::seconds timeout = std::chrono::seconds(10)) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline)
                throw std::runtime_error("timed out waiting for " + what);
            Sleep(10);
        }
    }

    // Types characters at the caret; the field then holds `total` characters.
    void Type(const std::wstring& characters, size_t total) {
        std::vector<INPUT> inputs;
        for (wchar_t c : characters)
            for (DWORD up : {0ul, static_cast<DWORD>(KEYEVENTF_KEYUP)}) {
                INPUT in{};
                in.type = INPUT_KEYBOARD;
                in.ki.wScan = c;
                in.ki.dwFlags = KEYEVENTF_UNICODE | up;
                inputs.push_back(in);
            }
        Send(inputs);
        WaitFor("the PIN field to hold " + std::to_string(total) + " characters",
                [&] { return Text(kPin).size() == total; });
    }

    void Press(WORD key, bool shift = false) {
        std::vector<INPUT> inputs;
        auto add = [&](WORD vk, DWORD flags) {
            INPUT in{};
            in.type = INPUT_KEYBOARD;
            in.ki.wVk = vk;
            in.ki.dwFlags = flags;
            inputs.push_back(in);
        };
        if (shift) add(VK_SHIFT, 0);
        const bool extended = key == VK_HOME || key == VK_END || key == VK_LEFT ||
                              key == VK_RIGHT || key == VK_DELETE;
        add(key, extended ? KEYEVENTF_EXTENDEDKEY : 0);
        add(key, (extended ? KEYEVENTF_EXTENDEDKEY : 0) | KEYEVENTF_KEYUP);
        if (shift) add(VK_SHIFT, KEYEVENTF_KEYUP);
        Send(inputs);
    }

    // Moves the caret with a key and waits until it has arrived.
    void MoveCaret(WORD key, DWORD expected) {
        Press(key);
        WaitFor("the caret at " + std::to_string(expected),
                [&] { return Selection() == std::make_pair(expected, expected); });
    }

    // A mouse event at a point of the window (fractionX of its width, half
    // its height), moving there first.
    static INPUT MouseAt(HWND window, double fractionX, DWORD flags) {
        RECT r;
        GetWindowRect(window, &r);
        const int x = r.left + static_cast<int>((r.right - r.left) * fractionX);
        const int y = (r.top + r.bottom) / 2;
        INPUT in{};
        in.type = INPUT_MOUSE;
        in.mi.dx = MulDiv(x, 65535, GetSystemMetrics(SM_CXSCREEN) - 1);
        in.mi.dy = MulDiv(y, 65535, GetSystemMetrics(SM_CYSCREEN) - 1);
        in.mi.dwFlags = MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE | flags;
        return in;
    }
    void Mouse(HWND window, double fractionX, DWORD flags) {
        Send({MouseAt(window, fractionX, flags)});
    }
    void Click(int id) {
        Send({MouseAt(Item(id), 0.5, 0), MouseAt(Item(id), 0.5, MOUSEEVENTF_LEFTDOWN),
              MouseAt(Item(id), 0.5, MOUSEEVENTF_LEFTUP)});
    }

private:
    void Send(std::vector<INPUT> inputs) {
        SetForegroundWindow(dialog_);
        SetActiveWindow(dialog_);
        if (SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT)) !=
            inputs.size())
            throw std::runtime_error("SendInput failed");
    }

    void Run(const Script& script) {
        try {
            if (!SetThreadDesktop(TestDesktop()))
                throw std::runtime_error("the driver cannot join the dialog's desktop: error " +
                                         std::to_string(GetLastError()));
            try {
                // The first dialog of a run waits for Wine's desktop process.
                WaitFor(
                    "a visible window titled \"Introduzca el PIN paraTarjeta QA\"",
                    [&] {
                        dialog_ = FindWindowW(L"#32770", kTitle.c_str());
                        return dialog_ && IsWindowVisible(dialog_);
                    },
                    std::chrono::seconds(40));
            } catch (const std::exception& error) {
                throw std::runtime_error(error.what() + WindowsOfTheDialogThread());
            }
            // One input state with the dialog's thread: the keyboard focus
            // and the foreground window can then be set from here.
            AttachThreadInput(GetCurrentThreadId(), dialogThread_, TRUE);
            // Input sent before the dialog is active would go elsewhere.
            WaitFor("the PIN field to have the keyboard", [&] {
                GUITHREADINFO info{};
                info.cbSize = sizeof info;
                return GetGUIThreadInfo(dialogThread_, &info) && info.hwndActive == dialog_ &&
                       info.hwndFocus == Item(kPin);
            });
            script(*this);
            WaitFor("the dialog to close", [&] { return !IsWindow(dialog_); });
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
            // Until Login returns: the dialog may still be on its way.
            while (!loginReturned_) {
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

    // What the dialog's thread shows instead, for the failure message.
    std::string WindowsOfTheDialogThread() const {
        std::string list;
        EnumThreadWindows(
            dialogThread_,
            [](HWND window, LPARAM out) {
                wchar_t title[128] = {}, name[64] = {};
                GetWindowTextW(window, title, 128);
                GetClassNameW(window, name, 64);
                auto& text = *reinterpret_cast<std::string*>(out);
                text += "; window class ";
                for (wchar_t c : std::wstring(name) + L" title " + title) text.push_back(char(c));
                text += IsWindowVisible(window) ? " (visible)" : " (hidden)";
                return TRUE;
            },
            reinterpret_cast<LPARAM>(&list));
        return list.empty() ? "; the dialog's thread has no window" : list;
    }

    DWORD dialogThread_;
    HWND dialog_ = nullptr;
    std::atomic<bool> loginReturned_{false};
    std::thread thread_;
};

bool OnlyAsterisks(const std::wstring& text) {
    return text.find_first_not_of(L'*') == std::wstring::npos;
}

class Win32PinDialog : public ::testing::Test {
protected:
    // maxTries: the middleware's tries before the PIN locks.
    void Open(int maxTries) {
        char display[64] = {};
        ASSERT_GT(GetEnvironmentVariableA("DISPLAY", display, sizeof display), 0u)
            << "no X display: run the Windows tests under xvfb-run, as scripts/test.sh does";
        ASSERT_TRUE(SetThreadDesktop(TestDesktop())) << "no desktop for the dialog";
        tokens_.emplace(dir_, std::vector<std::string>{"Tarjeta QA"});
        test_system::SetVariable("QUELMPKCS11_MAX_TRIES", std::to_string(maxTries));
        state_.emplace(dir_, kAliases, QUELMPKCS11_PATH);
        ASSERT_NE(g_pCryptoki, nullptr) << g_bindingError;
        NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
        ASSERT_EQ(GetKeyStorageInterface(L"Velmora KSP v4.5", &table, 0), 0);
        ASSERT_EQ(table->OpenProvider(&handle_, L"Velmora KSP v4.5", 0), 0);
        table_ = table;
    }
    void TearDown() override {
        if (handle_) table_->FreeProvider(handle_);
        test_system::UnsetVariable("QUELMPKCS11_MAX_TRIES");
    }

    // Runs Login on this thread while the script works the dialog.
    SECURITY_STATUS LoginWith(DialogDriver::Script script) {
        SECURITY_STATUS status;
        {
            DialogDriver driver(std::move(script));
            status = Login(reinterpret_cast<QUELMKSP_PROVIDER*>(handle_));
            driver.LoginReturned();
        }
        return status;
    }

    bool LoggedIn() {
        CK_SESSION_INFO info{};
        auto* provider = reinterpret_cast<QUELMKSP_PROVIDER*>(handle_);
        return g_pCryptoki->functions()->C_GetSessionInfo(provider->hSession, &info) == CKR_OK &&
               info.state == CKS_RW_USER_FUNCTIONS;
    }

    TempDir dir_;
    std::optional<SoftHsmTokens> tokens_;
    std::optional<FreshProviderState> state_;
    NCRYPT_PROV_HANDLE handle_ = 0;
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table_ = nullptr;
};

TEST_F(Win32PinDialog, WrongPinShowsTheTriesLeftInRedAndTheRightPinLogsIn) {
    ASSERT_NO_FATAL_FAILURE(Open(3));
    SECURITY_STATUS status = LoginWith([](DialogDriver& d) {
        EXPECT_NE(SendMessageW(d.dialog(), WM_GETICON, ICON_BIG, 0), 0);
        EXPECT_NE(SendMessageW(d.dialog(), WM_GETICON, ICON_SMALL, 0), 0);
        EXPECT_EQ(d.Text(kStatus), L"");
        d.Type(L"9999", 4);
        EXPECT_EQ(d.Text(kPin), L"****");
        EXPECT_TRUE(IsWindowEnabled(d.Item(IDOK)));
        d.Click(IDOK);
        d.WaitFor("the tries left",
                  [&] { return d.Text(kStatus) == L"PIN incorrecto. Faltan 2 reintentos"; });
        EXPECT_EQ(d.Text(kPin), L"");
        EXPECT_FALSE(IsWindowEnabled(d.Item(IDOK)));

        RECT dialog, status;
        GetWindowRect(d.dialog(), &dialog);
        GetWindowRect(d.Item(kStatus), &status);
        OffsetRect(&status, -dialog.left, -dialog.top);
        // Painted in full and settled: two captures alike, with the red text.
        Image shot, previous;
        d.WaitFor("red status text on screen", [&] {
            RedrawWindow(d.dialog(), nullptr, nullptr,
                         RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW);
            previous = std::move(shot);
            shot = Capture(d.dialog());
            return shot.rgb == previous.rgb && shot.RedPixels(status) >= 30;
        });
        const std::string folder = QUELMKSP_ARTIFACT_DIR;
        std::filesystem::create_directories(WindowsPath(folder));
        SavePng(shot, WindowsPath(folder + "/pin_dialog_wrong_pin.png"));
        RECT outside = {0, 0, shot.width, status.top};
        EXPECT_EQ(shot.RedPixels(outside), 0) << "only the status text is red";

        // The field lost the keyboard to the disabled button: click back in.
        d.Click(kPin);
        d.Type(L"1234", 4);
        d.Click(IDOK);
    });
    EXPECT_EQ(status, 0) << state_->Log();
    EXPECT_TRUE(LoggedIn());
    EXPECT_EQ(g_pPinManager->pinCacheLock, 0u);
}

TEST_F(Win32PinDialog, EditsAtTheCaretReachTheTokenInTheirPlace) {
    ASSERT_NO_FATAL_FAILURE(Open(3));
    SECURITY_STATUS status = LoginWith([](DialogDriver& d) {
        d.Type(L"234", 3);
        d.MoveCaret(VK_HOME, 0);
        d.Type(L"1", 4);  // 1234
        d.MoveCaret(VK_END, 4);
        d.Type(L"56", 6);  // 123456
        d.MoveCaret(VK_LEFT, 5);
        d.Press(VK_BACK);  // 12346, caret before the 6
        d.WaitFor("the backspace", [&] { return d.Text(kPin).size() == 5; });
        d.Press(VK_DELETE);  // 1234
        d.WaitFor("the delete", [&] { return d.Text(kPin).size() == 4; });
        EXPECT_TRUE(OnlyAsterisks(d.Text(kPin)));
        d.Press(VK_RETURN);
    });
    EXPECT_EQ(status, 0) << "the token did not get 1234";
    EXPECT_TRUE(LoggedIn());
}

TEST_F(Win32PinDialog, FieldKeepsNeitherTheCharactersNorASelection) {
    ASSERT_NO_FATAL_FAILURE(Open(3));
    SECURITY_STATUS status = LoginWith([](DialogDriver& d) {
        d.Type(L"12", 2);
        EXPECT_EQ(d.Text(kPin), L"**");
        d.Press(VK_HOME, true);
        d.WaitFor("Shift+Home to empty the field", [&] { return d.Text(kPin).empty(); });
        EXPECT_FALSE(IsWindowEnabled(d.Item(IDOK)));
        d.Type(L"5678", 4);
        d.Press(VK_END, true);
        d.WaitFor("Shift+End to empty the field", [&] { return d.Text(kPin).empty(); });

        d.Type(L"abcd", 4);
        // A drag from the end to the start would select all four; the
        // selection collapses to its start instead.
        d.Mouse(d.Item(kPin), 0.95, MOUSEEVENTF_LEFTDOWN);
        d.Mouse(d.Item(kPin), 0.02, 0);
        d.WaitFor("the drag to leave the caret at the start and nothing selected",
                  [&] { return d.Selection() == std::make_pair(DWORD{0}, DWORD{0}); });
        d.Mouse(d.Item(kPin), 0.02, MOUSEEVENTF_LEFTUP);
        EXPECT_EQ(d.Text(kPin), L"****");
        d.Press(VK_ESCAPE);
    });
    EXPECT_EQ(status, static_cast<SECURITY_STATUS>(SCARD_W_CANCELLED_BY_USER));
    EXPECT_FALSE(LoggedIn());
    EXPECT_EQ(g_pPinManager->pinCacheLock, 0u);
}

TEST_F(Win32PinDialog, LockedPinLeavesOnlyCancelar) {
    ASSERT_NO_FATAL_FAILURE(Open(1));
    SECURITY_STATUS status = LoginWith([](DialogDriver& d) {
        d.Type(L"9999", 4);
        d.Click(IDOK);
        d.WaitFor("the locked text", [&] { return d.Text(kStatus) == L"El PIN está bloqueado"; });
        EXPECT_FALSE(IsWindowEnabled(d.Item(kPin)));
        EXPECT_FALSE(IsWindowEnabled(d.Item(IDOK)));
        EXPECT_TRUE(IsWindowEnabled(d.Item(IDCANCEL)));
        d.Click(IDCANCEL);
    });
    EXPECT_EQ(status, static_cast<SECURITY_STATUS>(SCARD_W_CANCELLED_BY_USER));
}

// The shipped library itself carries the dialog, the icon and the picture.
class ProviderResources : public ::testing::Test {
protected:
    void SetUp() override {
        module_ = LoadLibraryExW(WindowsPath(QUELMKSP_DLL_PATH).c_str(), nullptr,
                                 LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
        ASSERT_NE(module_, nullptr) << "cannot open " << QUELMKSP_DLL_PATH;
    }
    void TearDown() override { FreeLibrary(module_); }

    std::string Resource(LPCSTR type, int id) {
        HRSRC found = FindResourceA(module_, MAKEINTRESOURCEA(id), type);
        if (!found) return {};
        const char* data = static_cast<const char*>(LockResource(LoadResource(module_, found)));
        return std::string(data, SizeofResource(module_, found));
    }

    HMODULE module_ = nullptr;
};

struct Control {
    int32_t id;
    std::wstring classOrdinal, text;
    int16_t x, y, cx, cy;
    DWORD style;
    bool operator==(const Control&) const = default;
};

void PrintTo(const Control& c, std::ostream* out) {
    std::string text;
    for (wchar_t ch : c.classOrdinal + L" \"" + c.text + L"\"") text.push_back(char(ch));
    *out << "control " << c.id << " " << text << " at " << c.x << "," << c.y << " size " << c.cx
         << "x" << c.cy << " style 0x" << std::hex << c.style << std::dec;
}

struct Reader {
    const std::string& data;
    size_t at = 0;
    template <typename T>
    T Get() {
        if (at + sizeof(T) > data.size()) throw std::out_of_range("past the resource's end");
        T value;
        std::memcpy(&value, data.data() + at, sizeof value);
        at += sizeof value;
        return value;
    }
    // A name or an ordinal (0xFFFF then the number, shown as "#number").
    std::wstring NameOrOrdinal() {
        uint16_t first = Get<uint16_t>();
        if (first == 0xFFFF) return L"#" + std::to_wstring(Get<uint16_t>());
        std::wstring text;
        for (; first; first = Get<uint16_t>()) text.push_back(static_cast<wchar_t>(first));
        return text;
    }
};

TEST_F(ProviderResources, Dialog121IsLaidOutAsDesigned) {
    const std::string data = Resource(RT_DIALOG, 121);
    ASSERT_FALSE(data.empty());
    Reader r{data};
    ASSERT_EQ(r.Get<uint16_t>(), 1);  // extended template
    ASSERT_EQ(r.Get<uint16_t>(), 0xFFFF);
    r.Get<uint32_t>();
    EXPECT_EQ(r.Get<uint32_t>(), static_cast<DWORD>(WS_EX_TOPMOST));
    EXPECT_EQ(r.Get<uint32_t>(),
              static_cast<DWORD>(DS_MODALFRAME | WS_POPUP | WS_VISIBLE | WS_CAPTION | DS_SETFONT));
    const uint16_t count = r.Get<uint16_t>();
    r.at += 4;  // position
    EXPECT_EQ(r.Get<int16_t>(), 242);
    EXPECT_EQ(r.Get<int16_t>(), 93);
    EXPECT_EQ(r.NameOrOrdinal(), L"");  // no menu
    EXPECT_EQ(r.NameOrOrdinal(), L"");  // the standard dialog class
    EXPECT_EQ(r.NameOrOrdinal(), L"Ingresá el PIN del token");
    EXPECT_EQ(r.Get<uint16_t>(), 8);
    EXPECT_EQ(r.Get<uint16_t>(), 400);
    r.Get<uint16_t>();  // italic, character set
    EXPECT_EQ(r.NameOrOrdinal(), L"MS Shell Dlg");

    const DWORD child = WS_CHILD | WS_VISIBLE;
    const std::vector<Control> expected = {
        {-1, L"#128", L"", 6, 3, 230, 83, child | BS_GROUPBOX},
        {1001, L"#129", L"", 97, 21, 125, 14,
         child | WS_BORDER | WS_TABSTOP | ES_PASSWORD | ES_AUTOHSCROLL},
        {1, L"#128", L"Acceso", 97, 53, 56, 15,
         child | WS_TABSTOP | WS_DISABLED | BS_DEFPUSHBUTTON},
        {2, L"#128", L"Cancelar", 166, 53, 56, 15, child | WS_TABSTOP | BS_PUSHBUTTON},
        {1003, L"#130", L"PIN:", 80, 23, 15, 8, child | WS_GROUP | SS_LEFT},
        {1004, L"#130", L"PIN incorrecto. Faltan XX reintentos", 97, 38, 125, 8,
         child | WS_GROUP | SS_CENTER},
        {1008, L"#130", L"Almacenamiento de claves\n   Proveedor", 11, 65, 67, 18,
         child | WS_GROUP | SS_LEFT},
        {1002, L"#130", L"#101", 9, 12, 67, 36, child | SS_BITMAP | SS_REALSIZEIMAGE},
    };
    std::vector<Control> controls;
    for (uint16_t i = 0; i < count; ++i) {
        r.at = (r.at + 3) & ~size_t{3};
        Control c{};
        r.Get<uint32_t>();
        EXPECT_EQ(r.Get<uint32_t>(), 0u) << "extended style of control " << i;
        c.style = r.Get<uint32_t>();
        c.x = r.Get<int16_t>();
        c.y = r.Get<int16_t>();
        c.cx = r.Get<int16_t>();
        c.cy = r.Get<int16_t>();
        c.id = r.Get<int32_t>();
        c.classOrdinal = r.NameOrOrdinal();
        c.text = r.NameOrOrdinal();
        r.at += r.Get<uint16_t>();
        controls.push_back(c);
    }
    ASSERT_EQ(controls.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(controls[i], expected[i]);
}

TEST_F(ProviderResources, IconIsOne256PixelPngAndThePictureIs100By58) {
    const std::string group = Resource(RT_GROUP_ICON, 103);
    ASSERT_EQ(group.size(), 6u + 14u) << "one image";
    Reader r{group};
    r.at = 4;
    EXPECT_EQ(r.Get<uint16_t>(), 1);
    EXPECT_EQ(r.Get<uint8_t>(), 0);  // 0 means 256
    EXPECT_EQ(r.Get<uint8_t>(), 0);
    r.at = 6 + 6;
    EXPECT_EQ(r.Get<uint16_t>(), 32);
    r.at = 6 + 12;
    const std::string image = Resource(RT_ICON, r.Get<uint16_t>());
    EXPECT_EQ(image.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));

    const std::string bitmap = Resource(RT_BITMAP, 101);
    ASSERT_GE(bitmap.size(), sizeof(BITMAPINFOHEADER));
    BITMAPINFOHEADER header;
    std::memcpy(&header, bitmap.data(), sizeof header);
    EXPECT_EQ(header.biWidth, 100);
    EXPECT_EQ(header.biHeight, 58);
    EXPECT_EQ(header.biBitCount, 24);
}

}  // namespace
