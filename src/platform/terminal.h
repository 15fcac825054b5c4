// Keystrokes for the terminal PIN dialog.
//
// They come from the file descriptor number or path named by
// QUELMKSP_PIN_INPUT when it is set (scripts and the command-line client
// feed the dialog that way), else from the controlling terminal, read raw
// and without echo. Prompts go to the controlling terminal, or to stderr
// when there is none.
#pragma once

#include <memory>
#include <string_view>

namespace platform {

class Terminal {
public:
    // Null when there is neither an input nor a terminal.
    static std::unique_ptr<Terminal> Open();
    virtual ~Terminal() = default;

    // The next byte, or -1 at the end of the input.
    virtual int ReadByte() = 0;
    virtual void Write(std::string_view text) = 0;
};

}  // namespace platform
