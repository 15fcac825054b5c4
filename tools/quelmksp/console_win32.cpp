#include <windows.h>

#include "console.h"

namespace {

// _isatty also answers yes for NUL and other character devices, where no
// one can answer a question; only a console has a console mode.
bool IsConsole(DWORD standardHandle) {
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(standardHandle), &mode) != 0;
}

}  // namespace

bool StdinIsTerminal() {
    return IsConsole(STD_INPUT_HANDLE);
}

bool StderrIsTerminal() {
    return IsConsole(STD_ERROR_HANDLE);
}

// The PIN dialog is a window on Windows; it never takes the console.
bool TerminalTakingSecretInput() {
    return false;
}
