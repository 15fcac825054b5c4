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
    if (!Begin(events)) return Result();
    script_->title = title();
    for (auto& step : script_->steps_) {
        step(*this);
        Snapshot();
        if (Ended()) return Result();
    }
    // A script that runs out is a user walking away.
    Press(dialog_ids::kCancel);
    return Ended() ? Result() : kIdCancel;
}

void ScriptedToolkit::Snapshot() {
    script_->snapshots.push_back({ControlText(dialog_ids::kStatus), ControlText(dialog_ids::kPin),
                                  IsEnabled(dialog_ids::kOk), IsEnabled(dialog_ids::kPin)});
}
