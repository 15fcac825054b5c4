#include "module_fixture.h"

TEST_F(ModuleTest, NullArrayCountsTheMatchesNotYetReturned) {
    // More than the middleware drains from the backend in one call.
    constexpr CK_ULONG kObjects = 150;
    ASSERT_EQ(login(), CKR_OK);
    CK_OBJECT_CLASS data_class = CKO_DATA;
    CK_BBOOL no = CK_FALSE;
    CK_BYTE value[] = {1, 2, 3};
    for (CK_ULONG i = 0; i < kObjects; ++i) {
        CK_ATTRIBUTE object[] = {{CKA_CLASS, &data_class, sizeof data_class},
                                 {CKA_TOKEN, &no, 1},
                                 {CKA_VALUE, value, sizeof value}};
        CK_OBJECT_HANDLE handle;
        ASSERT_EQ(p11().C_CreateObject(session_, object, 3, &handle), CKR_OK);
    }
    CK_ATTRIBUTE query{CKA_CLASS, &data_class, sizeof data_class};
    ASSERT_EQ(p11().C_FindObjectsInit(session_, &query, 1), CKR_OK);
    EXPECT_EQ(p11().C_FindObjectsInit(session_, &query, 1), CKR_OPERATION_ACTIVE);
    CK_ULONG count = 0;
    ASSERT_EQ(p11().C_FindObjects(session_, nullptr, 1000, &count), CKR_OK);
    EXPECT_EQ(count, kObjects);

    std::vector<CK_OBJECT_HANDLE> handles(kObjects);
    ASSERT_EQ(p11().C_FindObjects(session_, handles.data(), 100, &count), CKR_OK);
    EXPECT_EQ(count, 100u);
    ASSERT_EQ(p11().C_FindObjects(session_, nullptr, 0, &count), CKR_OK);
    EXPECT_EQ(count, kObjects - 100);
    ASSERT_EQ(p11().C_FindObjects(session_, handles.data() + 100, 100, &count), CKR_OK);
    EXPECT_EQ(count, kObjects - 100);
    std::sort(handles.begin(), handles.end());
    EXPECT_EQ(std::unique(handles.begin(), handles.end()), handles.end());
    ASSERT_EQ(p11().C_FindObjects(session_, nullptr, 0, &count), CKR_OK);
    EXPECT_EQ(count, 0u);

    EXPECT_EQ(p11().C_FindObjects(session_, handles.data(), 1, nullptr), CKR_ARGUMENTS_BAD);
    ASSERT_EQ(p11().C_FindObjectsFinal(session_), CKR_OK);
    EXPECT_EQ(p11().C_FindObjects(session_, nullptr, 0, &count), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(p11().C_FindObjectsFinal(session_), CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(ModuleTest, EachSessionKeepsItsOwnSearch) {
    CK_SESSION_HANDLE other;
    ASSERT_EQ(p11().C_OpenSession(slot_, CKF_SERIAL_SESSION, nullptr, nullptr, &other), CKR_OK);
    ASSERT_EQ(login(), CKR_OK);
    generate_key_pair("search");
    CK_OBJECT_CLASS private_class = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE query{CKA_CLASS, &private_class, sizeof private_class};
    ASSERT_EQ(p11().C_FindObjectsInit(session_, nullptr, 0), CKR_OK);
    ASSERT_EQ(p11().C_FindObjectsInit(other, &query, 1), CKR_OK);
    CK_ULONG all = 0, private_keys = 0;
    EXPECT_EQ(p11().C_FindObjects(session_, nullptr, 0, &all), CKR_OK);
    EXPECT_EQ(p11().C_FindObjects(other, nullptr, 0, &private_keys), CKR_OK);
    EXPECT_EQ(all, 2u);
    EXPECT_EQ(private_keys, 1u);
    EXPECT_EQ(p11().C_CloseSession(other), CKR_OK);
    EXPECT_EQ(p11().C_FindObjectsFinal(session_), CKR_OK);
}
