// Lookups in a registry file, kept until the file changes.
//
// Every lookup still looks at the file's identity (device, inode, size,
// modification and change times), so an edit, a replacement or a removal is
// seen at the next lookup. A file changed less than the settling time ago
// is parsed afresh on every lookup: its times may not yet differ from those
// of a later edit in the same clock tick.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "platform/posix/reg_file.h"

namespace platform::regfile {

class FileCache {
public:
    static constexpr std::chrono::nanoseconds kSettlingTime = std::chrono::seconds(1);
    // Past this many remembered lookups the cache starts again, so that
    // callers asking for ever new names cannot make it grow without bound.
    static constexpr size_t kMaxEntries = 256;

    explicit FileCache(std::chrono::nanoseconds settlingTime = kSettlingTime)
        : settlingTime_(settlingTime) {}

    Lookup Find(const std::string& filePath, std::u16string_view subKey,
                std::u16string_view valueName);

    // How many lookups parsed the file; for tests.
    uint64_t parses() const { return parses_; }

private:
    struct Identity {
        uint64_t device = 0, inode = 0, size = 0;
        int64_t modified = 0, changed = 0;
        bool operator==(const Identity&) const = default;
    };
    // Whether the file can be trusted to look different after its next edit.
    bool Settled(const Identity& identity) const;

    std::chrono::nanoseconds settlingTime_;
    std::mutex lock_;
    std::string path_;
    Identity identity_;
    std::map<std::pair<std::u16string, std::u16string>, Lookup> lookups_;
    std::atomic<uint64_t> parses_{0};
};

}  // namespace platform::regfile
