// The PIN field of the Win32 dialog: an EDIT control subclassed so that its
// own text is only ever asterisks, while what was typed lives in the secure
// cells.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

class SecureCells;

class SecureEdit {
public:
    explicit SecureEdit(SecureCells& cells) : cells_(cells) {}
    ~SecureEdit() { Detach(); }
    SecureEdit(const SecureEdit&) = delete;
    SecureEdit& operator=(const SecureEdit&) = delete;

    // Subclasses the control; the control's own procedure comes back when
    // Detach is called or the control is destroyed, whichever comes first.
    bool Attach(HWND edit);
    void Detach();

    // The control's EN_UPDATE, which the dialog reflects back here: moves
    // what was typed into the cells and leaves asterisks in its place.
    void OnUpdate();

private:
    static LRESULT CALLBACK SubclassProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT Handle(UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT Default(UINT message, WPARAM wParam, LPARAM lParam) {
        return CallWindowProcW(original_, edit_, message, wParam, lParam);
    }
    void ForgetAll();
    void SetCaret(DWORD position);
    void CollapseSelection();

    SecureCells& cells_;
    HWND edit_ = nullptr;
    WNDPROC original_ = nullptr;
};
