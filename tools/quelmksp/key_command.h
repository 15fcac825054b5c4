// What the commands on a key share: the PIN feed (--pin-stdin), the loaded
// provider, the provider opened on the token and the key the command names,
// set up in that order and released in the reverse order.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "command_line.h"
#include "commands.h"
#include "hashing.h"
#include "pin_feed.h"
#include "provider_client.h"
#include "provider_session.h"

// Operands that name stdin ("-", or left out) cannot also carry the PIN.
void RequireFileDataWithPinStdin(const ParsedCommand& parsed, bool dataFromStdin);

class KeyCommand {
public:
    // The key is operand 0. Throws ClientError.
    KeyCommand(const Invocation& invocation, const ParsedCommand& parsed);
    // For create, whose key does not exist yet.
    struct NoKeyYet {};
    KeyCommand(const Invocation& invocation, const ParsedCommand& parsed, NoKeyYet);

    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return session_.table(); }
    NCRYPT_PROV_HANDLE provider() const { return session_.provider(); }
    NCRYPT_KEY_HANDLE key() const { return session_.key(); }
    KeyRef keyRef() const { return session_.keyRef(); }
    ProviderSession& session() { return session_; }

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

// The token's PKCS#1 v1.5 signature of a bare hash with the command's key,
// or the status of the call that failed.
SECURITY_STATUS TrySignHashOnToken(const KeyCommand& command, HashAlgorithm algorithm,
                                   const std::vector<uint8_t>& hash,
                                   std::vector<uint8_t>* signature);

// The same, throwing ClientError.
std::vector<uint8_t> SignHashOnToken(const KeyCommand& command, HashAlgorithm algorithm,
                                     const std::vector<uint8_t>& hash);
