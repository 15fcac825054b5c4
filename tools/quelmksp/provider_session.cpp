#include "provider_session.h"

#include "client_error.h"
#include "platform/text.h"
#include "status_messages.h"

ProviderSession::ProviderSession(const ProviderClient& client) : table_(client.table()) {
    SECURITY_STATUS status =
        table_.OpenProvider(&provider_, QKSP_TEXT("Velmora KSP v4.5"), client.openFlags());
    if (status != ERROR_SUCCESS) {
        provider_ = 0;
        ThrowStatus(status, "the provider could not be opened on a token (is a token present?)");
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
