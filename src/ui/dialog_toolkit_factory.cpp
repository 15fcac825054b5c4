#include <atomic>

#include "pin/dialog_toolkit.h"

std::unique_ptr<DialogToolkit> MakePlatformDialogToolkit();

namespace {

std::atomic<DialogToolkitFactory> g_factory{&MakePlatformDialogToolkit};

}  // namespace

std::unique_ptr<DialogToolkit> MakeDialogToolkit() {
    return g_factory.load()();
}

DialogToolkitFactory SetDialogToolkitFactory(DialogToolkitFactory factory) {
    return g_factory.exchange(factory ? factory : &MakePlatformDialogToolkit);
}
