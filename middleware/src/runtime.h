#pragma once

#include <memory>
#include <new>
#include <shared_mutex>

#include <p11-kit/pkcs11.h>

#include "backend_module.h"
#include "module.h"

namespace quelm {

// The process-wide life cycle: C_Initialize and C_Finalize take it exclusively, every other call
// shares it, so no call sees a module that is being torn down.
class Runtime {
public:
    static Runtime& instance();

    CK_RV initialize(CK_VOID_PTR init_args);
    CK_RV finalize(CK_VOID_PTR reserved);

    template <class Call>
    CK_RV with_module(Call&& call) {
        std::shared_lock guard(lock_);
        if (!module_) return CKR_CRYPTOKI_NOT_INITIALIZED;
        return call(*module_);
    }

private:
    Runtime() = default;

    std::shared_mutex lock_;
    // Kept loaded across C_Finalize: some modules cannot be unloaded and loaded again safely
    // within one process.
    std::unique_ptr<BackendModule> backend_;
    std::unique_ptr<Module> module_;
    bool finalize_backend_ = false;
};

// Nothing may be thrown across the PKCS#11 interface.
template <class Call>
CK_RV guarded(Call&& call) noexcept {
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return CKR_HOST_MEMORY;
    } catch (...) {
        return CKR_GENERAL_ERROR;
    }
}

}  // namespace quelm
