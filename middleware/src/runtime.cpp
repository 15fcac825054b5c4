#include "runtime.h"

#include <cstdio>

namespace quelm {
namespace {

CK_RV check_init_args(const CK_C_INITIALIZE_ARGS* args) {
    if (!args) return CKR_OK;
    if (args->pReserved) return CKR_ARGUMENTS_BAD;
    const int callbacks = (args->CreateMutex != nullptr) + (args->DestroyMutex != nullptr) +
                          (args->LockMutex != nullptr) + (args->UnlockMutex != nullptr);
    if (callbacks != 0 && callbacks != 4) return CKR_ARGUMENTS_BAD;
    // The middleware and its backend lock with the operating system's primitives only.
    if (callbacks == 4 && !(args->flags & CKF_OS_LOCKING_OK)) return CKR_CANT_LOCK;
    return CKR_OK;
}

}  // namespace

Runtime& Runtime::instance() {
    // Never destroyed, so that an application may still call C_Finalize from its own exit code.
    static Runtime* const runtime = new Runtime;
    return *runtime;
}

CK_RV Runtime::initialize(CK_VOID_PTR init_args) {
    std::unique_lock guard(lock_);
    if (module_) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
    if (const CK_RV rv = check_init_args(static_cast<CK_C_INITIALIZE_ARGS*>(init_args));
        rv != CKR_OK) {
        return rv;
    }
    Settings settings = Settings::from_environment();
    if (!backend_ || backend_->path() != settings.backend_path) {
        std::string error;
        auto loaded = BackendModule::load(settings.backend_path, error);
        if (!loaded) {
            std::fprintf(stderr, "quelmpkcs11: cannot load the backend PKCS#11 module %s: %s\n",
                         settings.backend_path.c_str(), error.c_str());
            return CKR_GENERAL_ERROR;
        }
        backend_ = std::move(loaded);
    }
    CK_C_INITIALIZE_ARGS backend_args{};
    backend_args.flags = CKF_OS_LOCKING_OK;
    const CK_RV rv = backend_->functions().C_Initialize(&backend_args);
    // Another part of the process may share the backend; then it also owns its finalisation.
    if (rv != CKR_OK && rv != CKR_CRYPTOKI_ALREADY_INITIALIZED) return rv;
    finalize_backend_ = rv == CKR_OK;
    module_ = std::make_unique<Module>(std::move(settings), backend_->functions());
    return CKR_OK;
}

CK_RV Runtime::finalize(CK_VOID_PTR reserved) {
    if (reserved) return CKR_ARGUMENTS_BAD;
    std::unique_lock guard(lock_);
    if (!module_) return CKR_CRYPTOKI_NOT_INITIALIZED;
    module_.reset();
    if (finalize_backend_) backend_->functions().C_Finalize(nullptr);
    finalize_backend_ = false;
    return CKR_OK;
}

}  // namespace quelm
