// Reading one value from a registry file in the .reg text format.
//
// The file is read afresh on every lookup, as the registry would be, and
// streamed so that an enormous file costs time but not memory. A malformed
// line makes only what it touches unreadable: a broken key line hides the
// values under it, and a broken value line makes that value unreadable even
// when an earlier line set it. Nothing that is not in the file is returned.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace platform::regfile {

struct Value {
    uint32_t type = 0;
    std::vector<uint8_t> data;
};

enum class Outcome {
    kKeyMissing,    // the key is not in the file (or the file is unreadable)
    kValueMissing,  // the key is there, the value is not
    kUnreadable,    // the value is there but malformed
    kFound,
};

struct Lookup {
    Outcome outcome = Outcome::kKeyMissing;
    Value value;
};

// Looks up HKEY_LOCAL_MACHINE\subKey, value valueName (empty for the default
// value). Key paths and value names compare without regard to case.
Lookup Find(const std::string& filePath, std::u16string_view subKey, std::u16string_view valueName);

// The same over the file's bytes, for callers that have them in memory.
Lookup FindInBytes(std::string_view fileBytes, std::u16string_view subKey,
                   std::u16string_view valueName);

}  // namespace platform::regfile
