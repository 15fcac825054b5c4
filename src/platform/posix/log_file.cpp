#include "platform/log_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/text.h"

namespace platform {

// The system calls themselves, without a stream's buffer and its extra
// calls: every line of the log is one open, one write and one close.
bool AppendToTextFile(WideView path, std::string_view text) {
    // Read and write access, as a stream opened for appending and reading
    // has, so that a file that cannot be read is not written either.
    int file = ::open(ToUtf8(path).c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0) return false;
    bool written = true;
    for (size_t done = 0; done < text.size();) {
        ssize_t count = ::write(file, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) {
            written = false;
            break;
        }
        done += static_cast<size_t>(count);
    }
    return ::close(file) == 0 && written;
}

}  // namespace platform
