// The toolkit the tests drive: a script of keystrokes and clicks that the
// next dialogs play, and a record of what the dialog showed after each step.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ui/model_toolkit.h"

struct DialogSnapshot {
    platform::WideString status;
    platform::WideString pinText;
    bool okEnabled;
    bool pinEnabled;
    // The card selection's reader list, in the order shown.
    std::vector<platform::WideString> readers;
    int selectedReader;
};

class DialogScript {
public:
    DialogScript& Type(platform::WideView text);
    DialogScript& Backspace();
    DialogScript& ClickOk();
    DialogScript& ClickCancel();
    // The card selection's reader list: dropped down, or an entry picked.
    DialogScript& OpenReaderList();
    DialogScript& ChooseReader(int index);
    // Runs code of the test while the dialog is open.
    DialogScript& Then(std::function<void()> step);

    // Filled in while the dialog runs.
    platform::WideString title;
    // What the dialog showed once initialised, then after each step.
    std::optional<DialogSnapshot> initial;
    std::vector<DialogSnapshot> snapshots;
    std::atomic<int> runs{0};

private:
    friend class ScriptedToolkit;
    std::vector<std::function<void(class ScriptedToolkit&)>> steps_;
};

class ScriptedToolkit : public ModelToolkit {
public:
    explicit ScriptedToolkit(std::shared_ptr<DialogScript> script) : script_(std::move(script)) {}

    // Every dialog made from now on plays this script (null: none can be
    // made, as without a terminal).
    static void Install(std::shared_ptr<DialogScript> script);

    intptr_t RunModal(DialogEvents& events, uint64_t parentWindow) override;

    using ModelToolkit::BackspaceInPin;
    using ModelToolkit::ChooseListItem;
    using ModelToolkit::OpenList;
    using ModelToolkit::Press;
    using ModelToolkit::TypeInPin;

private:
    DialogSnapshot Snapshot() const;
    std::shared_ptr<DialogScript> script_;
};
