// A provider on a SoftHSM2 token whose PIN dialogs play a script, with a
// fresh PIN cache.
#pragma once

#include <memory>
#include <vector>

#include "pin/pin_manager.h"
#include "provider_on_token.h"
#include "ui/scripted_toolkit.h"

class PinDialog : public ProviderOnToken {
protected:
    void SetUp() override {
        OpenOn({"Token One"});
        // The dialog log is made at load like the others; this one must see
        // the test's logging settings.
        g_dialogLog.~DebugClass();
        new (&g_dialogLog) DebugClass(false);
        savedPinManager_ = g_pPinManager;
        g_pPinManager = new PinManager();
        NewScript();
    }

    // The script that the next dialogs play.
    DialogScript& NewScript() {
        script_ = std::make_shared<DialogScript>();
        ScriptedToolkit::Install(script_);
        return *script_;
    }
    void TearDown() override {
        SetDialogToolkitFactory(nullptr);
        delete g_pPinManager;
        g_pPinManager = savedPinManager_;
        ProviderOnToken::TearDown();
    }

    // A second provider on the same token.
    NCRYPT_PROV_HANDLE OpenAnother() {
        NCRYPT_PROV_HANDLE other = 0;
        EXPECT_EQ(table_->OpenProvider(&other, WIDE("Velmora KSP v4.5"), NCRYPT_SILENT_FLAG), 0);
        others_.push_back(other);
        return other;
    }
    static QUELMKSP_PROVIDER* Record(NCRYPT_PROV_HANDLE handle) {
        return reinterpret_cast<QUELMKSP_PROVIDER*>(handle);
    }
    void TearDownOthers() {
        for (NCRYPT_PROV_HANDLE other : others_) table_->FreeProvider(other);
        others_.clear();
    }

    std::shared_ptr<DialogScript> script_;
    PinManager* savedPinManager_ = nullptr;
    std::vector<NCRYPT_PROV_HANDLE> others_;
};
