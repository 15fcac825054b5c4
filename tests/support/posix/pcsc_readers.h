// The real smart-card service of the Linux tests: pcscd with vsmartcard's
// virtual reader driver, which shows two readers, and vicc, which puts a
// card into one of them for as long as it runs. pcscd itself is started by
// the CTest fixture tests/smartcard/pcscd_fixture.sh.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "../temp_dir.h"
#include "platform/smart_card.h"

namespace pcsc_readers {

inline const platform::WideString kFirst = u"Virtual PCD 00 00";
inline const platform::WideString kSecond = u"Virtual PCD 00 01";
inline constexpr const char* kDaemonSocket = "/run/pcscd/pcscd.comm";

// Waits until the reader holds a card (or none), as pcscd reports it.
inline bool WaitForCard(const platform::WideString& reader, bool present,
                        std::chrono::seconds timeout = std::chrono::seconds(15)) {
    platform::SCARDCONTEXT context = 0;
    if (platform::SCardEstablishContext(platform::kScardScopeUser, nullptr, nullptr, &context) !=
        platform::kScardSuccess)
        return false;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    bool reached = false;
    platform::SCARD_READERSTATEW state{};
    state.szReader = reader.c_str();
    while (!reached && std::chrono::steady_clock::now() < deadline) {
        if (platform::SCardGetStatusChangeW(context, 200, &state, 1) == platform::kScardSuccess) {
            state.dwCurrentState = state.dwEventState & ~platform::kScardStateChanged;
            reached = (state.dwEventState & platform::kScardStatePresent) ? present
                      : (state.dwEventState & platform::kScardStateEmpty) ? !present
                                                                          : false;
        }
    }
    platform::SCardReleaseContext(context);
    return reached;
}

// A card in a reader: vicc, run with Debian's python3 and the folders it
// needs, for as long as the object lives.
class VirtualCard {
public:
    // reader: 0 for "Virtual PCD 00 00", 1 for "Virtual PCD 00 01".
    VirtualCard(const TempDir& dir, int reader) : reader_(reader) {
        // vicc imports Crypto, which Debian ships as Cryptodome.
        const std::filesystem::path modules = dir.path() / "vicc-modules";
        std::filesystem::create_directories(modules);
        std::error_code ignored;
        std::filesystem::create_directory_symlink("/usr/lib/python3/dist-packages/Cryptodome",
                                                  modules / "Crypto", ignored);
        std::vector<std::string> command = {
            "env",
            "PYTHONPATH=/usr/lib/python3/site-packages/virtualsmartcard:" + modules.string(),
            "/usr/bin/python3",
            "/usr/bin/vicc",
            "-t",
            "iso7816",
            "-P",
            std::to_string(35963 + reader)};
        std::vector<char*> argv;
        for (std::string& argument : command) argv.push_back(argument.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const std::string logPath = dir / ("vicc-" + std::to_string(reader) + ".log");
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, logPath.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        const int started = posix_spawnp(&pid_, "env", &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (started != 0) throw std::runtime_error("vicc could not be started");
        if (!WaitForCard(Reader(), true)) {
            Remove();
            throw std::runtime_error("vicc's card did not appear in its reader; its log: " +
                                     ReadFile(logPath));
        }
    }
    ~VirtualCard() { Remove(); }
    VirtualCard(const VirtualCard&) = delete;
    VirtualCard& operator=(const VirtualCard&) = delete;

    const platform::WideString& Reader() const { return reader_ == 0 ? kFirst : kSecond; }

    // Ends vicc, which takes the card out.
    void Remove() {
        if (pid_ <= 0) return;
        kill(pid_, SIGTERM);
        int status = 0;
        for (int i = 0; i < 50 && waitpid(pid_, &status, WNOHANG) == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (waitpid(pid_, &status, WNOHANG) == 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
        }
        pid_ = -1;
    }

private:
    int reader_;
    pid_t pid_ = -1;
};

// pcsc-lite's client finds the daemon through PCSCLITE_CSOCK_NAME, read
// once per process at its first call. Pointing it at a link in the test's
// folder lets a test take the daemon away from this process and give it
// back, while the one daemon of the machine runs on for everybody else.
class DaemonLink {
public:
    explicit DaemonLink(const TempDir& dir) : link_(dir / "pcscd.comm") {
        setenv("PCSCLITE_CSOCK_NAME", link_.c_str(), 1);
    }
    ~DaemonLink() { unsetenv("PCSCLITE_CSOCK_NAME"); }
    void Connect() { std::filesystem::create_symlink(kDaemonSocket, link_); }

private:
    std::string link_;
};

}  // namespace pcsc_readers
