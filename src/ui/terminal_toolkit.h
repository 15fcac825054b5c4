// The dialogs on a terminal.
//
// The PIN dialog: the title, "PIN:" and the status text are printed, each
// keystroke goes into the masked cells and shows as an asterisk. Enter
// presses Acceso (when enabled), Escape presses Cancelar, Backspace deletes;
// the end of the input presses Cancelar.
//
// The card selection: the readers are printed as a numbered list with the
// selected one marked. Digits pick a reader by its number, Space drops the
// list down again (the readers are read anew), Enter presses Bueno, Escape
// and the end of the input press Cancelar.
#pragma once

#include <memory>

#include "platform/terminal.h"
#include "ui/model_toolkit.h"

class TerminalToolkit : public ModelToolkit {
public:
    intptr_t RunModal(DialogEvents& events, uint64_t parentWindow) override;

private:
    void RunPin();
    void Prompt();
    void OnByte(int byte);
    void RunSelection();
    void ShowReaders();
    void OnSelectionByte(int byte);

    std::unique_ptr<platform::Terminal> terminal_;
    std::string pendingUtf8_;
    int pendingNumber_ = 0;
};
