#include "diag/debug_class.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <mutex>

#include "config/registry_paths.h"
#include "platform/clock.h"
#include "platform/debug_output.h"
#include "platform/log_file.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace {

// Sizes of the buffers the values are read into: a longer value is
// unreadable, and an unreadable value leaves logging off.
constexpr uint32_t kSwitchBufferBytes = 32;
constexpr uint32_t kPathBufferBytes = 4096;

bool ReadString(const platform::WideChar* name, platform::WideString& out, uint32_t bufferBytes) {
    platform::WideString buffer(bufferBytes / sizeof(platform::WideChar), 0);
    uint32_t size = bufferBytes;
    long status = platform::registry::GetValue(
        config::kSdkKey, name, platform::registry::kRestrictString, nullptr, buffer.data(), &size);
    if (status != platform::registry::kSuccess) return false;
    out.assign(buffer.c_str());
    return true;
}

}  // namespace

DebugClass::DebugClass(bool writeBanner) {
    platform::DebugOutput(WIDE("DebugClass ctor - Enter"));
    platform::WideString logSwitch;
    if (ReadString(WIDE("KSPLOG"), logSwitch, kSwitchBufferBytes) && logSwitch != kLogSwitchOff &&
        ReadString(WIDE("KSPDIR"), path_, kPathBufferBytes)) {
        enabled_ = true;
        // Opening for append creates the file even when there is nothing
        // to write yet.
        Append(writeBanner ? Banner() : std::string());
    }
    platform::DebugOutput(WIDE("DebugClass ctor - Exit"));
}

std::string DebugClass::Banner() {
    return "\n\n" + std::string(66, '*') + " LOG START - " +
           platform::CtimeText(std::time(nullptr)) + "\n";
}

void DebugClass::Append(std::string_view text) {
    std::lock_guard<platform::CriticalSection> guard(lock_);
    // A log that cannot be written must never disturb the operation.
    platform::AppendToTextFile(path_, text);
}

bool DebugClass::Wanted() const {
    return enabled_ || platform::DebugOutputEnabled();
}

void DebugClass::WriteLine(std::string_view text) {
    try {
        platform::DebugOutput(text);
        if (!enabled_) return;
        std::string line(text);
        line.push_back('\n');
        Append(line);
    } catch (...) {
    }
}

void DebugClass::WriteText(std::string_view label, std::string_view text) {
    if (!Wanted()) return;
    try {
        WriteLine(std::string(label) + std::string(text));
    } catch (...) {
    }
}

std::string HexValue(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", value);
    return text;
}

void DebugClass::WriteHex(std::string_view label, uint32_t value) {
    if (!Wanted()) return;
    WriteText(label, HexValue(value));
}

void DebugClass::WriteHexToOpLog(std::string_view label, uint32_t value) {
    if (g_pOpLog) g_pOpLog->WriteHex(label, value);
}

void DebugClass::WriteInt(std::string_view label, int32_t value) {
    if (g_pTokenLog && g_pTokenLog->Wanted()) g_pTokenLog->WriteText(label, std::to_string(value));
}

void DebugClass::WriteWide(std::string_view label, const platform::WideChar* text) {
    if (!Wanted()) return;
    try {
        WriteText(label, text ? platform::ToAnsi(text, kMaxWideBytes) : std::string("NULL"));
    } catch (...) {
    }
}

void DebugClass::WriteBytes(std::string_view label, const void* bytes, uint32_t length) {
    if (!Wanted()) return;
    try {
        if (!bytes || length == 0) return WriteText(label, "NULL");
        const auto* data = static_cast<const unsigned char*>(bytes);
        size_t shown = std::min<size_t>(length, kMaxDumpBytes);
        std::string dump;
        dump.reserve(shown * 3);
        char cell[4];
        for (size_t i = 0; i < shown; ++i) {
            std::snprintf(cell, sizeof cell, "%02X ", data[i]);
            dump += cell;
        }
        WriteText(label, dump);
    } catch (...) {
    }
}
