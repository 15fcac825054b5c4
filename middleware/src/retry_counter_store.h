#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

#include "unique_fd.h"

namespace quelm {

class StateError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The persistent count of wrong user PINs per token, shared by every process that uses the same
// state directory. A file lock serialises the processes; a rewrite goes to a temporary file that
// is renamed over the old one, so a crash leaves either the old or the new counts, never a mix.
class RetryCounterStore {
public:
    using Counters = std::map<std::string, unsigned>;

    // Holds the exclusive lock from construction until destruction. Changes become durable
    // only through commit().
    class Transaction {
    public:
        unsigned failures(const std::string& token) const;
        void set_failures(const std::string& token, unsigned failures);
        const Counters& counters() const { return counters_; }
        void commit();

    private:
        friend class RetryCounterStore;
        Transaction(const RetryCounterStore& store, UniqueFd lock, Counters counters)
            : store_(store), lock_(std::move(lock)), counters_(std::move(counters)) {}

        const RetryCounterStore& store_;
        UniqueFd lock_;
        Counters counters_;
        bool dirty_ = false;
    };

    static constexpr std::chrono::nanoseconds kSettlingTime = std::chrono::seconds(1);

    explicit RetryCounterStore(std::filesystem::path dir,
                               std::chrono::nanoseconds settling_time = kSettlingTime);

    const std::filesystem::path& file() const { return file_; }

    // Both throw StateError when the directory cannot be created or read.
    Transaction begin() const;
    Counters read() const;

    // As read(), but from memory while the file is the one read last. Every change replaces the
    // file by a rename, and a file that changed less than the settling time ago is always read
    // again, so a change by any process is seen at the next call.
    Counters read_current() const;

    // How many times read_current() had to read the file; for tests.
    unsigned long long file_reads() const;

private:
    struct FileIdentity {
        bool exists = false;
        std::uint64_t device = 0, inode = 0, size = 0;
        std::int64_t modified = 0, changed = 0;
        bool operator==(const FileIdentity&) const = default;
    };
    // Nothing when the file's state cannot be told without the lock.
    std::optional<FileIdentity> identity() const;

    UniqueFd lock(int operation) const;
    Counters load() const;
    void save(const Counters& counters) const;

    std::filesystem::path dir_;
    std::filesystem::path file_;
    std::filesystem::path lock_file_;
    std::chrono::nanoseconds settling_time_;

    mutable std::mutex cache_lock_;
    mutable std::optional<FileIdentity> cached_identity_;
    mutable Counters cached_;
    mutable unsigned long long file_reads_ = 0;
};

}  // namespace quelm
