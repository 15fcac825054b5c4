#include "ui/model_toolkit.h"

#include "platform/secure_zero.h"

void ModelToolkit::SetControlText(int id, platform::WideView text) {
    if (id == dialog_ids::kPin) {
        platform::WideString copy(text);
        UpdatePin(copy, copy.size());
        return;
    }
    texts_[id] = text;
}

size_t ModelToolkit::ControlTextLength(int id) {
    auto found = texts_.find(id);
    return found == texts_.end() ? 0 : found->second.size();
}

void ModelToolkit::LimitText(int id, uint32_t characters) {
    if (id == dialog_ids::kPin) pinLimit_ = characters;
}

platform::WideString ModelToolkit::ControlText(int id) const {
    auto found = texts_.find(id);
    return found == texts_.end() ? platform::WideString() : found->second;
}

bool ModelToolkit::IsEnabled(int id) const {
    auto found = disabled_.find(id);
    return found == disabled_.end() || !found->second;
}

bool ModelToolkit::Begin(DialogEvents& events) {
    events_ = &events;
    result_.reset();
    disabled_[dialog_ids::kOk] = true;
    events.OnInitDialog();
    return !Ended();
}

void ModelToolkit::TypeInPin(platform::WideView characters) {
    if (!IsEnabled(dialog_ids::kPin)) return;
    platform::WideString text = ControlText(dialog_ids::kPin);
    // Room up front, so that no reallocation leaves typed characters behind.
    text.reserve(text.size() + characters.size() + 1);
    for (platform::WideChar c : characters) {
        // A limit of 0 leaves the field its largest length.
        if (pinLimit_ && text.size() >= pinLimit_) break;
        text.push_back(c);
    }
    UpdatePin(text, text.size());
}

void ModelToolkit::BackspaceInPin() {
    platform::WideString text = ControlText(dialog_ids::kPin);
    if (!IsEnabled(dialog_ids::kPin) || text.empty()) return;
    text.pop_back();
    UpdatePin(text, text.size());
}

void ModelToolkit::Press(int button) {
    if (!events_ || !IsEnabled(button)) return;
    if (button == dialog_ids::kOk)
        events_->OnBnClickedOk();
    else if (button == dialog_ids::kCancel)
        events_->OnBnClickedCancel();
}

void ModelToolkit::UpdatePin(platform::WideString& text, size_t caret) {
    texts_[dialog_ids::kPin] = cells_.OnUpdate(text, caret);
    platform::SecureZero(text.data(), text.size() * sizeof(platform::WideChar));
    if (events_) events_->OnEnChangePin();
}
