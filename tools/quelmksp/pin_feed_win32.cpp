#include "client_error.h"
#include "pin_feed.h"

// On Windows the provider asks for the PIN in a window, which takes no
// keystrokes from a stream.
std::unique_ptr<PinFeed> PinFeed::FromStdin() {
    throw UsageError("--pin-stdin is not available on Windows, where the PIN dialog is a window");
}
