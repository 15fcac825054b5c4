// A toolkit without windows: it keeps the dialog's state (title, control
// texts, enabled states, the PIN cells) in memory and lets a subclass say
// how keystrokes arrive and how the state is shown. The terminal and the
// scripted toolkit are built on it.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "pin/dialog_toolkit.h"
#include "pin/secure_cells.h"

class ModelToolkit : public DialogToolkit {
public:
    void End(intptr_t result) override { result_ = result; }
    void SetTitle(platform::WideView title) override { title_ = title; }
    void SetIcons(int) override {}
    void SetStatusStyle(const StatusStyle& style) override { statusStyle_ = style; }
    void SetControlText(int id, platform::WideView text) override;
    platform::WideString ControlText(int id) const override;
    size_t ControlTextLength(int id) override;
    void EnableControl(int id, bool enable) override { disabled_[id] = !enable; }
    void LimitText(int id, uint32_t characters) override;
    void ResetList(int id) override;
    void AddListItem(int id, platform::WideView text) override;
    void SelectListItem(int id, int index) override;
    SecureCells& PinCells() override { return cells_; }

    const platform::WideString& title() const { return title_; }
    bool IsEnabled(int id) const;
    // A list's entries in the order shown, and the selected one (-1: none).
    const std::vector<platform::WideString>& ListItems(int id) const;
    int SelectedListItem(int id) const;
    const StatusStyle& statusStyle() const { return statusStyle_; }

protected:
    // Starts a run: what the template sets (the PIN dialog's Acceso
    // disabled, the card selection's title), then the dialog's
    // initialisation. False when the dialog ended during initialisation.
    bool Begin(DialogEvents& events);
    int Template() const { return template_; }
    bool Ended() const { return result_.has_value(); }
    intptr_t Result() const { return *result_; }

    // Keystrokes into the PIN field; ignored while it is disabled or full.
    void TypeInPin(platform::WideView characters);
    void BackspaceInPin();
    // The buttons; a disabled button does nothing.
    void Press(int button);
    // The user opens a drop-down list, or picks an entry in it.
    void OpenList(int id);
    void ChooseListItem(int id, int index);

private:
    // The control reports a new text: the cells take the characters, the
    // text becomes asterisks and the dialog hears of the change. The typed
    // text is wiped.
    void UpdatePin(platform::WideString& text, size_t caret);

    struct List {
        std::vector<platform::WideString> items;
        int selected = -1;
    };

    DialogEvents* events_ = nullptr;
    int template_ = 0;
    std::map<int, List> lists_;
    SecureCells cells_;
    platform::WideString title_;
    std::map<int, platform::WideString> texts_;
    std::map<int, bool> disabled_;
    size_t pinLimit_ = 0;
    StatusStyle statusStyle_;
    std::optional<intptr_t> result_;
};
