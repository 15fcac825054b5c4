#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "client_error.h"
#include "pin_feed.h"
#include "secret_bytes.h"

namespace {

// Longer than any token allows; it also keeps the PIN well inside the
// pipe's buffer, so that writing it cannot block.
constexpr size_t kMaxPin = 255;

// Unbuffered, byte by byte: no stdio buffer keeps a copy of the PIN, and
// nothing after the PIN line is consumed.
SecretBytes ReadPinLine() {
    SecretBytes pin;
    pin.reserve(kMaxPin + 2);
    for (;;) {
        unsigned char byte = 0;
        ssize_t got = read(STDIN_FILENO, &byte, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0 || byte == '\n') break;
        if (pin.size() == kMaxPin + 1)
            throw ClientError(exit_code::kLogin, "the PIN on stdin is too long");
        pin.push_back(byte);
    }
    if (!pin.empty() && pin.back() == '\r') pin.pop_back();
    if (pin.empty()) throw ClientError(exit_code::kLogin, "--pin-stdin: no PIN on stdin");
    if (pin.size() > kMaxPin) throw ClientError(exit_code::kLogin, "the PIN on stdin is too long");
    return pin;
}

// Without a terminal the provider's dialog writes its prompt, "PIN: ****"
// and its verdicts to stderr, where a script reads them as errors. The
// client tells the outcome itself, so while the PIN is fed stderr goes to
// /dev/null, unless the provider's debugger output was asked for there.
int SilenceDialogOutput() {
    const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal >= 0) {
        close(terminal);
        return -1;
    }
    const char* debug = std::getenv("QUELMKSP_DEBUG_OUTPUT");
    if (debug && std::string(debug) == "1") return -1;
    const int quiet = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (quiet < 0) return -1;
    std::fflush(stderr);
    const int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    if (saved >= 0 && dup2(quiet, STDERR_FILENO) < 0) {
        close(saved);
        close(quiet);
        return -1;
    }
    close(quiet);
    return saved;
}

class PipedPin : public PinFeed {
public:
    explicit PipedPin(int readEnd) : readEnd_(readEnd), savedStderr_(SilenceDialogOutput()) {
        setenv("QUELMKSP_PIN_INPUT", std::to_string(readEnd_).c_str(), 1);
    }
    ~PipedPin() override {
        unsetenv("QUELMKSP_PIN_INPUT");
        close(readEnd_);
        if (savedStderr_ >= 0) {
            dup2(savedStderr_, STDERR_FILENO);
            close(savedStderr_);
        }
    }

private:
    int readEnd_;
    int savedStderr_;
};

}  // namespace

std::unique_ptr<PinFeed> PinFeed::FromStdin() {
    SecretBytes keys = ReadPinLine();
    keys.push_back('\n');
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw ClientError(exit_code::kLogin, "--pin-stdin: no pipe for the PIN dialog");
    size_t written = 0;
    while (written < keys.size()) {
        ssize_t wrote = write(ends[1], keys.data() + written, keys.size() - written);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) break;
        written += static_cast<size_t>(wrote);
    }
    close(ends[1]);
    auto feed = std::make_unique<PipedPin>(ends[0]);
    if (written != keys.size())
        throw ClientError(exit_code::kLogin, "--pin-stdin: the PIN could not be passed on");
    return feed;
}
