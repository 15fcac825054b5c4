#include "ui/scripted_toolkit.h"

namespace {

std::mutex g_scriptLock;
std::shared_ptr<DialogScript> g_script;

std::unique_ptr<DialogToolkit> MakeScripted() {
    std::lock_guard<std::mutex> guard(g_scriptLock);
    if (!g_script) return nullptr;
    return std::make_unique<ScriptedToolkit>(g_script);
}

}  // namespace

DialogScript& DialogScript::Type(platform::WideView text) {
    platform::WideString copy(text);
    steps_.push_back([copy](ScriptedToolkit& ui) { ui.TypeInPin(copy); });
    return *this;
}

DialogScript& DialogScript::Backspace() {
    steps_.push_back([](ScriptedToolkit& ui) { ui.BackspaceInPin(); });
    return *this;
}

DialogScript& DialogScript::ClickOk() {
    steps_.push_back([](ScriptedToolkit& ui) { ui.Press(dialog_ids::kOk); });
    return *this;
}

DialogScript& DialogScript::ClickCancel() {
    steps_.push_back([](ScriptedToolkit& ui) { ui.Press(dialog_ids::kCancel); });
    return *this;
}

DialogScript& DialogScript::OpenReaderList() {
    steps_.push_back([](ScriptedToolkit& ui) { ui.OpenList(selection_ids::kReaders); });
    return *this;
}

DialogScript& DialogScript::ChooseReader(int index) {
    steps_.push_back(
        [index](ScriptedToolkit& ui) { ui.ChooseListItem(selection_ids::kReaders, index); });
    return *this;
}

DialogScript& DialogScript::Then(std::function<void()> step) {
    steps_.push_back([step](ScriptedToolkit&) { step(); });
    return *this;
}

void ScriptedToolkit::Install(std::shared_ptr<DialogScript> script) {
    {
        std::lock_guard<std::mutex> guard(g_scriptLock);
        g_script = std::move(script);
    }
    SetDialogToolkitFactory(&MakeScripted);
}

intptr_t ScriptedToolkit::RunModal(DialogEvents& events, uint64_t) {
    ++script_->runs;
    bool open = Begin(events);
    script_->title = title();
    script_->initial = Snapshot();
    if (!open) return Result();
    for (auto& step : script_->steps_) {
        step(*this);
        script_->snapshots.push_back(Snapshot());
        if (Ended()) return Result();
    }
    // A script that runs out is a user walking away.
    Press(dialog_ids::kCancel);
    return Ended() ? Result() : kIdCancel;
}

DialogSnapshot ScriptedToolkit::Snapshot() const {
    return {ControlText(dialog_ids::kStatus),   ControlText(dialog_ids::kPin),
            IsEnabled(dialog_ids::kOk),         IsEnabled(dialog_ids::kPin),
            ListItems(selection_ids::kReaders), SelectedListItem(selection_ids::kReaders)};
}
