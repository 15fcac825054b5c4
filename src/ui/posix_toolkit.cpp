#include "ui/terminal_toolkit.h"

// On Linux the PIN dialog runs on the terminal.
std::unique_ptr<DialogToolkit> MakePlatformDialogToolkit() {
    return std::make_unique<TerminalToolkit>();
}
