// The dialogs on Windows: the dialog resource that the logic names (121,
// the PIN; 105, the card selection) of the library that holds this code,
// run modally by the dialog manager. The dialog window exists only inside
// RunModal; the setters do nothing outside it.
#pragma once

#include <memory>
#include <type_traits>

#include "pin/dialog_toolkit.h"
#include "pin/secure_cells.h"
#include "ui/win32_secure_edit.h"

class Win32Toolkit : public DialogToolkit {
public:
    Win32Toolkit();
    ~Win32Toolkit() override;

    intptr_t RunModal(DialogEvents& events, uint64_t parentWindow) override;
    void End(intptr_t result) override;

    void SetTitle(platform::WideView title) override;
    void SetIcons(int iconId) override;
    void SetStatusStyle(const StatusStyle& style) override;
    void SetControlText(int id, platform::WideView text) override;
    platform::WideString ControlText(int id) const override;
    size_t ControlTextLength(int id) override;
    void EnableControl(int id, bool enable) override;
    void LimitText(int id, uint32_t characters) override;
    void ResetList(int id) override;
    void AddListItem(int id, platform::WideView text) override;
    void SelectListItem(int id, int index) override;
    SecureCells& PinCells() override { return cells_; }
    uint32_t LastError() const override { return lastError_; }

    // The module whose resources the dialog comes from: the one that
    // contains this code, the provider library when it is built into it.
    static HMODULE ResourceModule();

private:
    struct DeleteFont {
        void operator()(HFONT font) const { DeleteObject(font); }
    };
    struct DestroyIcon {
        void operator()(HICON icon) const { ::DestroyIcon(icon); }
    };
    using Font = std::unique_ptr<std::remove_pointer_t<HFONT>, DeleteFont>;
    using Icon = std::unique_ptr<std::remove_pointer_t<HICON>, DestroyIcon>;

    static INT_PTR CALLBACK DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);
    INT_PTR Handle(UINT message, WPARAM wParam, LPARAM lParam);
    bool OnCommand(int id, int code);
    INT_PTR OnColourStatic(HDC dc, HWND control);
    // An exception of the logic must not unwind through the dialog manager:
    // the field is wiped and the dialog ends with an error.
    void Abandon();
    HWND Item(int id) const { return dialog_ ? GetDlgItem(dialog_, id) : nullptr; }

    SecureCells cells_;
    SecureEdit pinEdit_{cells_};
    DialogEvents* events_ = nullptr;
    HWND dialog_ = nullptr;
    Font statusFont_;
    COLORREF statusColour_ = 0;
    Icon bigIcon_;
    Icon smallIcon_;
    uint32_t lastError_ = 0;
};
