// --pin-stdin: the PIN line read from stdin and handed to the provider's PIN
// dialog as keystrokes, as if typed and followed by Enter. The provider
// reads QUELMKSP_PIN_INPUT when its dialog starts, so the feed must exist
// before the first operation that logs in. After the PIN comes the end of
// input, which cancels the dialog should the token refuse the PIN.
#pragma once

#include <memory>

class PinFeed {
public:
    // Reads the PIN line from stdin. Throws ClientError when stdin holds no
    // PIN or the platform's PIN dialog cannot be fed.
    static std::unique_ptr<PinFeed> FromStdin();
    virtual ~PinFeed() = default;
};
