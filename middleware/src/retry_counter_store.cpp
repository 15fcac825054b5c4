#include "retry_counter_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace quelm {
namespace {

constexpr const char* kHeader = "# quelmpkcs11 PIN retry counters: wrong tries, a tab, the token";

[[noreturn]] void fail(const std::string& what, const std::filesystem::path& path) {
    throw StateError(what + " " + path.string() + ": " + std::strerror(errno));
}

void write_all(int fd, const std::string& text, const std::filesystem::path& path) {
    const char* next = text.data();
    std::size_t left = text.size();
    while (left) {
        const ssize_t written = ::write(fd, next, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) fail("cannot write", path);
        next += written;
        left -= static_cast<std::size_t>(written);
    }
}

}  // namespace

unsigned RetryCounterStore::Transaction::failures(const std::string& token) const {
    const auto found = counters_.find(token);
    return found == counters_.end() ? 0 : found->second;
}

void RetryCounterStore::Transaction::set_failures(const std::string& token, unsigned failures) {
    if (this->failures(token) == failures) return;
    if (failures == 0) {
        counters_.erase(token);
    } else {
        counters_[token] = failures;
    }
    dirty_ = true;
}

void RetryCounterStore::Transaction::commit() {
    if (!dirty_) return;
    store_.save(counters_);
    dirty_ = false;
}

RetryCounterStore::RetryCounterStore(std::filesystem::path dir,
                                     std::chrono::nanoseconds settling_time)
    : dir_(std::move(dir)),
      file_(dir_ / "pin-counters"),
      lock_file_(dir_ / "pin-counters.lock"),
      settling_time_(settling_time) {}

RetryCounterStore::Transaction RetryCounterStore::begin() const {
    UniqueFd held = lock(LOCK_EX);
    return Transaction(*this, std::move(held), load());
}

RetryCounterStore::Counters RetryCounterStore::read() const {
    UniqueFd held = lock(LOCK_SH);
    return load();
}

std::optional<RetryCounterStore::FileIdentity> RetryCounterStore::identity() const {
    struct stat status {};
    if (::stat(file_.c_str(), &status) != 0) {
        // No wrong tries on record yet: an absent file is an identity of its own.
        if (errno == ENOENT) return FileIdentity{};
        return std::nullopt;
    }
    auto nanoseconds = [](const timespec& time) {
        return static_cast<std::int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
    };
    FileIdentity found{true,
                       static_cast<std::uint64_t>(status.st_dev),
                       static_cast<std::uint64_t>(status.st_ino),
                       static_cast<std::uint64_t>(status.st_size),
                       nanoseconds(status.st_mtim),
                       nanoseconds(status.st_ctim)};
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    // Two changes within one tick of the file clock may leave the same times behind.
    if (nanoseconds(now) - std::max(found.modified, found.changed) < settling_time_.count()) {
        return std::nullopt;
    }
    return found;
}

RetryCounterStore::Counters RetryCounterStore::read_current() const {
    const std::optional<FileIdentity> now = identity();
    if (now) {
        std::lock_guard guard(cache_lock_);
        if (cached_identity_ == now) return cached_;
    }
    Counters counters = read();
    // The identity is taken before the read: a change in between makes the next call read again.
    std::lock_guard guard(cache_lock_);
    ++file_reads_;
    cached_identity_ = now;
    cached_ = counters;
    return counters;
}

unsigned long long RetryCounterStore::file_reads() const {
    std::lock_guard guard(cache_lock_);
    return file_reads_;
}

UniqueFd RetryCounterStore::lock(int operation) const {
    std::error_code ignored;
    std::filesystem::create_directories(dir_, ignored);
    ::chmod(dir_.c_str(), 0700);
    UniqueFd fd(::open(lock_file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!fd) fail("cannot open", lock_file_);
    while (::flock(fd.get(), operation) != 0) {
        if (errno != EINTR) fail("cannot lock", lock_file_);
    }
    return fd;
}

RetryCounterStore::Counters RetryCounterStore::load() const {
    Counters counters;
    std::error_code missing;
    if (!std::filesystem::exists(file_, missing)) return counters;
    std::ifstream in(file_);
    if (!in) fail("cannot read", file_);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        const std::size_t tab = line.find('\t');
        if (tab == std::string::npos || tab == 0) continue;
        unsigned failures = 0;
        std::istringstream number(line.substr(0, tab));
        if (!(number >> failures) || failures == 0) continue;
        counters[line.substr(tab + 1)] = failures;
    }
    return counters;
}

void RetryCounterStore::save(const Counters& counters) const {
    std::string text = std::string(kHeader) + "\n";
    for (const auto& [token, failures] : counters) {
        text += std::to_string(failures) + "\t" + token + "\n";
    }
    const std::filesystem::path temporary = dir_ / "pin-counters.tmp";
    {
        UniqueFd fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        if (!fd) fail("cannot create", temporary);
        write_all(fd.get(), text, temporary);
        if (::fsync(fd.get()) != 0) fail("cannot flush", temporary);
    }
    if (::rename(temporary.c_str(), file_.c_str()) != 0) fail("cannot replace", file_);
    UniqueFd dir(::open(dir_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir) ::fsync(dir.get());
}

}  // namespace quelm
