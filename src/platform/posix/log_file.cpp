#include "platform/log_file.h"

#include <cstdio>
#include <memory>

#include "platform/text.h"

namespace platform {

bool AppendToTextFile(WideView path, std::string_view text) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(ToUtf8(path).c_str(), "a+"),
                                                         &std::fclose);
    if (!file) return false;
    bool written = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    return std::fflush(file.get()) == 0 && written;
}

}  // namespace platform
