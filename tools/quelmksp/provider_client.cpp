#include "provider_client.h"

#include <stdexcept>

#include "diag/status_names.h"

ProviderClient::ProviderClient(const std::string& libraryPath, bool interactive)
    : libraryPath_(libraryPath), openFlags_(interactive ? 0 : NCRYPT_SILENT_FLAG) {
    std::string error;
    module_ = platform::Module::Load(libraryPath, &error);
    if (!module_) throw std::runtime_error("cannot load " + libraryPath + ": " + error);
    auto entry = module_->Function<GetKeyStorageInterfaceFn>("GetKeyStorageInterface");
    if (!entry) throw std::runtime_error(libraryPath + " has no GetKeyStorageInterface");
    NTSTATUS status = entry(QKSP_TEXT("Velmora KSP v4.5"), &table_, 0);
    if (status != 0)
        throw std::runtime_error(std::string("GetKeyStorageInterface failed: ") +
                                 StatusName(status));
}
