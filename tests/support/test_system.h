// What the test fixtures need from the system, the same on both platforms.
// On Windows the tests run under Wine, where SoftHSM2 and the middleware
// live on the Unix side of the process.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace test_system {

// The process environment, as the provider and the token module see it.
inline void SetVariable(const std::string& name, const std::string& value);
inline void UnsetVariable(const std::string& name);
// Empty when the variable is not set.
inline std::string Variable(const std::string& name);

// A path as Unix programs (SoftHSM2, its tools) must be given it.
inline std::string UnixPath(const std::string& path);

// Runs a Unix program with these variables added to its environment and its
// output discarded. Returns its exit status, or -1 when it could not run.
inline int RunUnixProgram(const std::vector<std::string>& arguments,
                          const std::vector<std::pair<std::string, std::string>>& variables);

// True in the Windows build when it runs under Wine, whose winscard is a stub
// and whose CryptProtectMemory leaves the data as it is. Tests that depend
// on either skip there, saying so with GTEST_SKIP().
inline bool UnderWine();

// Makes a registry file the provider's configuration, replacing what the
// last one set; ForgetRegistryFile undoes it.
inline void UseRegistryFile(const std::string& path);
inline void ForgetRegistryFile();

}  // namespace test_system

#ifdef _WIN32
#include "win32/test_system.h"
#else
#include "posix/test_system.h"
#endif
