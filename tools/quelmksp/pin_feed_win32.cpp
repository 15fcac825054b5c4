#include <windows.h>

#include <string>
#include <vector>

#include "client_error.h"
#include "pin_feed.h"
#include "platform/secure_zero.h"
#include "secret_bytes.h"
#include "ui/resources/resource.h"

// On Windows the provider asks for the PIN in a window of this process. A
// thread of the client finds that window, types the PIN into its PIN field
// and presses Acceso, as a user would; should the window stay (a PIN the
// token refuses), it presses Cancelar, and so it does for any later PIN
// window: the PIN on stdin is given once, as on Linux.
namespace {

constexpr size_t kMaxPin = 255;
constexpr DWORD kPollMilliseconds = 20;

using SecretText = std::vector<wchar_t, WipingAllocator<wchar_t>>;

// Unbuffered, byte by byte: no buffer keeps a copy of the PIN, and nothing
// after the PIN line is consumed.
SecretBytes ReadPinLine() {
    HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    SecretBytes pin;
    pin.reserve(kMaxPin + 2);
    for (;;) {
        unsigned char byte = 0;
        DWORD got = 0;
        if (!ReadFile(input, &byte, 1, &got, nullptr) || got == 0 || byte == '\n') break;
        if (pin.size() == kMaxPin + 1)
            throw ClientError(exit_code::kLogin, "the PIN on stdin is too long");
        pin.push_back(byte);
    }
    if (!pin.empty() && pin.back() == '\r') pin.pop_back();
    if (pin.empty()) throw ClientError(exit_code::kLogin, "--pin-stdin: no PIN on stdin");
    if (pin.size() > kMaxPin) throw ClientError(exit_code::kLogin, "the PIN on stdin is too long");
    return pin;
}

SecretText Widened(const SecretBytes& pin) {
    const char* bytes = reinterpret_cast<const char*>(pin.data());
    const int size = static_cast<int>(pin.size());
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes, size, nullptr, 0);
    if (length <= 0) throw ClientError(exit_code::kLogin, "the PIN on stdin is not UTF-8 text");
    SecretText text(static_cast<size_t>(length));
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes, size, text.data(), length);
    return text;
}

bool HasClass(HWND window, const wchar_t* name) {
    wchar_t found[16] = {};
    return GetClassNameW(window, found, 16) > 0 && lstrcmpiW(found, name) == 0;
}

// The provider's PIN dialog (template IDD_LOGIN): a dialog of this process
// with the PIN field and both buttons, on screen.
HWND FindPinDialog() {
    struct Search {
        DWORD process;
        HWND found;
    } search{GetCurrentProcessId(), nullptr};
    EnumWindows(
        [](HWND window, LPARAM data) -> BOOL {
            auto* search = reinterpret_cast<Search*>(data);
            DWORD process = 0;
            GetWindowThreadProcessId(window, &process);
            if (process != search->process || !IsWindowVisible(window) ||
                !HasClass(window, L"#32770"))
                return TRUE;
            HWND pin = GetDlgItem(window, IDC_PIN_EDIT);
            if (!pin || !HasClass(pin, L"Edit") || !GetDlgItem(window, IDOK) ||
                !GetDlgItem(window, IDCANCEL))
                return TRUE;
            search->found = window;
            return FALSE;
        },
        reinterpret_cast<LPARAM>(&search));
    return search.found;
}

void Press(HWND dialog, int button) {
    SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED),
                 reinterpret_cast<LPARAM>(GetDlgItem(dialog, button)));
}

class DialogTypist : public PinFeed {
public:
    explicit DialogTypist(SecretText pin) : pin_(std::move(pin)) {
        stop_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        if (stop_) thread_ = CreateThread(nullptr, 0, &DialogTypist::Main, this, 0, nullptr);
        if (!thread_) {
            if (stop_) CloseHandle(stop_);
            throw ClientError(exit_code::kLogin, "--pin-stdin: no thread to type the PIN");
        }
    }

    // The dialog's thread may be this one: it must go on answering the
    // typist's messages until the typist has stopped.
    ~DialogTypist() override {
        SetEvent(stop_);
        while (MsgWaitForMultipleObjects(1, &thread_, FALSE, INFINITE, QS_SENDMESSAGE) ==
               WAIT_OBJECT_0 + 1) {
            MSG message;
            PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
        }
        CloseHandle(thread_);
        CloseHandle(stop_);
    }

private:
    static DWORD WINAPI Main(void* self) {
        static_cast<DialogTypist*>(self)->Run();
        return 0;
    }

    void Run() {
        bool typed = false;
        while (WaitForSingleObject(stop_, kPollMilliseconds) == WAIT_TIMEOUT) {
            HWND dialog = FindPinDialog();
            if (!dialog) continue;
            if (!typed) {
                typed = true;
                Type(dialog);
                // Acceso ran the login: a dialog still on screen did not
                // take the PIN.
                Press(dialog, IDOK);
            }
            if (IsWindowVisible(dialog)) Press(dialog, IDCANCEL);
        }
    }

    void Type(HWND dialog) {
        HWND field = GetDlgItem(dialog, IDC_PIN_EDIT);
        for (wchar_t c : pin_) SendMessageW(field, WM_CHAR, c, 1);
        platform::SecureZero(pin_.data(), pin_.size() * sizeof(wchar_t));
        pin_.clear();
    }

    SecretText pin_;
    HANDLE stop_ = nullptr;
    HANDLE thread_ = nullptr;
};

}  // namespace

std::unique_ptr<PinFeed> PinFeed::FromStdin() {
    return std::make_unique<DialogTypist>(Widened(ReadPinLine()));
}
