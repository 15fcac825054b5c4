#include "platform/terminal.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace platform {
namespace {

class PosixTerminal : public Terminal {
public:
    PosixTerminal(int input, bool ownsInput, int output, bool ownsOutput)
        : input_(input), ownsInput_(ownsInput), output_(output), ownsOutput_(ownsOutput) {
        // A real terminal is read key by key, without echo.
        if (isatty(input_) && tcgetattr(input_, &saved_) == 0) {
            termios raw = saved_;
            raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
            raw.c_cc[VMIN] = 1;
            raw.c_cc[VTIME] = 0;
            restore_ = tcsetattr(input_, TCSAFLUSH, &raw) == 0;
        }
    }
    ~PosixTerminal() override {
        if (restore_) tcsetattr(input_, TCSAFLUSH, &saved_);
        if (ownsInput_) close(input_);
        if (ownsOutput_) close(output_);
    }

    int ReadByte() override {
        unsigned char byte = 0;
        for (;;) {
            ssize_t got = read(input_, &byte, 1);
            if (got == 1) return byte;
            if (got < 0 && errno == EINTR) continue;
            return -1;
        }
    }

    void Write(std::string_view text) override {
        while (!text.empty()) {
            ssize_t wrote = write(output_, text.data(), text.size());
            if (wrote <= 0) return;
            text.remove_prefix(static_cast<size_t>(wrote));
        }
    }

private:
    int input_;
    bool ownsInput_;
    int output_;
    bool ownsOutput_;
    termios saved_{};
    bool restore_ = false;
};

// QUELMKSP_PIN_INPUT: a descriptor number, or a path to open.
int OpenNamedInput(const char* name, bool* owns) {
    char* end = nullptr;
    long number = std::strtol(name, &end, 10);
    if (*name && end && *end == '\0' && number >= 0) {
        *owns = false;
        return fcntl(static_cast<int>(number), F_GETFD) == -1 ? -1 : static_cast<int>(number);
    }
    *owns = true;
    return open(name, O_RDONLY | O_CLOEXEC);
}

}  // namespace

std::unique_ptr<Terminal> Terminal::Open() {
    int tty = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    const char* named = std::getenv("QUELMKSP_PIN_INPUT");
    if (named && *named) {
        bool owns = false;
        int input = OpenNamedInput(named, &owns);
        if (input < 0) {
            if (tty >= 0) close(tty);
            return nullptr;
        }
        if (tty >= 0) return std::make_unique<PosixTerminal>(input, owns, tty, true);
        return std::make_unique<PosixTerminal>(input, owns, STDERR_FILENO, false);
    }
    if (tty < 0) return nullptr;
    int output = dup(tty);
    return std::make_unique<PosixTerminal>(tty, true, output >= 0 ? output : tty, output >= 0);
}

}  // namespace platform
