#include "module_fixture.h"

#include <dlfcn.h>

#include <cstring>
#include <stdexcept>

const QUELM_FUNCTION_LIST& middleware() {
    static const QUELM_FUNCTION_LIST* list = [] {
        void* handle = dlopen(QUELMPKCS11_TEST_MODULE, RTLD_NOW);
        if (!handle) throw std::runtime_error(dlerror());
        auto get = reinterpret_cast<CK_C_GetFunctionList>(dlsym(handle, "C_GetFunctionList"));
        CK_FUNCTION_LIST_PTR standard = nullptr;
        if (!get || get(&standard) != CKR_OK) throw std::runtime_error("no function list");
        return reinterpret_cast<const QUELM_FUNCTION_LIST*>(standard);
    }();
    return *list;
}

void ModuleTest::SetUp() {
    token_ = std::make_unique<SoftHsmToken>();
    configure();
    ASSERT_EQ(p11().C_Initialize(nullptr), CKR_OK);
    CK_SLOT_ID slots[8];
    CK_ULONG count = std::size(slots);
    ASSERT_EQ(p11().C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
    for (CK_ULONG i = count; i-- > 0;) {
        CK_TOKEN_INFO info{};
        if (p11().C_GetTokenInfo(slots[i], &info) == CKR_OK &&
            (info.flags & CKF_TOKEN_INITIALIZED)) {
            slot_ = slots[i];
        }
    }
    ASSERT_EQ(p11().C_OpenSession(slot_, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                  &session_),
              CKR_OK);
}

void ModuleTest::TearDown() {
    p11().C_Finalize(nullptr);
    token_.reset();
}

CK_RV ModuleTest::login(const char* pin) {
    return p11().C_Login(session_, CKU_USER, (CK_UTF8CHAR_PTR)pin, std::strlen(pin));
}

CK_RV ModuleTest::extended_login(const char* pin) {
    return middleware().ExtendedLogin(session_, CKU_USER, (CK_UTF8CHAR_PTR)pin, std::strlen(pin));
}

CK_FLAGS ModuleTest::token_flags() {
    CK_TOKEN_INFO info{};
    EXPECT_EQ(p11().C_GetTokenInfo(slot_, &info), CKR_OK);
    return info.flags;
}

KeyPair ModuleTest::generate_key_pair(const std::string& label, CK_ULONG bits) {
    CK_OBJECT_CLASS public_class = CKO_PUBLIC_KEY, private_class = CKO_PRIVATE_KEY;
    CK_KEY_TYPE rsa = CKK_RSA;
    CK_BBOOL yes = CK_TRUE, no = CK_FALSE;
    CK_BYTE exponent[] = {1, 0, 1};
    CK_BYTE id[20];
    std::memset(id, 0x5A, sizeof id);
    std::memcpy(id, label.data(), std::min(label.size(), sizeof id));
    CK_ATTRIBUTE public_template[] = {
        {CKA_CLASS, &public_class, sizeof public_class},
        {CKA_MODIFIABLE, &yes, 1},
        {CKA_KEY_TYPE, &rsa, sizeof rsa},
        {CKA_DERIVE, &no, 1},
        {CKA_LOCAL, &yes, 1},
        {CKA_TOKEN, &yes, 1},
        {CKA_MODULUS, nullptr, bits / 8},
        {CKA_MODULUS_BITS, &bits, sizeof bits},
        {CKA_PUBLIC_EXPONENT, exponent, sizeof exponent},
        {CKA_ENCRYPT, &yes, 1},
        {CKA_VERIFY, &yes, 1},
        {CKA_VERIFY_RECOVER, &no, 1},
        {CKA_WRAP, &no, 1},
        {CKA_ID, id, sizeof id},
        {CKA_LABEL, (void*)label.data(), label.size()},
    };
    CK_ATTRIBUTE private_template[] = {
        {CKA_CLASS, &private_class, sizeof private_class},
        {CKA_MODIFIABLE, &yes, 1},
        {CKA_PRIVATE, &yes, 1},
        {CKA_TOKEN, &yes, 1},
        {CKA_SENSITIVE, &no, 1},
        {CKA_DERIVE, &no, 1},
        {CKA_LOCAL, &yes, 1},
        {CKA_DECRYPT, &yes, 1},
        {CKA_SIGN, &yes, 1},
        {CKA_SIGN_RECOVER, &no, 1},
        {CKA_UNWRAP, &no, 1},
        {CKA_ID, id, sizeof id},
        {CKA_LABEL, (void*)label.data(), label.size()},
    };
    CK_MECHANISM mechanism{CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
    KeyPair pair;
    EXPECT_EQ(
        p11().C_GenerateKeyPair(session_, &mechanism, public_template, std::size(public_template),
                                private_template, std::size(private_template), &pair.public_key,
                                &pair.private_key),
        CKR_OK);
    return pair;
}

CK_ULONG ModuleTest::count_all_objects() {
    CK_ULONG count = 0;
    EXPECT_EQ(p11().C_FindObjectsInit(session_, nullptr, 0), CKR_OK);
    EXPECT_EQ(p11().C_FindObjects(session_, nullptr, 0, &count), CKR_OK);
    EXPECT_EQ(p11().C_FindObjectsFinal(session_), CKR_OK);
    return count;
}

std::string run_probe(const std::string& arguments) {
    return run_command(std::string(QUELMPKCS11_TEST_PROBE) + " " + arguments + " 2>&1");
}
