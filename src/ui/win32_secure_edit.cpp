#include "ui/win32_secure_edit.h"

#include <new>

#include "pin/secure_cells.h"
#include "platform/secure_buffer.h"

namespace {

// Where the subclassed control finds its SecureEdit.
constexpr wchar_t kSelf[] = L"Velmora.SecureEdit";

bool ShiftHeld() {
    for (int key : {VK_SHIFT, VK_LSHIFT, VK_RSHIFT})
        if (GetKeyState(key) < 0) return true;
    return false;
}

}  // namespace

bool SecureEdit::Attach(HWND edit) {
    Detach();
    if (!edit || !SetPropW(edit, kSelf, this)) return false;
    // The procedure is plain window subclassing rather than comctl32's: the
    // provider then needs no common-controls library for one control.
    original_ = reinterpret_cast<WNDPROC>(
        SetWindowLongPtrW(edit, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&SubclassProc)));
    if (!original_) {
        RemovePropW(edit, kSelf);
        return false;
    }
    edit_ = edit;
    return true;
}

void SecureEdit::Detach() {
    if (!edit_) return;
    // Put back only what was replaced: a later subclass would otherwise be
    // cut off.
    if (GetWindowLongPtrW(edit_, GWLP_WNDPROC) == reinterpret_cast<LONG_PTR>(&SubclassProc))
        SetWindowLongPtrW(edit_, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(original_));
    RemovePropW(edit_, kSelf);
    edit_ = nullptr;
}

void SecureEdit::OnUpdate() {
    if (!edit_) return;
    int length = GetWindowTextLengthW(edit_);
    if (length < 0 || static_cast<size_t>(length) == cells_.cchLast) return;
    platform::SecureBuffer<wchar_t> typed;
    platform::WideString stars;
    DWORD caret = LOWORD(SendMessageW(edit_, EM_GETSEL, 0, 0));
    try {
        typed = platform::SecureBuffer<wchar_t>(static_cast<size_t>(length) + 1);
        int copied = GetWindowTextW(edit_, typed.get(), length + 1);
        stars = cells_.OnUpdate(platform::WideView(typed.get(), copied > 0 ? copied : 0), caret);
    } catch (const std::bad_alloc&) {
        // What was typed must not stay in the control because it could not
        // be stored: the field starts over.
        ForgetAll();
        return;
    }
    // Counted already, so the update this causes finds no change.
    SetWindowTextW(edit_, stars.c_str());
    SetCaret(caret);
}

LRESULT CALLBACK SecureEdit::SubclassProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* edit = static_cast<SecureEdit*>(GetPropW(window, kSelf));
    if (!edit) return DefWindowProcW(window, message, wParam, lParam);
    if (message == WM_NCDESTROY) {
        WNDPROC original = edit->original_;
        edit->Detach();
        return CallWindowProcW(original, window, message, wParam, lParam);
    }
    return edit->Handle(message, wParam, lParam);
}

LRESULT SecureEdit::Handle(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_KEYDOWN:
            // A shifted Home or End would select what was typed; the field
            // starts over instead.
            if ((wParam == VK_END || wParam == VK_HOME) && ShiftHeld()) ForgetAll();
            [[fallthrough]];
        case WM_KEYUP:
        case WM_CHAR:
        case WM_DEADCHAR:
        case WM_MOUSEMOVE:
        case WM_LBUTTONUP:
        case WM_LBUTTONDBLCLK:
        case WM_RBUTTONUP:
        case WM_RBUTTONDBLCLK:
        case WM_MBUTTONUP:
        case WM_MBUTTONDBLCLK: {
            // The update handler only understands insertions and deletions
            // at a caret, so no selection may outlive a message.
            LRESULT result = Default(message, wParam, lParam);
            CollapseSelection();
            return result;
        }
        default:
            return Default(message, wParam, lParam);
    }
}

void SecureEdit::ForgetAll() {
    cells_.ClearText();
    SetWindowTextW(edit_, L"");
    SetCaret(0);
}

void SecureEdit::SetCaret(DWORD position) {
    SendMessageW(edit_, EM_SETSEL, position, position);
    SendMessageW(edit_, EM_SCROLLCARET, 0, 0);
}

void SecureEdit::CollapseSelection() {
    if (!edit_) return;
    DWORD start = 0, end = 0;
    SendMessageW(edit_, EM_GETSEL, reinterpret_cast<WPARAM>(&start),
                 reinterpret_cast<LPARAM>(&end));
    if (start != end) SetCaret(start);
}
