#pragma once

#include <filesystem>
#include <map>
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

    explicit RetryCounterStore(std::filesystem::path dir);

    const std::filesystem::path& file() const { return file_; }

    // Both throw StateError when the directory cannot be created or read.
    Transaction begin() const;
    Counters read() const;

private:
    UniqueFd lock(int operation) const;
    Counters load() const;
    void save(const Counters& counters) const;

    std::filesystem::path dir_;
    std::filesystem::path file_;
    std::filesystem::path lock_file_;
};

}  // namespace quelm
