#include "platform/terminal.h"

namespace platform {

// Windows asks for the PIN in its own dialog window.
std::unique_ptr<Terminal> Terminal::Open() {
    return nullptr;
}

}  // namespace platform
