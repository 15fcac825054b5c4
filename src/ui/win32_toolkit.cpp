#include "ui/terminal_toolkit.h"

// Until the Win32 dialog is in, Windows has no way to show the PIN dialog:
// the terminal toolkit finds no terminal there and reports the dialog as
// not created.
std::unique_ptr<DialogToolkit> MakePlatformDialogToolkit() {
    return std::make_unique<TerminalToolkit>();
}
