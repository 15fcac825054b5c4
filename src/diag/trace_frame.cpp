#include "diag/trace_frame.h"

#include <algorithm>

#include "diag/status_names.h"

void TraceArg::WriteTo(DebugClass& log, const std::string& label) const {
    if (isText_)
        log.WriteWide(label, text_);
    else
        log.WriteHex(label, value_);
}

TraceFrame::TraceFrame(DebugClass& log, std::string_view function,
                       std::initializer_list<TraceArg> args, int32_t unwoundStatus,
                       std::string_view entrySuffix)
    : log_(log), exitLabel_(std::string(function) + " - Exit: "), status_(unwoundStatus) {
    if (!log_.Wanted()) return;
    log_.WriteLine(kRule);
    log_.WriteLine(std::string(function) + std::string(entrySuffix));
    size_t width = 0;
    for (const TraceArg& arg : args) width = std::max(width, arg.name().size());
    for (const TraceArg& arg : args) {
        std::string label(arg.name());
        label.append(width - label.size() + 1, ' ').append(": ");
        arg.WriteTo(log_, label);
    }
}

TraceFrame::~TraceFrame() {
    if (!writeExit_ || !log_.Wanted()) return;
    try {
        if (exitShowsStatus_)
            log_.WriteHex(exitLabel_, static_cast<uint32_t>(status_));
        else
            log_.WriteLine(exitLabel_);
        log_.WriteLine(std::string(kRule) + "\n\n");
    } catch (...) {
    }
}

int32_t TraceFrame::Fail(int32_t status, std::string_view explanation) {
    if (log_.Wanted()) log_.WriteText(std::string(StatusName(status)) + ": ", explanation);
    return Exit(status);
}
