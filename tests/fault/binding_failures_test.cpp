#include <gtest/gtest.h>

#include <optional>

#include "provider/ncrypt_provider.h"
#include "support/fresh_provider_state.h"
#include "support/mock_module.h"

namespace {

using Lines = std::vector<std::string>;

class BindingFailures : public ::testing::Test {
protected:
    TempDir dir_;
    MockModule mock_;
    std::optional<FreshProviderState> state_;
};

}  // namespace

TEST_F(BindingFailures, EachWayTheModuleCanFailHasItsLogLinesAndUserText) {
    struct Case {
        const char* module;
        const char* function;  // scripted to fail, or null
        CK_RV rv;
        const char* userText;
        Lines log;
    };
    const Case cases[] = {
        {"/nonexistent/libquelmpkcs11.so",
         nullptr,
         CKR_OK,
         "No se pudo cargar la biblioteca PKCS#11",
         {"Failed to load PKCS#11 Library."}},
        {MockModule::kNotAModulePath,
         nullptr,
         CKR_OK,
         "No se pudo recuperar la lista de funciones de middleware",
         {"PKCS#11 library loaded successfully", "Failed to get function list",
          "Failed to retrieve middleware function list."}},
        {MockModule::kPath,
         "C_GetFunctionList",
         CKR_GENERAL_ERROR,
         "No se pudo recuperar la lista de funciones de middleware",
         {"PKCS#11 library loaded successfully", "Get Function List success",
          "Failed to load function list", "Failed to retrieve middleware function list."}},
        {MockModule::kPath,
         "C_Initialize",
         CKR_GENERAL_ERROR,
         "No se pudo recuperar la lista de funciones de middleware",
         {"PKCS#11 library loaded successfully", "Get Function List success",
          "Load Function List success", "PKCS#11 library function list retrieved",
          "Failed to intialize PKCS middleware."}},
    };
    for (const Case& c : cases) {
        mock_.Reset();
        if (c.function) mock_.Fail(c.function, c.rv);
        WriteFile(dir_ / "ksp.log", "");
        state_.emplace(dir_, "", c.module);
        EXPECT_EQ(g_pCryptoki, nullptr) << c.module;
        EXPECT_EQ(g_bindingError, c.userText);
        EXPECT_EQ(state_->LogLines(), c.log);

        // The router learns of it when it asks for the table.
        state_->ClearLog();
        NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
        EXPECT_EQ(GetKeyStorageInterface(u"Velmora KSP v4.5", &table, 0), NTE_PROVIDER_DLL_FAIL);
        EXPECT_EQ(table, nullptr);
        EXPECT_EQ(state_->LogLines().at(4), std::string("NTE_PROVIDER_DLL_FAIL: ") + c.userText);
        state_.reset();
    }
}

TEST_F(BindingFailures, AModuleThatSomeoneElseInitialisedIsReady) {
    mock_.Fail("C_Initialize", CKR_CRYPTOKI_ALREADY_INITIALIZED);
    state_.emplace(dir_, "", MockModule::kPath);
    ASSERT_NE(g_pCryptoki, nullptr);
    EXPECT_EQ(state_->LogLines().back(), "PKCS#11 library initialized successfully");
}

TEST(MapCkrToStatus, TurnsTokenResultsIntoCallerStatuses) {
    EXPECT_EQ(MapCkrToStatus(CKR_OK), 0);
    EXPECT_EQ(MapCkrToStatus(CKR_CANCEL), 1223);
    EXPECT_EQ(MapCkrToStatus(CKR_DEVICE_MEMORY), NTE_NO_MEMORY);
    EXPECT_EQ(MapCkrToStatus(CKR_TEMPLATE_INCONSISTENT), NTE_INVALID_PARAMETER);
    EXPECT_EQ(MapCkrToStatus(CKR_FUNCTION_FAILED), 1627);
    EXPECT_EQ(MapCkrToStatus(CKR_ARGUMENTS_BAD), 160);
    EXPECT_EQ(MapCkrToStatus(CKR_USER_NOT_LOGGED_IN), NTE_PERM);
    EXPECT_EQ(MapCkrToStatus(CKR_DEVICE_ERROR), NTE_INTERNAL_ERROR);
    EXPECT_EQ(MapCkrToStatus(CKR_FUNCTION_NOT_SUPPORTED), NTE_NOT_SUPPORTED);
    EXPECT_EQ(MapCkrToStatus(CKR_SESSION_HANDLE_INVALID), NTE_INVALID_HANDLE);
    EXPECT_EQ(MapCkrToStatus(CKR_PIN_INCORRECT), 1326);
    EXPECT_EQ(MapCkrToStatus(CKR_PIN_LOCKED), 1331);
    EXPECT_EQ(MapCkrToStatus(CKR_GENERAL_ERROR), NTE_FAIL);
}
