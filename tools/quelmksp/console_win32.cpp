#include <io.h>

#include <cstdio>

#include "console.h"

bool StdinIsTerminal() {
    return _isatty(_fileno(stdin)) != 0;
}

bool StderrIsTerminal() {
    return _isatty(_fileno(stderr)) != 0;
}

// The PIN dialog is a window on Windows; it never takes the console.
bool TerminalTakingSecretInput() {
    return false;
}
