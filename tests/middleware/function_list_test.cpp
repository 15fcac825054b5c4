#include <atomic>
#include <cstdlib>
#include <thread>

#include "module_fixture.h"

TEST(FunctionList, HasTheStandardEntriesThenFourReservedThenExtendedLogin) {
    const QUELM_FUNCTION_LIST& list = middleware();
    EXPECT_EQ(list.standard.version.major, 2);
    EXPECT_EQ(list.standard.version.minor, 40);
    const auto* entries = reinterpret_cast<void* const*>(&list.standard.C_Initialize);
    for (int i = 0; i < QUELM_STANDARD_ENTRY_COUNT; ++i) EXPECT_NE(entries[i], nullptr) << i;
    for (void* reserved : list.reserved) EXPECT_EQ(reserved, nullptr);
    EXPECT_EQ(reinterpret_cast<const void*>(entries[QUELM_EXTENDED_LOGIN_INDEX]),
              reinterpret_cast<const void*>(list.ExtendedLogin));
    EXPECT_NE(list.ExtendedLogin, nullptr);
}

TEST(FunctionList, MissingBackendFailsInitialiseNamingItsPath) {
    SoftHsmToken token;
    setenv("QUELMPKCS11_MODULE", "/nonexistent/libbackend.so", 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(p11().C_Initialize(nullptr), CKR_GENERAL_ERROR);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("/nonexistent/libbackend.so"),
              std::string::npos);
    CK_ULONG count = 0;
    EXPECT_EQ(p11().C_GetSlotList(CK_FALSE, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11().C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);

    unsetenv("QUELMPKCS11_MODULE");
    EXPECT_EQ(p11().C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(p11().C_Finalize(nullptr), CKR_OK);
}

TEST_F(ModuleTest, InitialiseFollowsThePkcs11Rules) {
    EXPECT_EQ(p11().C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
    EXPECT_EQ(p11().C_Finalize(&slot_), CKR_ARGUMENTS_BAD);
    CK_INFO info{};
    EXPECT_EQ(p11().C_GetInfo(&info), CKR_OK);
    EXPECT_EQ(info.cryptokiVersion.minor, 40);

    EXPECT_EQ(p11().C_Finalize(nullptr), CKR_OK);
    CK_C_INITIALIZE_ARGS foreign_locks{};
    foreign_locks.CreateMutex = [](CK_VOID_PTR_PTR) -> CK_RV { return CKR_OK; };
    EXPECT_EQ(p11().C_Initialize(&foreign_locks), CKR_ARGUMENTS_BAD);
    CK_C_INITIALIZE_ARGS os_locks{};
    os_locks.flags = CKF_OS_LOCKING_OK;
    EXPECT_EQ(p11().C_Initialize(&os_locks), CKR_OK);
}

TEST_F(ModuleTest, SessionsOnSeveralThreadsSignAndSearchTogether) {
    ASSERT_EQ(login(), CKR_OK);
    const KeyPair pair = generate_key_pair("threads");
    std::atomic<int> failures{0};
    auto work = [&] {
        CK_SESSION_HANDLE session;
        CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
        CK_BYTE data[20] = {}, signature[128];
        CK_ULONG length = 0, count = 0;
        failures += p11().C_OpenSession(slot_, CKF_SERIAL_SESSION, nullptr, nullptr, &session);
        for (int i = 0; i < 25; ++i) {
            failures += p11().C_SignInit(session, &mechanism, pair.private_key) +
                        p11().C_Sign(session, data, sizeof data, nullptr, &length) +
                        p11().C_Sign(session, data, sizeof data, signature, &length) +
                        p11().C_FindObjectsInit(session, nullptr, 0) +
                        p11().C_FindObjects(session, nullptr, 0, &count) + (count != 2) +
                        p11().C_FindObjectsFinal(session);
        }
        failures += p11().C_CloseSession(session);
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back(work);
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
}
