#include "progress.h"

#include <algorithm>
#include <cstdio>

#include "console.h"

namespace {

// Short jobs finish before the first frame, and the PIN prompt, which comes
// first, has the terminal by then.
constexpr auto kFirstFrame = std::chrono::milliseconds(300);
constexpr auto kFrame = std::chrono::milliseconds(100);
constexpr char kSpinner[] = {'|', '/', '-', '\\'};

}  // namespace

ProgressIndicator::ProgressIndicator(std::string message) : message_(std::move(message)) {
    if (StderrIsTerminal()) thread_ = std::thread(&ProgressIndicator::Run, this);
}

ProgressIndicator::~ProgressIndicator() {
    if (!thread_.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void ProgressIndicator::Run() {
    const auto start = std::chrono::steady_clock::now();
    size_t width = 0;
    size_t frame = 0;
    std::unique_lock<std::mutex> lock(mutex_);
    auto next = start + kFirstFrame;
    while (!wake_.wait_until(lock, next, [this] { return stopping_; })) {
        next += kFrame;
        if (TerminalTakingSecretInput()) continue;
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        char line[256];
        int length =
            std::snprintf(line, sizeof line, "%c %s (%.1f s)", kSpinner[frame++ % sizeof kSpinner],
                          message_.c_str(), elapsed.count());
        if (length <= 0) continue;
        width = std::max(width, static_cast<size_t>(length));
        std::fprintf(stderr, "\r%s", line);
        std::fflush(stderr);
    }
    // Blanks rather than an escape sequence: not every Windows console
    // takes them.
    if (width > 0) std::fprintf(stderr, "\r%s\r", std::string(width, ' ').c_str());
    std::fflush(stderr);
}
