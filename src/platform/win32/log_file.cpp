#include "platform/log_file.h"

#include <share.h>
#include <stdio.h>

#include <memory>

namespace platform {

bool AppendToTextFile(WideView path, std::string_view text) {
    // Text mode turns each "\n" into CR LF; _SH_DENYNO lets every other
    // writer keep the file open at the same time.
    std::unique_ptr<FILE, int (*)(FILE*)> file(
        _wfsopen(WideString(path).c_str(), L"a+t", _SH_DENYNO), &fclose);
    if (!file) return false;
    bool written = fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    return fflush(file.get()) == 0 && written;
}

}  // namespace platform
