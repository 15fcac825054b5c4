#include "data_io.h"

// POSIX streams carry bytes unchanged already.
void UseBinaryStdio() {}
