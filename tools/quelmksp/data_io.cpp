#include "data_io.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "client_error.h"

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

std::string Describe(const std::string& path) {
    return path.empty() || path == "-" ? std::string("stdin") : "'" + path + "'";
}

}  // namespace

SecretBytes ReadData(const std::string& path) {
    const bool fromStdin = path.empty() || path == "-";
    std::unique_ptr<std::FILE, FileCloser> owned;
    std::FILE* file = stdin;
    if (!fromStdin) {
        owned.reset(std::fopen(path.c_str(), "rb"));
        if (!owned)
            throw ClientError(exit_code::kData,
                              "cannot open " + Describe(path) + ": " + std::strerror(errno));
        file = owned.get();
    }
    SecretBytes data;
    uint8_t chunk[4096];
    size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0)
        data.insert(data.end(), chunk, chunk + got);
    const bool failed = std::ferror(file) != 0;
    platform::SecureZero(chunk, sizeof chunk);
    if (failed)
        throw ClientError(exit_code::kData,
                          "cannot read " + Describe(path) + ": " + std::strerror(errno));
    return data;
}

void WriteData(const uint8_t* data, size_t size) {
    if ((size && std::fwrite(data, 1, size, stdout) != size) || std::fflush(stdout) != 0)
        throw ClientError(exit_code::kData,
                          std::string("cannot write to stdout: ") + std::strerror(errno));
}

void WriteOutput(const std::string& path, const uint8_t* data, size_t size) {
    if (path.empty() || path == "-") {
        WriteData(data, size);
        return;
    }
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "wb"));
    if (!file)
        throw ClientError(exit_code::kData,
                          "cannot create " + Describe(path) + ": " + std::strerror(errno));
    bool written = size == 0 || std::fwrite(data, 1, size, file.get()) == size;
    // fclose reports what a full disk refused to take from the buffer.
    written = std::fclose(file.release()) == 0 && written;
    if (!written)
        throw ClientError(exit_code::kData,
                          "cannot write " + Describe(path) + ": " + std::strerror(errno));
}
