#include "ui/terminal_toolkit.h"

#include "platform/secure_zero.h"
#include "platform/text.h"

namespace {

constexpr int kEnter = '\n';
constexpr int kReturn = '\r';
constexpr int kEscape = 0x1B;
constexpr int kBackspace = '\b';
constexpr int kDelete = 0x7F;

}  // namespace

intptr_t TerminalToolkit::RunModal(DialogEvents& events, uint64_t) {
    terminal_ = platform::Terminal::Open();
    if (!terminal_) return kDialogNotCreated;
    if (!Begin(events)) return Result();
    terminal_->Write("\n" + platform::ToUtf8(title()) + "\n");
    Prompt();
    while (!Ended()) {
        int byte = terminal_->ReadByte();
        if (byte < 0) {
            Press(dialog_ids::kCancel);
            break;
        }
        OnByte(byte);
    }
    terminal_->Write("\n");
    terminal_.reset();
    return Ended() ? Result() : kIdCancel;
}

void TerminalToolkit::Prompt() {
    platform::WideString status = ControlText(dialog_ids::kStatus);
    if (!status.empty()) terminal_->Write(platform::ToUtf8(status) + "\n");
    terminal_->Write("PIN: " + std::string(ControlTextLength(dialog_ids::kPin), '*'));
}

void TerminalToolkit::OnByte(int byte) {
    if (byte == kEnter || byte == kReturn) {
        if (!IsEnabled(dialog_ids::kOk)) return;
        terminal_->Write("\n");
        Press(dialog_ids::kOk);
        if (!Ended()) Prompt();
    } else if (byte == kEscape) {
        Press(dialog_ids::kCancel);
    } else if (byte == kBackspace || byte == kDelete) {
        size_t before = ControlTextLength(dialog_ids::kPin);
        BackspaceInPin();
        if (ControlTextLength(dialog_ids::kPin) < before) terminal_->Write("\b \b");
    } else if (byte >= 0x20) {
        // A character may span several UTF-8 bytes; it is typed when whole.
        pendingUtf8_.push_back(static_cast<char>(byte));
        bool valid = false;
        platform::WideString typed = platform::FromUtf8(pendingUtf8_, &valid);
        if (!valid && pendingUtf8_.size() < 4) return;
        platform::SecureZero(pendingUtf8_.data(), pendingUtf8_.size());
        pendingUtf8_.clear();
        size_t before = ControlTextLength(dialog_ids::kPin);
        TypeInPin(typed);
        platform::SecureZero(typed.data(), typed.size() * sizeof(platform::WideChar));
        size_t added = ControlTextLength(dialog_ids::kPin) - before;
        terminal_->Write(std::string(added, '*'));
    }
}
