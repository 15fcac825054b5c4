#include "ui/model_toolkit.h"

#include <algorithm>

#include "platform/secure_zero.h"

namespace {

// Case folding for ASCII and Latin-1 letters, enough for reader names.
platform::WideChar Fold(platform::WideChar c) {
    if ((c >= u'A' && c <= u'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7)) return c + 0x20;
    return c;
}

bool LessIgnoringCase(platform::WideView a, platform::WideView b) {
    return std::lexicographical_compare(
        a.begin(), a.end(), b.begin(), b.end(),
        [](platform::WideChar x, platform::WideChar y) { return Fold(x) < Fold(y); });
}

const std::vector<platform::WideString> kNoItems;

}  // namespace

void ModelToolkit::SetControlText(int id, platform::WideView text) {
    if (id == dialog_ids::kPin) {
        platform::WideString copy(text);
        UpdatePin(copy, copy.size());
        return;
    }
    texts_[id] = text;
}

size_t ModelToolkit::ControlTextLength(int id) {
    return ControlText(id).size();
}

void ModelToolkit::LimitText(int id, uint32_t characters) {
    if (id == dialog_ids::kPin) pinLimit_ = characters;
}

platform::WideString ModelToolkit::ControlText(int id) const {
    if (auto list = lists_.find(id); list != lists_.end()) {
        int selected = list->second.selected;
        return selected < 0 ? platform::WideString() : list->second.items[selected];
    }
    auto found = texts_.find(id);
    return found == texts_.end() ? platform::WideString() : found->second;
}

void ModelToolkit::ResetList(int id) {
    lists_[id] = List{};
}

void ModelToolkit::AddListItem(int id, platform::WideView text) {
    List& list = lists_[id];
    auto at = std::upper_bound(
        list.items.begin(), list.items.end(), text,
        [](platform::WideView a, const platform::WideString& b) { return LessIgnoringCase(a, b); });
    int index = static_cast<int>(at - list.items.begin());
    list.items.emplace(at, text);
    if (list.selected >= index) ++list.selected;
}

void ModelToolkit::SelectListItem(int id, int index) {
    List& list = lists_[id];
    list.selected = index >= 0 && index < static_cast<int>(list.items.size()) ? index : -1;
}

const std::vector<platform::WideString>& ModelToolkit::ListItems(int id) const {
    auto found = lists_.find(id);
    return found == lists_.end() ? kNoItems : found->second.items;
}

int ModelToolkit::SelectedListItem(int id) const {
    auto found = lists_.find(id);
    return found == lists_.end() ? -1 : found->second.selected;
}

bool ModelToolkit::IsEnabled(int id) const {
    auto found = disabled_.find(id);
    return found == disabled_.end() || !found->second;
}

bool ModelToolkit::Begin(DialogEvents& events) {
    events_ = &events;
    template_ = events.DialogTemplate();
    result_.reset();
    if (template_ == dialog_ids::kTemplate)
        disabled_[dialog_ids::kOk] = true;
    else if (template_ == selection_ids::kTemplate)
        title_ = selection_texts::kTitle;
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

void ModelToolkit::OpenList(int id) {
    if (events_ && id == selection_ids::kReaders && IsEnabled(id)) events_->OnCbnDropdownReaders();
}

void ModelToolkit::ChooseListItem(int id, int index) {
    if (IsEnabled(id) && index >= 0 && index < static_cast<int>(ListItems(id).size()))
        SelectListItem(id, index);
}

void ModelToolkit::UpdatePin(platform::WideString& text, size_t caret) {
    texts_[dialog_ids::kPin] = cells_.OnUpdate(text, caret);
    platform::SecureZero(text.data(), text.size() * sizeof(platform::WideChar));
    if (events_) events_->OnEnChangePin();
}
