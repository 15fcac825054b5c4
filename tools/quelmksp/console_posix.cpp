#include <termios.h>
#include <unistd.h>

#include "console.h"

bool StdinIsTerminal() {
    return isatty(STDIN_FILENO) == 1;
}

bool StderrIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

bool TerminalTakingSecretInput() {
    termios mode{};
    return tcgetattr(STDERR_FILENO, &mode) == 0 && (mode.c_lflag & ECHO) == 0;
}
