// The PIN dialog on a terminal: the title, "PIN:" and the status text are
// printed, each keystroke goes into the masked cells and shows as an
// asterisk. Enter presses Acceso (when enabled), Escape presses Cancelar,
// Backspace deletes; the end of the input presses Cancelar.
#pragma once

#include <memory>

#include "platform/terminal.h"
#include "ui/model_toolkit.h"

class TerminalToolkit : public ModelToolkit {
public:
    intptr_t RunModal(DialogEvents& events, uint64_t parentWindow) override;

private:
    void Prompt();
    void OnByte(int byte);

    std::unique_ptr<platform::Terminal> terminal_;
    std::string pendingUtf8_;
};
