// The client's exit codes, as the README lists them, so that scripts can
// tell a bad signature from a missing key or a refused PIN.
#pragma once

namespace exit_code {

inline constexpr int kOk = 0;
// Also delete's answer when the question was answered with anything but yes:
// in both cases the command ran and the answer is "no".
inline constexpr int kSignatureMismatch = 1;
inline constexpr int kUsage = 2;
inline constexpr int kProvider = 3;
inline constexpr int kNoSuchKey = 4;
inline constexpr int kLogin = 5;
inline constexpr int kData = 6;
inline constexpr int kExists = 7;
inline constexpr int kOtherKey = 8;
inline constexpr int kNoCertificate = 9;
inline constexpr int kUnavailable = 10;
// The token refused the data it was given: a ciphertext not made for the key
// or damaged, told apart from a provider fault by a test message.
inline constexpr int kRefusedInput = 11;
// The token's flags say the PIN is locked: no PIN will do until it is
// unblocked, unlike a wrong PIN (kLogin).
inline constexpr int kPinLocked = 12;
// register and unregister: CNG's registration functions are stubs here
// (Wine), so only the configuration values were written or removed.
inline constexpr int kRegistrationStubbed = 13;

}  // namespace exit_code
