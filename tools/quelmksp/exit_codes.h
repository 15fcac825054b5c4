// The client's exit codes, as the README lists them, so that scripts can
// tell a bad signature from a missing key or a refused PIN.
#pragma once

namespace exit_code {

inline constexpr int kOk = 0;
inline constexpr int kSignatureMismatch = 1;
inline constexpr int kUsage = 2;
inline constexpr int kProvider = 3;
inline constexpr int kNoSuchKey = 4;
inline constexpr int kLogin = 5;
inline constexpr int kData = 6;

}  // namespace exit_code
