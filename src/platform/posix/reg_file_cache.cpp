#include "platform/posix/reg_file_cache.h"

#include <sys/stat.h>
#include <time.h>

#include <algorithm>

namespace platform::regfile {
namespace {

int64_t Nanoseconds(const timespec& time) {
    return static_cast<int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

}  // namespace

bool FileCache::Settled(const Identity& identity) const {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    int64_t latest = std::max(identity.modified, identity.changed);
    return Nanoseconds(now) - latest >= settlingTime_.count();
}

Lookup FileCache::Find(const std::string& filePath, std::u16string_view subKey,
                       std::u16string_view valueName) {
    struct stat status {};
    if (stat(filePath.c_str(), &status) != 0) return regfile::Find(filePath, subKey, valueName);
    Identity identity{static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino),
                      static_cast<uint64_t>(status.st_size), Nanoseconds(status.st_mtim),
                      Nanoseconds(status.st_ctim)};
    bool settled = Settled(identity);
    auto key = std::make_pair(std::u16string(subKey), std::u16string(valueName));
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (path_ != filePath || !(identity_ == identity) || !settled) {
            lookups_.clear();
            path_ = filePath;
            identity_ = identity;
        }
        if (settled) {
            auto found = lookups_.find(key);
            if (found != lookups_.end()) return found->second;
        }
        ++parses_;
    }
    // The file may change while it is read; then its identity differs from
    // the one recorded here, and the next lookup throws this result away.
    Lookup result = regfile::Find(filePath, subKey, valueName);
    if (settled) {
        std::lock_guard<std::mutex> guard(lock_);
        if (path_ == filePath && identity_ == identity) {
            if (lookups_.size() >= kMaxEntries) lookups_.clear();
            lookups_.emplace(std::move(key), result);
        }
    }
    return result;
}

}  // namespace platform::regfile
