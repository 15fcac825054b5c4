#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "quelmpkcs11/extended_function_list.h"
#include "softhsm_token.h"

// The middleware as its callers load it: dlopen by path, then C_GetFunctionList.
const QUELM_FUNCTION_LIST& middleware();
inline CK_FUNCTION_LIST& p11() {
    return const_cast<CK_FUNCTION_LIST&>(middleware().standard);
}

struct KeyPair {
    CK_OBJECT_HANDLE public_key = CK_INVALID_HANDLE;
    CK_OBJECT_HANDLE private_key = CK_INVALID_HANDLE;
};

// Each test gets a fresh token and an initialised middleware with one read-write session.
class ModuleTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Environment that must be in place before C_Initialize reads it.
    virtual void configure() {}

    CK_RV login(const char* pin = SoftHsmToken::kUserPin);
    CK_RV extended_login(const char* pin);
    CK_FLAGS token_flags();
    // With the provider's generation templates: a NULL CKA_MODULUS and CKA_LOCAL in both.
    KeyPair generate_key_pair(const std::string& label, CK_ULONG bits = 1024);
    CK_ULONG count_all_objects();

    std::unique_ptr<SoftHsmToken> token_;
    CK_SLOT_ID slot_ = 0;
    CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
};

// Runs the probe helper in a fresh process and returns what it printed.
std::string run_probe(const std::string& arguments);
