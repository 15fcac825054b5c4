#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "provider/provider_context.h"
#include "support/fresh_provider_state.h"
#include "support/mock_module.h"

namespace {

const std::string kAliases =
    std::string(RegistryFile::kProviderKey) +
    "\"Aliases\"=hex(7):56,00,65,00,6c,00,6d,00,6f,00,72,00,61,00,20,00,4b,00,53,00,50,00,20,"
    "00,76,00,34,00,2e,00,35,00,00,00,00,00\n";

class ProviderLifecycleFailures : public ::testing::Test {
protected:
    ProviderLifecycleFailures() : state_(dir_, kAliases, MockModule::kPath) {}

    SECURITY_STATUS Open(DWORD flags, NCRYPT_PROV_HANDLE* handle) {
        state_.ClearLog();
        return QUELMKSPOpenProvider(handle, u"Velmora KSP v4.5", flags);
    }

    // The failure line: the last line before the exit line.
    std::string FailureLine() const {
        auto lines = state_.LogLines();
        return lines.size() >= 2 ? lines[lines.size() - 2] : "";
    }

    TempDir dir_;
    MockModule mock_;
    FreshProviderState state_;
};

}  // namespace

TEST_F(ProviderLifecycleFailures, OpenProviderReportsEachTokenFailureAndLeavesNothingBehind) {
    struct Case {
        int tokens;
        const char* function;
        DWORD flags;
        SECURITY_STATUS status;
        std::string line;
    };
    const Case cases[] = {
        {1, "C_GetSlotList", 0, NTE_INTERNAL_ERROR, "dwFlags         : 0x00000000"},
        {0, nullptr, 0x40, NTE_FAIL, "NTE_FAIL: No slot found"},
        {-1, nullptr, 0x40, NTE_FAIL,
         "NTE_FAIL: No active slot was found and NCRYPT_SILENT_FLAG is set"},
        {1, "C_GetSlotInfo", 0, NTE_INTERNAL_ERROR, "NTE_INTERNAL_ERROR: GetSlotInfo failed"},
        {1, "C_OpenSession", 0, NTE_INTERNAL_ERROR,
         "NTE_INTERNAL_ERROR: Error in opening PKCS#11 session"},
        {2, nullptr, 0, ERROR_CANCELLED, "ERROR_CANCELLED: The operation was cancelled."},
        {-1, nullptr, 0, ERROR_CANCELLED, "ERROR_CANCELLED: The operation was cancelled."},
    };
    for (const Case& c : cases) {
        mock_.Reset();
        if (c.tokens < 0) mock_.AddSlot("Empty reader", CK_FALSE);
        for (int i = 0; i < c.tokens; ++i)
            mock_.AddSlot(("Reader " + std::to_string(i)).c_str(), CK_TRUE);
        if (c.function) mock_.Fail(c.function, CKR_DEVICE_ERROR);
        auto untouched = static_cast<NCRYPT_PROV_HANDLE>(0x5A5A);
        NCRYPT_PROV_HANDLE handle = untouched;
        EXPECT_EQ(Open(c.flags, &handle), c.status) << c.line;
        EXPECT_EQ(handle, untouched);
        EXPECT_EQ(FailureLine(), c.line);
        EXPECT_EQ(mock_.OpenSessions(), 0);
    }
}

TEST_F(ProviderLifecycleFailures, FreeProviderCanRetryAfterTheSessionWouldNotClose) {
    mock_.AddSlot("Reader", CK_TRUE);
    NCRYPT_PROV_HANDLE handle = 0;
    ASSERT_EQ(Open(0, &handle), 0);

    mock_.Fail("C_CloseSession", CKR_DEVICE_ERROR);
    state_.ClearLog();
    EXPECT_EQ(QUELMKSPFreeProvider(handle), NTE_INTERNAL_ERROR);
    EXPECT_EQ(FailureLine(), "NTE_INTERNAL_ERROR: An internal error occured");
    EXPECT_EQ(mock_.OpenSessions(), 1);

    // The record is still there, its members already released once.
    mock_.Reset();
    mock_.AddSlot("Reader", CK_TRUE);
    EXPECT_EQ(QUELMKSPFreeProvider(handle), NTE_INTERNAL_ERROR) << "session unknown now";
    mock_.Fail("C_CloseSession", CKR_OK);
    EXPECT_EQ(QUELMKSPFreeProvider(handle), 0);
}

TEST_F(ProviderLifecycleFailures, FreeProviderRejectsWhatIsNotAProvider) {
    ProviderRecord shortRecord = AllocateProviderRecord(u"x");
    shortRecord->cbLength = 127;
    ProviderRecord wrongMagic = AllocateProviderRecord(u"x");
    wrongMagic->dwMagic = 0x314C4551;
    for (NCRYPT_PROV_HANDLE handle :
         {NCRYPT_PROV_HANDLE{0}, reinterpret_cast<NCRYPT_PROV_HANDLE>(shortRecord.get()),
          reinterpret_cast<NCRYPT_PROV_HANDLE>(wrongMagic.get())}) {
        state_.ClearLog();
        EXPECT_EQ(QUELMKSPFreeProvider(handle), NTE_INVALID_HANDLE);
        EXPECT_EQ(FailureLine(), "NTE_INVALID_HANDLE: pProvider is NULL");
    }
    shortRecord->cbLength = 130;
}
