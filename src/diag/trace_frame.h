// The frame that every exported operation writes around its work:
//
//   ==================================================================
//   QUELMKSPSignHash - Entry
//   hProvider    : 0x00A1B2C0
//   ...                         (progress lines, the failing check)
//   QUELMKSPSignHash - Exit: 0x00000000
//   ==================================================================
//   (two empty lines)
//
// The argument labels are padded so that their colons line up. The exit
// line is written when the frame goes out of scope, so an operation has one
// exit however it returns.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

#include "diag/debug_class.h"

// Values that the log shows as "0x%08X": handles, pointers, lengths, flags.
template <typename T>
concept Scalar = std::is_integral_v<T> || std::is_pointer_v<T> || std::is_enum_v<T>;
template <typename T>
concept LoggedAsHex = Scalar<T> && !std::is_convertible_v<T, const platform::WideChar*>;

// One argument line: handles, pointers, lengths and flags in hex, wide
// strings as text.
class TraceArg {
public:
    TraceArg(const char* name, const platform::WideChar* text)
        : name_(name), text_(text), isText_(true) {}

    template <LoggedAsHex T>
    TraceArg(const char* name, T value) : name_(name), value_(Low32(value)) {}

    std::string_view name() const { return name_; }
    void WriteTo(DebugClass& log, const std::string& label) const;

private:
    std::string_view name_;
    const platform::WideChar* text_ = nullptr;
    uint32_t value_ = 0;
    bool isText_ = false;
};

class TraceFrame {
public:
    static constexpr std::string_view kRule =
        "==================================================================";

    // unwoundStatus is what the exit line shows if the operation is left by
    // an exception, which the export shell turns into that same status.
    // entrySuffix follows the function's name on the entry line.
    TraceFrame(DebugClass& log, std::string_view function, std::initializer_list<TraceArg> args,
               int32_t unwoundStatus, std::string_view entrySuffix = " - Entry");
    ~TraceFrame();
    TraceFrame(const TraceFrame&) = delete;
    TraceFrame& operator=(const TraceFrame&) = delete;

    // Records the status that the exit line will carry, and returns it.
    int32_t Exit(int32_t status) {
        status_ = status;
        return status;
    }

    // Writes "<STATUS NAME>: explanation" and records the status.
    int32_t Fail(int32_t status, std::string_view explanation);

    // A progress line.
    void Line(std::string_view text) { log_.WriteLine(text); }

    // Some operations label their exit line differently.
    void SetExitLabel(std::string label) { exitLabel_ = std::move(label); }

    // Some write a fixed exit line that does not show the status.
    void SetExitLineWithoutStatus(std::string line) {
        exitLabel_ = std::move(line);
        exitShowsStatus_ = false;
    }

    // A few failures leave the operation without its exit lines.
    int32_t ExitWithoutTrace(int32_t status) {
        writeExit_ = false;
        return Exit(status);
    }

    DebugClass& log() { return log_; }

private:
    DebugClass& log_;
    std::string exitLabel_;
    bool exitShowsStatus_ = true;
    bool writeExit_ = true;
    int32_t status_;
};
