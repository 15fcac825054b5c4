// What sign, verify, encrypt and decrypt share: the PIN feed, the loaded
// provider, the provider opened on the token and the key the command names,
// set up in that order and released in the reverse order.
#pragma once

#include <memory>
#include <string>

#include "command_line.h"
#include "commands.h"
#include "pin_feed.h"
#include "provider_client.h"
#include "provider_session.h"

// Operands that name stdin ("-", or left out) cannot also carry the PIN.
void RequireFileDataWithPinStdin(const ParsedCommand& parsed, bool dataFromStdin);

class KeyCommand {
public:
    // The key is operand 0. Throws ClientError.
    KeyCommand(const Invocation& invocation, const ParsedCommand& parsed);

    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return session_.table(); }
    NCRYPT_PROV_HANDLE provider() const { return session_.provider(); }
    NCRYPT_KEY_HANDLE key() const { return session_.key(); }

    // Throws the user's message for a failed status of the named operation.
    void Check(SECURITY_STATUS status, const std::string& operation) const;

private:
    std::unique_ptr<PinFeed> pin_;
    ProviderClient client_;
    ProviderSession session_;
};

// The padding information a CNG caller gives with NCRYPT_PAD_PKCS1_FLAG.
struct Pkcs1PaddingInfo {
    LPCWSTR pszAlgId;
};
