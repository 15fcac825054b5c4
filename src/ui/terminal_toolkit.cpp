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
    if (Begin(events)) {
        terminal_->Write("\n" + platform::ToUtf8(title()) + "\n");
        if (Template() == selection_ids::kTemplate)
            RunSelection();
        else
            RunPin();
        terminal_->Write("\n");
    }
    terminal_.reset();
    return Ended() ? Result() : kIdCancel;
}

void TerminalToolkit::RunPin() {
    Prompt();
    while (!Ended()) {
        int byte = terminal_->ReadByte();
        if (byte < 0) {
            Press(dialog_ids::kCancel);
            return;
        }
        OnByte(byte);
    }
}

void TerminalToolkit::RunSelection() {
    terminal_->Write(platform::ToUtf8(selection_texts::kPrompt) + "\n");
    ShowReaders();
    while (!Ended()) {
        int byte = terminal_->ReadByte();
        if (byte < 0) {
            Press(selection_ids::kCancel);
            return;
        }
        OnSelectionByte(byte);
    }
}

void TerminalToolkit::ShowReaders() {
    const auto& readers = ListItems(selection_ids::kReaders);
    int selected = SelectedListItem(selection_ids::kReaders);
    std::string text;
    for (size_t i = 0; i < readers.size(); ++i) {
        text += static_cast<int>(i) == selected ? "> " : "  ";
        text += std::to_string(i + 1) + ") " + platform::ToUtf8(readers[i]) + "\n";
    }
    text += "[1-" + std::to_string(readers.size()) +
            "] lector, Espacio: buscar de nuevo, Intro: " + platform::ToUtf8(selection_texts::kOk) +
            ", Esc: " + platform::ToUtf8(selection_texts::kCancel) + "\n";
    terminal_->Write(text);
}

void TerminalToolkit::OnSelectionByte(int byte) {
    if (byte == kEnter || byte == kReturn) {
        pendingNumber_ = 0;
        Press(selection_ids::kOk);
    } else if (byte == kEscape) {
        Press(selection_ids::kCancel);
    } else if (byte == ' ') {
        pendingNumber_ = 0;
        OpenList(selection_ids::kReaders);
        if (!Ended()) ShowReaders();
    } else if (byte >= '0' && byte <= '9') {
        const int count = static_cast<int>(ListItems(selection_ids::kReaders).size());
        const int digit = byte - '0';
        // Several digits make one number while it still names a reader.
        int number = pendingNumber_ * 10 + digit;
        if (number < 1 || number > count) number = digit >= 1 && digit <= count ? digit : 0;
        pendingNumber_ = number;
        if (!number) return;
        ChooseListItem(selection_ids::kReaders, number - 1);
        terminal_->Write("> " + std::to_string(number) + ") " +
                         platform::ToUtf8(ControlText(selection_ids::kReaders)) + "\n");
    }
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
