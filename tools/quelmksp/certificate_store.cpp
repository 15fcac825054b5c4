#include "certificate_store.h"

#ifdef _WIN32
// windows.h first: wincrypt.h needs its types.
#include <windows.h>

#include <wincrypt.h>
#else
#include "quelmcert.h"
#endif

#include <cstdint>
#include <cstring>

#include "client_error.h"
#include "status_messages.h"

namespace {

class Store {
public:
    explicit Store(HCERTSTORE handle) : handle_(handle) {}
    ~Store() {
        if (handle_) CertCloseStore(handle_, 0);
    }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    HCERTSTORE get() const { return handle_; }

private:
    HCERTSTORE handle_;
};

}  // namespace

std::vector<SecretBytes> ReadCertificateStore(const ProviderSession& session,
                                              CertificateStoreKind kind) {
    const bool root = kind == CertificateStoreKind::kRoot;
    LPCWSTR property = root ? NCRYPT_ROOT_CERTSTORE_PROPERTY : NCRYPT_USER_CERTSTORE_PROPERTY;
    const std::string what = root ? "root store" : "user store";
    uint64_t value = 0;
    DWORD length = 0;
    SECURITY_STATUS status = session.table().GetProviderProperty(
        session.provider(), property, reinterpret_cast<PBYTE>(&value), sizeof value, &length, 0);
    if (status != ERROR_SUCCESS) ThrowStatus(status, "the " + what + " could not be read");
    if (length != sizeof value)
        throw ClientError(exit_code::kProvider, "the provider's " + what + " handle takes " +
                                                    std::to_string(length) + " bytes, not 8");
    HCERTSTORE handle = nullptr;
    std::memcpy(&handle, &value, sizeof handle);
    if (!handle)
        throw ClientError(exit_code::kProvider,
                          "the provider could not build the " + what +
                              " (a null store); QUELMKSP_DEBUG_OUTPUT=1 shows its log");
    Store store(handle);
    std::vector<SecretBytes> certificates;
    for (PCCERT_CONTEXT context = CertEnumCertificatesInStore(store.get(), nullptr); context;
         context = CertEnumCertificatesInStore(store.get(), context)) {
        try {
            certificates.emplace_back(context->pbCertEncoded,
                                      context->pbCertEncoded + context->cbCertEncoded);
        } catch (...) {
            CertFreeCertificateContext(context);
            throw;
        }
    }
    return certificates;
}
