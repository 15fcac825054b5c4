// The Linux side of test_system.h.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>

namespace test_system {
namespace detail {

// What QUELMKSP_REGISTRY was before the first registry file replaced it.
inline std::optional<std::string> g_registryBefore;
inline bool g_registryReplaced = false;

}  // namespace detail

inline void SetVariable(const std::string& name, const std::string& value) {
    setenv(name.c_str(), value.c_str(), 1);
}

inline void UnsetVariable(const std::string& name) {
    unsetenv(name.c_str());
}

inline std::string Variable(const std::string& name) {
    const char* value = std::getenv(name.c_str());
    return value ? value : "";
}

inline std::string UnixPath(const std::string& path) {
    return path;
}

inline int RunUnixProgram(const std::vector<std::string>& arguments,
                          const std::vector<std::pair<std::string, std::string>>& variables) {
    std::vector<std::string> command{"env"};
    for (const auto& [name, value] : variables) command.push_back(name + "=" + value);
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& argument : command) argv.push_back(argument.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int started = posix_spawnp(&child, "env", &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (started != 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

inline bool UnderWine() {
    return false;
}

inline void UseRegistryFile(const std::string& path) {
    if (!detail::g_registryReplaced) {
        const char* before = std::getenv("QUELMKSP_REGISTRY");
        if (before) detail::g_registryBefore = before;
        detail::g_registryReplaced = true;
    }
    setenv("QUELMKSP_REGISTRY", path.c_str(), 1);
}

inline void ForgetRegistryFile() {
    if (!detail::g_registryReplaced) return;
    if (detail::g_registryBefore)
        setenv("QUELMKSP_REGISTRY", detail::g_registryBefore->c_str(), 1);
    else
        unsetenv("QUELMKSP_REGISTRY");
    detail::g_registryBefore.reset();
    detail::g_registryReplaced = false;
}

}  // namespace test_system
