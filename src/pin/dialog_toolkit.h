// What the dialogs' logic needs of a window toolkit: the PIN dialog (CLogin)
// and the card selection dialog (CSelectCard) are written once against this
// interface; the Win32 dialogs, the terminal and the scripted toolkit of the
// tests implement it.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/wide_string.h"

class SecureCells;

// Control identifiers of dialog resource 121.
namespace dialog_ids {
inline constexpr int kTemplate = 121;
inline constexpr int kOk = 1;      // "Acceso"
inline constexpr int kCancel = 2;  // "Cancelar"
inline constexpr int kPin = 1001;
inline constexpr int kBitmap = 1002;
inline constexpr int kPinLabel = 1003;
inline constexpr int kStatus = 1004;
inline constexpr int kCaption = 1008;
inline constexpr int kIcon = 103;
inline constexpr int kBitmapResource = 101;
}  // namespace dialog_ids

// Control identifiers of dialog resource 105, the card selection.
namespace selection_ids {
inline constexpr int kTemplate = 105;
inline constexpr int kOk = 1;      // "Bueno"
inline constexpr int kCancel = 2;  // "Cancelar"
inline constexpr int kReaders = 1005;
inline constexpr int kIcon = 103;
}  // namespace selection_ids

// What template 105 shows by itself, for toolkits without resources.
namespace selection_texts {
inline constexpr const platform::WideChar* kTitle = WIDE("Corvanta KSP");
inline constexpr const platform::WideChar* kPrompt =
    WIDE("Por favor seleccione una tarjeta inteligente");
inline constexpr const platform::WideChar* kOk = WIDE("Bueno");
inline constexpr const platform::WideChar* kCancel = WIDE("Cancelar");
}  // namespace selection_texts

// Results of a modal run, as the Windows dialog functions give them.
inline constexpr intptr_t kIdOk = 1;
inline constexpr intptr_t kIdCancel = 2;
inline constexpr intptr_t kDialogNotCreated = -1;

// The events a running dialog sends to its logic.
class DialogEvents {
public:
    virtual ~DialogEvents() = default;
    // The dialog resource the window is made from.
    virtual int DialogTemplate() const = 0;
    // The window exists and is about to be shown.
    virtual void OnInitDialog() = 0;
    // The text of the PIN field changed.
    virtual void OnEnChangePin() {}
    // The reader list is about to drop down.
    virtual void OnCbnDropdownReaders() {}
    // Button 1 (Acceso, Bueno) was pressed, or Enter.
    virtual void OnBnClickedOk() = 0;
    // Cancelar (button 2) was pressed, or Escape.
    virtual void OnBnClickedCancel() = 0;
};

// How the status text is drawn.
struct StatusStyle {
    uint8_t red = 0, green = 0, blue = 0;
    int fontHeight = 0;
    int fontWeight = 0;
    const platform::WideChar* fontFace = nullptr;
};

class DialogToolkit {
public:
    virtual ~DialogToolkit() = default;

    // Runs the dialog until the logic ends it. Returns the code given to
    // End, or kDialogNotCreated when there is no way to show the dialog.
    virtual intptr_t RunModal(DialogEvents& events, uint64_t parentWindow) = 0;
    virtual void End(intptr_t result) = 0;

    virtual void SetTitle(platform::WideView title) = 0;
    virtual void SetIcons(int iconId) = 0;
    virtual void SetStatusStyle(const StatusStyle& style) = 0;
    virtual void SetControlText(int id, platform::WideView text) = 0;
    // What a control shows; for a drop-down list, its selected entry.
    virtual platform::WideString ControlText(int id) const = 0;
    virtual size_t ControlTextLength(int id) = 0;
    virtual void EnableControl(int id, bool enable) = 0;
    virtual void LimitText(int id, uint32_t characters) = 0;

    // A drop-down list that sorts its entries without regard to case, as
    // the combo box of template 105 does (CBS_SORT).
    virtual void ResetList(int id) = 0;
    virtual void AddListItem(int id, platform::WideView text) = 0;
    virtual void SelectListItem(int id, int index) = 0;

    // The masked cells that hold what was typed into the PIN field.
    virtual SecureCells& PinCells() = 0;

    // The platform's last error after a failed RunModal.
    virtual uint32_t LastError() const { return 0; }
};

// Makes the toolkit the dialogs run on: the platform's own unless a test
// installed another. May throw the Spanish error of the secure edit
// control's construction.
std::unique_ptr<DialogToolkit> MakeDialogToolkit();

using DialogToolkitFactory = std::unique_ptr<DialogToolkit> (*)();
// Replaces the factory (tests); returns the previous one.
DialogToolkitFactory SetDialogToolkitFactory(DialogToolkitFactory factory);
