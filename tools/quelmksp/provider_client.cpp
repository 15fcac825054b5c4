#include "provider_client.h"

#include <stdexcept>

#include "diag/status_names.h"
#include "status_messages.h"
#include "token_module.h"

namespace {

// The provider logs why it could not bind its token module, in its own
// words; the client finds the reason itself by trying the same module.
std::string ModuleFailure(const std::string& libraryPath) {
    std::string why;
    if (!TokenModule::Open(FolderOf(libraryPath), &why))
        return why + " (QUELMKSP_PKCS11_MODULE chooses the module)";
    return "the provider could not start its token module " + TokenModule::FileName() +
           ", which the client can load; " + ProviderLogHint();
}

}  // namespace

ProviderClient::ProviderClient(const std::string& libraryPath, bool interactive)
    : libraryPath_(libraryPath), openFlags_(interactive ? 0 : NCRYPT_SILENT_FLAG) {
    std::string error;
    module_ = platform::Module::Load(libraryPath, &error);
    if (!module_) throw std::runtime_error("cannot load " + libraryPath + ": " + error);
    auto entry = module_->Function<GetKeyStorageInterfaceFn>("GetKeyStorageInterface");
    if (!entry) throw std::runtime_error(libraryPath + " has no GetKeyStorageInterface");
    NTSTATUS status = entry(QKSP_TEXT("Velmora KSP v4.5"), &table_, 0);
    if (status == NTE_PROVIDER_DLL_FAIL)
        throw std::runtime_error(std::string("GetKeyStorageInterface failed: ") +
                                 StatusName(status) + ": " + ModuleFailure(libraryPath));
    if (status != 0)
        throw std::runtime_error(std::string("GetKeyStorageInterface failed: ") +
                                 StatusName(status));
}
