// The diagnostic log.
//
// Every line goes to the debugger output. When the registry switches logging
// on, it is also appended to the log file, which is opened and closed around
// each line so that several instances and processes can share it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/sync.h"
#include "platform/wide_string.h"

class DebugClass {
public:
    explicit DebugClass(bool writeBanner);
    DebugClass(const DebugClass&) = delete;
    DebugClass& operator=(const DebugClass&) = delete;

    void WriteLine(std::string_view text);
    void WriteText(std::string_view label, std::string_view text);
    // Handles and pointers are passed as their low 32 bits.
    void WriteHex(std::string_view label, uint32_t value);
    // As WriteHex, but always into the operation log.
    void WriteHexToOpLog(std::string_view label, uint32_t value);
    // Always into the token log.
    void WriteInt(std::string_view label, int32_t value);
    void WriteWide(std::string_view label, const platform::WideChar* text);
    void WriteBytes(std::string_view label, const void* bytes, uint32_t length);

    bool enabled() const { return enabled_; }
    // Whether a line written now reaches the file or the debugger output.
    bool Wanted() const;

    static constexpr platform::WideView kLogSwitchOff = WIDE("00000000");
    static constexpr size_t kMaxDumpBytes = 500;
    static constexpr size_t kMaxWideBytes = 511;

private:
    static std::string Banner();
    void Append(std::string_view text);

    bool enabled_ = false;
    platform::WideString path_;
    platform::CriticalSection lock_;
};

// The logs that live for the whole process, created at library load.
extern DebugClass* g_pTokenLog;
extern DebugClass* g_pOpLog;
extern DebugClass g_dialogLog;

// Formats a value the way the log shows handles, pointers and statuses.
std::string HexValue(uint32_t value);

// The low 32 bits of a pointer or handle, which is what the log shows.
template <typename T>
uint32_t Low32(T value) {
    if constexpr (std::is_pointer_v<T>)
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(value));
    else
        return static_cast<uint32_t>(value);
}
