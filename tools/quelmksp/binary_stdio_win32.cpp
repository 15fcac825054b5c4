#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include "data_io.h"

// Text mode would turn LF into CR LF in a signature and stop reading at
// the first 0x1A byte.
void UseBinaryStdio() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
}
