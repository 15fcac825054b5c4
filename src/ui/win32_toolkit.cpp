#include "ui/win32_toolkit.h"

#include <winerror.h>

#include "ui/resources/resource.h"

static_assert(IDD_LOGIN == dialog_ids::kTemplate && IDOK == dialog_ids::kOk &&
                  IDCANCEL == dialog_ids::kCancel && IDC_PIN_EDIT == dialog_ids::kPin &&
                  IDC_KEYCARD == dialog_ids::kBitmap && IDC_PIN_LABEL == dialog_ids::kPinLabel &&
                  IDC_STATUS == dialog_ids::kStatus && IDC_CAPTION == dialog_ids::kCaption &&
                  IDI_PROVIDER == dialog_ids::kIcon && IDB_KEYCARD == dialog_ids::kBitmapResource,
              "the resource script and the dialog logic name the same controls");
static_assert(IDD_SELECT_CARD == selection_ids::kTemplate &&
                  IDC_READERS == selection_ids::kReaders && IDI_PROVIDER == selection_ids::kIcon,
              "the resource script and the card selection name the same controls");

// On Windows the dialogs are real dialog windows.
std::unique_ptr<DialogToolkit> MakePlatformDialogToolkit() {
    return std::make_unique<Win32Toolkit>();
}

Win32Toolkit::Win32Toolkit() = default;

Win32Toolkit::~Win32Toolkit() {
    pinEdit_.Detach();
}

HMODULE Win32Toolkit::ResourceModule() {
    HMODULE module = nullptr;
    GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<LPCWSTR>(&DialogProc), &module);
    return module;
}

intptr_t Win32Toolkit::RunModal(DialogEvents& events, uint64_t parentWindow) {
    events_ = &events;
    lastError_ = 0;
    HWND parent = reinterpret_cast<HWND>(static_cast<uintptr_t>(parentWindow));
    INT_PTR result = DialogBoxParamW(ResourceModule(), MAKEINTRESOURCEW(events.DialogTemplate()),
                                     parent, DialogProc, reinterpret_cast<LPARAM>(this));
    if (result == kDialogNotCreated) lastError_ = GetLastError();
    pinEdit_.Detach();
    dialog_ = nullptr;
    events_ = nullptr;
    return result;
}

void Win32Toolkit::End(intptr_t result) {
    if (dialog_) EndDialog(dialog_, result);
}

void Win32Toolkit::SetTitle(platform::WideView title) {
    if (dialog_) SetWindowTextW(dialog_, platform::WideString(title).c_str());
}

void Win32Toolkit::SetIcons(int iconId) {
    if (!dialog_) return;
    HMODULE module = ResourceModule();
    auto load = [&](int width, int height) {
        return Icon(static_cast<HICON>(
            LoadImageW(module, MAKEINTRESOURCEW(iconId), IMAGE_ICON, width, height, 0)));
    };
    Icon big = load(GetSystemMetrics(SM_CXICON), GetSystemMetrics(SM_CYICON));
    Icon small = load(GetSystemMetrics(SM_CXSMICON), GetSystemMetrics(SM_CYSMICON));
    SendMessageW(dialog_, WM_SETICON, ICON_BIG, reinterpret_cast<LPARAM>(big.get()));
    SendMessageW(dialog_, WM_SETICON, ICON_SMALL, reinterpret_cast<LPARAM>(small.get()));
    // The window no longer refers to the old icons, so they can go.
    bigIcon_ = std::move(big);
    smallIcon_ = std::move(small);
}

void Win32Toolkit::SetStatusStyle(const StatusStyle& style) {
    statusColour_ = RGB(style.red, style.green, style.blue);
    Font font(CreateFontW(style.fontHeight, 0, 0, 0, style.fontWeight, 0, 0, 0, 0, 0, 0, 0, 0,
                          style.fontFace));
    // The static control draws with the font it was given, whatever the
    // colour handler selects, so it gets the status font itself.
    if (font && Item(dialog_ids::kStatus))
        SendMessageW(Item(dialog_ids::kStatus), WM_SETFONT, reinterpret_cast<WPARAM>(font.get()),
                     TRUE);
    statusFont_ = std::move(font);
}

void Win32Toolkit::SetControlText(int id, platform::WideView text) {
    if (dialog_) SetDlgItemTextW(dialog_, id, platform::WideString(text).c_str());
}

platform::WideString Win32Toolkit::ControlText(int id) const {
    HWND control = Item(id);
    int length = control ? GetWindowTextLengthW(control) : 0;
    if (length <= 0) return {};
    platform::WideString text(static_cast<size_t>(length) + 1, L'\0');
    int copied = GetWindowTextW(control, text.data(), length + 1);
    text.resize(copied > 0 ? static_cast<size_t>(copied) : 0);
    return text;
}

void Win32Toolkit::ResetList(int id) {
    if (HWND list = Item(id)) SendMessageW(list, CB_RESETCONTENT, 0, 0);
}

void Win32Toolkit::AddListItem(int id, platform::WideView text) {
    if (HWND list = Item(id))
        SendMessageW(list, CB_ADDSTRING, 0,
                     reinterpret_cast<LPARAM>(platform::WideString(text).c_str()));
}

void Win32Toolkit::SelectListItem(int id, int index) {
    if (HWND list = Item(id)) SendMessageW(list, CB_SETCURSEL, static_cast<WPARAM>(index), 0);
}

size_t Win32Toolkit::ControlTextLength(int id) {
    HWND control = Item(id);
    int length = control ? GetWindowTextLengthW(control) : 0;
    return length > 0 ? static_cast<size_t>(length) : 0;
}

void Win32Toolkit::EnableControl(int id, bool enable) {
    HWND control = Item(id);
    if (!control) return;
    // A disabled control cannot keep the keyboard: it moves on, so that
    // Escape and Tab still reach the dialog.
    if (!enable && GetFocus() == control) SendMessageW(dialog_, WM_NEXTDLGCTL, 0, FALSE);
    EnableWindow(control, enable);
}

void Win32Toolkit::LimitText(int id, uint32_t characters) {
    // 0 asks the control for its largest length, as EM_LIMITTEXT defines it.
    if (HWND control = Item(id)) SendMessageW(control, EM_LIMITTEXT, characters, 0);
}

INT_PTR CALLBACK Win32Toolkit::DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrW(dialog, DWLP_USER, lParam);
        reinterpret_cast<Win32Toolkit*>(lParam)->dialog_ = dialog;
    }
    auto* self = reinterpret_cast<Win32Toolkit*>(GetWindowLongPtrW(dialog, DWLP_USER));
    if (!self || !self->events_) return FALSE;
    try {
        return self->Handle(message, wParam, lParam);
    } catch (...) {
        self->Abandon();
        return TRUE;
    }
}

INT_PTR Win32Toolkit::Handle(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_INITDIALOG:
            if (events_->DialogTemplate() == dialog_ids::kTemplate)
                pinEdit_.Attach(Item(dialog_ids::kPin));
            events_->OnInitDialog();
            return TRUE;
        case WM_COMMAND:
            return OnCommand(LOWORD(wParam), HIWORD(wParam));
        case WM_CTLCOLORSTATIC:
            return OnColourStatic(reinterpret_cast<HDC>(wParam), reinterpret_cast<HWND>(lParam));
        case WM_NCDESTROY:
            pinEdit_.Detach();
            dialog_ = nullptr;
            return FALSE;
        default:
            return FALSE;
    }
}

bool Win32Toolkit::OnCommand(int id, int code) {
    if (id == dialog_ids::kPin) {
        if (code == EN_UPDATE)
            pinEdit_.OnUpdate();
        else if (code == EN_CHANGE)
            events_->OnEnChangePin();
        else
            return false;
        return true;
    }
    if (id == selection_ids::kReaders && code == CBN_DROPDOWN &&
        events_->DialogTemplate() == selection_ids::kTemplate) {
        events_->OnCbnDropdownReaders();
        return true;
    }
    if (code != BN_CLICKED) return false;
    if (id == IDOK) {
        // Enter reaches here too; it counts only while Acceso can be pressed.
        if (IsWindowEnabled(Item(IDOK))) events_->OnBnClickedOk();
        return true;
    }
    if (id == IDCANCEL) {
        events_->OnBnClickedCancel();
        return true;
    }
    return false;
}

INT_PTR Win32Toolkit::OnColourStatic(HDC dc, HWND control) {
    if (!statusFont_ || GetDlgCtrlID(control) != dialog_ids::kStatus) return FALSE;
    SetTextColor(dc, statusColour_);
    SelectObject(dc, statusFont_.get());
    SetBkMode(dc, TRANSPARENT);
    return reinterpret_cast<INT_PTR>(GetSysColorBrush(COLOR_BTNFACE));
}

void Win32Toolkit::Abandon() {
    cells_.ClearText();
    if (HWND pin = Item(dialog_ids::kPin)) SetWindowTextW(pin, L"");
    End(NTE_INTERNAL_ERROR);
}
