// The token module that the provider drives, reached by the client itself
// for what the provider's function table does not tell: the readers, the
// tokens' labels and serials, the PIN state from the token flags, and why
// the module could not be loaded. Read-only: the client never logs in or
// changes anything through it.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace platform {
class Module;
}

struct TokenFacts {
    std::string label;
    std::string serial;
    std::string manufacturer;
    std::string model;
    bool pinLocked = false;
    bool pinFinalTry = false;
    bool pinCountLow = false;
    bool pinToBeChanged = false;
    bool initialized = false;
};

struct ReaderFacts {
    unsigned long slot = 0;
    std::string reader;
    bool tokenPresent = false;
    TokenFacts token;
};

// "locked", "final try", "retries low", "must be changed" or "ok".
std::string PinState(const TokenFacts& token);

class TokenModule {
public:
    // The module's file name as the provider chooses it: QUELMKSP_PKCS11_MODULE,
    // or the platform's name for quelmpkcs11.
    static std::string FileName();

    // Loads and initialises the module, found as the provider finds it, or
    // else in providerFolder. nullptr when that fails; *why then says why,
    // in words for the user.
    static std::unique_ptr<TokenModule> Open(const std::string& providerFolder, std::string* why);

    ~TokenModule();
    TokenModule(const TokenModule&) = delete;
    TokenModule& operator=(const TokenModule&) = delete;

    // Every slot, with its token when one is present. Empty when the module
    // cannot list them.
    std::vector<ReaderFacts> Readers() const;

    // The token that the provider uses when opened silently: the first one
    // present.
    bool FirstToken(ReaderFacts* reader) const;

private:
    TokenModule(std::unique_ptr<platform::Module> module, void* functions, bool finalize);
    std::unique_ptr<platform::Module> module_;
    void* functions_;
    bool finalize_;
};
