#include "keys/key_creation.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "platform/secure_zero.h"
#include "platform/text.h"
#include "token/cryptoki_library.h"
#include "token/rsa_pair.h"

SECURITY_STATUS CheckKeyExists(QUELMKSP_KEY& key, const QUELMKSP_PROVIDER& provider) {
    std::unique_ptr<RSAPair> pair(new (std::nothrow) RSAPair());
    if (!pair) return NTE_NO_MEMORY;
    pair->hSession = provider.hSession;
    pair->pCryptoki = g_pCryptoki;
    SECURITY_STATUS status = pair->FindKeyPairByLabel(key.KeyName());
    key.hPrivateKey = pair->hPrivateKey;
    key.hPublicKey = pair->hPublicKey;
    return status;
}

std::optional<TokenLabel> LabelForKey(const QUELMKSP_KEY& key) {
    TokenLabel label;
    if (!key.KeyName()) return label;
    std::string ansi = platform::ToAnsi(key.KeyName());
    if (ansi.size() + 1 > TokenLabel::kMaxBytes) {
        platform::SecureZero(ansi.data(), ansi.size());
        return std::nullopt;
    }
    std::memcpy(label.bytes, ansi.data(), ansi.size());
    label.converted = ansi.size() + 1;
    return label;
}
