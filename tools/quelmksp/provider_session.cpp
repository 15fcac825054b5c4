#include "provider_session.h"

#include <cstdlib>
#include <fstream>

#include "client_error.h"
#include "platform/text.h"
#include "status_messages.h"
#include "token_module.h"

namespace {

// What stands in the way of opening the provider, as far as the client can
// see: the registry file it reads on Linux, or a missing token.
std::string OpenFailureCause(const ProviderClient& client) {
#ifndef _WIN32
    const char* chosen = std::getenv("QUELMKSP_REGISTRY");
    const std::string registry =
        chosen && *chosen ? chosen : std::string("/etc/velmora/quelmksp.reg");
    if (!std::ifstream(registry))
        return "the provider could not be opened: it reads its settings from the registry "
               "file " +
               registry + ", which cannot be read; QUELMKSP_REGISTRY names another file";
#endif
    std::string why;
    std::unique_ptr<TokenModule> module = TokenModule::Open(FolderOf(client.libraryPath()), &why);
    ReaderFacts reader;
    if (module && !module->FirstToken(&reader))
        return "the provider could not be opened: no reader holds a token";
    return "the provider could not be opened on a token; " + ProviderLogHint();
}

}  // namespace

ProviderSession::ProviderSession(const ProviderClient& client) : table_(client.table()) {
    SECURITY_STATUS status =
        table_.OpenProvider(&provider_, QKSP_TEXT("Velmora KSP v4.5"), client.openFlags());
    if (status != ERROR_SUCCESS) {
        provider_ = 0;
        ThrowStatus(status, OpenFailureCause(client));
    }
}

ProviderSession::~ProviderSession() {
    if (key_) table_.FreeKey(provider_, key_);
    table_.FreeProvider(provider_);
}

NCRYPT_KEY_HANDLE ProviderSession::OpenKey(const std::string& name) {
    if (name.empty()) throw UsageError("the key name is empty");
    bool valid = false;
    platform::WideString wide = platform::FromUtf8(name, &valid);
    if (!valid) throw UsageError("the key name is not valid UTF-8");
    NCRYPT_KEY_HANDLE key = 0;
    SECURITY_STATUS status = table_.OpenKey(provider_, &key, wide.c_str(), 0, 0);
    if (status == NTE_BAD_KEYSET) ThrowStatus(status, "no key named '" + name + "'");
    if (status != ERROR_SUCCESS) ThrowStatus(status, "the key '" + name + "' could not be opened");
    if (key_) table_.FreeKey(provider_, key_);
    key_ = key;
    return key_;
}

SECURITY_STATUS ProviderSession::CreateKey(platform::WideView name, DWORD legacyKeySpec,
                                           DWORD flags) {
    const platform::WideString terminated(name);
    NCRYPT_KEY_HANDLE key = 0;
    SECURITY_STATUS status = table_.CreatePersistedKey(provider_, &key, QKSP_TEXT("RSA"),
                                                       terminated.c_str(), legacyKeySpec, flags);
    if (status != ERROR_SUCCESS) return status;
    if (key_) table_.FreeKey(provider_, key_);
    key_ = key;
    return ERROR_SUCCESS;
}

SECURITY_STATUS ProviderSession::ImportKey(NCRYPT_KEY_HANDLE importKey, LPCWSTR blobType,
                                           platform::WideView name, SecretBytes& blob,
                                           DWORD flags) {
    platform::WideString terminated(name);
    NCryptBuffer nameBuffer{
        static_cast<ULONG>((terminated.size() + 1) * sizeof(platform::WideChar)),
        NCRYPTBUFFER_PKCS_KEY_NAME, terminated.data()};
    NCryptBufferDesc parameters{0, 1, &nameBuffer};
    NCRYPT_KEY_HANDLE key = 0;
    SECURITY_STATUS status =
        table_.ImportKey(provider_, importKey, blobType, name.empty() ? nullptr : &parameters, &key,
                         blob.data(), static_cast<DWORD>(blob.size()), flags);
    if (status != ERROR_SUCCESS) return status;
    if (key_) table_.FreeKey(provider_, key_);
    key_ = key;
    return ERROR_SUCCESS;
}

OpenedKey::~OpenedKey() {
    if (key_) session_.table().FreeKey(session_.provider(), key_);
}

SECURITY_STATUS OpenedKey::Open(platform::WideView name) {
    const platform::WideString terminated(name);
    NCRYPT_KEY_HANDLE key = 0;
    SECURITY_STATUS status =
        session_.table().OpenKey(session_.provider(), &key, terminated.c_str(), 0, 0);
    if (status != ERROR_SUCCESS) return status;
    if (key_) session_.table().FreeKey(session_.provider(), key_);
    key_ = key;
    return ERROR_SUCCESS;
}
