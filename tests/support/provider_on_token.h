// A provider opened through the table the router gets, on real SoftHSM2
// tokens behind the middleware, with its logs in the test's folder.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "fresh_provider_state.h"
#include "provider/ncrypt_provider.h"
#include "provider/provider_context.h"
#include "softhsm_tokens.h"

// The record behind a key handle, for tests that look inside it.
inline QUELMKSP_KEY* KeyRecord(NCRYPT_KEY_HANDLE handle) {
    return reinterpret_cast<QUELMKSP_KEY*>(handle);
}

class ProviderOnToken : public ::testing::Test {
protected:
    // "Velmora KSP v4.5" as the installation registers it.
    static std::string Aliases() {
        return std::string(RegistryFile::kProviderKey) +
               "\"Aliases\"=hex(7):56,00,65,00,6c,00,6d,00,6f,00,72,00,61,00,20,00,4b,00,53,00,"
               "50,00,20,00,76,00,34,00,2e,00,35,00,00,00,00,00\n";
    }

    // Makes the tokens, loads the provider's process-wide objects and opens
    // a provider silently on the first token.
    void OpenOn(const std::vector<std::string>& labels, const std::string& slotNames = "") {
        tokens_.emplace(dir_, labels);
        if (!slotNames.empty()) SoftHsmTokens::NameSlots(slotNames);
        state_.emplace(dir_, Aliases() + extraRegistry_, QUELMPKCS11_PATH);
        ASSERT_NE(g_pCryptoki, nullptr) << g_bindingError;
        ASSERT_EQ(GetKeyStorageInterface(WIDE("Velmora KSP v4.5"), &table_, 0), 0);
        ASSERT_EQ(table_->OpenProvider(&provider_, WIDE("Velmora KSP v4.5"), NCRYPT_SILENT_FLAG),
                  0);
    }

    void TearDown() override {
        if (provider_) {
            EXPECT_EQ(table_->FreeProvider(provider_), 0);
        }
    }

    QUELMKSP_PROVIDER& Provider() const { return *reinterpret_cast<QUELMKSP_PROVIDER*>(provider_); }

    // An attribute read in the provider's own session, which alone sees its
    // session objects.
    std::vector<uint8_t> SessionAttribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const {
        CK_FUNCTION_LIST& token = *g_pCryptoki->functions();
        CK_ATTRIBUTE attribute = {type, nullptr, 0};
        EXPECT_EQ(token.C_GetAttributeValue(Provider().hSession, object, &attribute, 1), CKR_OK);
        std::vector<uint8_t> value(attribute.ulValueLen);
        attribute.pValue = value.data();
        EXPECT_EQ(token.C_GetAttributeValue(Provider().hSession, object, &attribute, 1), CKR_OK);
        return value;
    }
    std::string TokenLog() const { return state_->Log(); }
    std::vector<std::string> LogLines() const { return state_->LogLines(); }
    void ClearLog() const { state_->ClearLog(); }

    // Values of the provider's registry key beyond its aliases, set before
    // the provider is opened.
    std::string extraRegistry_;
    TempDir dir_;
    std::optional<SoftHsmTokens> tokens_;
    std::optional<FreshProviderState> state_;
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table_ = nullptr;
    NCRYPT_PROV_HANDLE provider_ = 0;
};
