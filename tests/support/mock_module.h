// The mock PKCS#11 module as a test drives it.
#pragma once

#include <dlfcn.h>

#include <stdexcept>
#include <string>

#include "mock_pkcs11/mock_pkcs11.h"

class MockModule {
public:
    static constexpr const char* kPath = MOCK_PKCS11_PATH;
    static constexpr const char* kNotAModulePath = NOT_A_PKCS11_MODULE_PATH;

    // Loads the same instance that the provider will load, and empties it.
    MockModule() : handle_(dlopen(kPath, RTLD_NOW | RTLD_LOCAL)) {
        if (!handle_) throw std::runtime_error(dlerror());
        Reset = Get<MockPkcs11_ResetFn>("MockPkcs11_Reset");
        Fail = Get<MockPkcs11_FailFn>("MockPkcs11_Fail");
        AddSlot = Get<MockPkcs11_AddSlotFn>("MockPkcs11_AddSlot");
        OpenSessions = Get<MockPkcs11_OpenSessionsFn>("MockPkcs11_OpenSessions");
        SetPinDigest = Get<MockPkcs11_SetPinDigestFn>("MockPkcs11_SetPinDigest");
        Reset();
    }
    ~MockModule() { dlclose(handle_); }
    MockModule(const MockModule&) = delete;
    MockModule& operator=(const MockModule&) = delete;

    MockPkcs11_ResetFn Reset;
    MockPkcs11_FailFn Fail;
    MockPkcs11_AddSlotFn AddSlot;
    MockPkcs11_OpenSessionsFn OpenSessions;
    MockPkcs11_SetPinDigestFn SetPinDigest;

private:
    template <typename Fn>
    Fn Get(const char* name) {
        auto fn = reinterpret_cast<Fn>(dlsym(handle_, name));
        if (!fn) throw std::runtime_error(std::string("mock module lacks ") + name);
        return fn;
    }
    void* handle_;
};
