// A toolkit without windows: it keeps the dialog's state (title, control
// texts, enabled states, the PIN cells) in memory and lets a subclass say
// how keystrokes arrive and how the state is shown. The terminal and the
// scripted toolkit are built on it.
#pragma once

#include <map>
#include <optional>

#include "pin/dialog_toolkit.h"
#include "pin/secure_cells.h"

class ModelToolkit : public DialogToolkit {
public:
    void End(intptr_t result) override { result_ = result; }
    void SetTitle(platform::WideView title) override { title_ = title; }
    void SetIcons(int) override {}
    void SetStatusStyle(const StatusStyle& style) override { statusStyle_ = style; }
    void SetControlText(int id, platform::WideView text) override;
    size_t ControlTextLength(int id) override;
    void EnableControl(int id, bool enable) override { disabled_[id] = !enable; }
    void LimitText(int id, uint32_t characters) override;
    SecureCells& PinCells() override { return cells_; }

    const platform::WideString& title() const { return title_; }
    platform::WideString ControlText(int id) const;
    bool IsEnabled(int id) const;
    const StatusStyle& statusStyle() const { return statusStyle_; }

protected:
    // Starts a run: the dialog's initialisation, and Acceso disabled as the
    // template has it. False when the dialog ended during initialisation.
    bool Begin(DialogEvents& events);
    bool Ended() const { return result_.has_value(); }
    intptr_t Result() const { return *result_; }

    // Keystrokes into the PIN field; ignored while it is disabled or full.
    void TypeInPin(platform::WideView characters);
    void BackspaceInPin();
    // The buttons; a disabled button does nothing.
    void Press(int button);

private:
    // The control reports a new text: the cells take the characters, the
    // text becomes asterisks and the dialog hears of the change. The typed
    // text is wiped.
    void UpdatePin(platform::WideString& text, size_t caret);

    DialogEvents* events_ = nullptr;
    SecureCells cells_;
    platform::WideString title_;
    std::map<int, platform::WideString> texts_;
    std::map<int, bool> disabled_;
    size_t pinLimit_ = 0;
    StatusStyle statusStyle_;
    std::optional<intptr_t> result_;
};
