// The bench's world: a fresh SoftHSM2 token in a temporary folder, RSA-2048
// key pairs written onto it through the middleware, the provider loaded as
// the router loads it, and the raw PKCS#11 function lists of the middleware
// and of SoftHSM2 on the same token.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "provider/ncrypt_provider.h"
#include "quelmpkcs11/extended_function_list.h"

namespace bench {

// A raw PKCS#11 module and one logged-in read-write session on the token.
struct RawToken {
    CK_FUNCTION_LIST* functions = nullptr;
    CK_SLOT_ID slot = 0;
    CK_SESSION_HANDLE session = 0;

    // Opens another session; the login belongs to the token, so it is
    // logged in too.
    CK_SESSION_HANDLE OpenSession() const;
    // The handles of the objects of a class, in the module's order.
    std::vector<CK_OBJECT_HANDLE> Find(CK_SESSION_HANDLE on, CK_OBJECT_CLASS objectClass) const;
    // The private and the public object of the pair with this CKA_ID.
    CK_OBJECT_HANDLE FindById(CK_SESSION_HANDLE on, CK_OBJECT_CLASS objectClass,
                              const std::string& id) const;
};

// A provider library loaded through GetKeyStorageInterface.
struct ProviderCopy {
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
};

class World {
public:
    static constexpr int kBits = 2048;

    // quick: fewer and smaller scenes, for a run that only shows the
    // benchmarks still work.
    static void Create(bool quick);
    static World& Get();
    static void Destroy();

    bool quick() const { return quick_; }

    // Makes sure the token holds at least count pairs, named k0000 upwards.
    void EnsurePairs(int count);
    int pairs() const { return pairs_; }
    static std::string KeyId(int index);
    static std::u16string KeyName(int index);

    const RawToken& middleware() const { return middleware_; }
    const RawToken& softhsm() const { return softhsm_; }

    // The provider with logging off, and a second copy, in a link namespace
    // of its own, with logging on. UseLoggingRegistry switches the registry
    // file that both read to the one of the logging copy.
    const ProviderCopy& provider() const { return quiet_; }
    const ProviderCopy& loggingProvider() const { return logging_; }
    void UseLoggingRegistry(bool on) const;

    const std::filesystem::path& folder() const { return folder_; }

private:
    World(bool quick);
    ~World();
    void MakeToken();
    void MakeKeys();
    void WritePair(int index);
    ProviderCopy LoadProvider(bool ownNamespace);

    bool quick_;
    std::filesystem::path folder_;
    std::string quietRegistry_;
    std::string loggingRegistry_;
    RawToken middleware_;
    RawToken softhsm_;
    ProviderCopy quiet_;
    ProviderCopy logging_;
    int pairs_ = 0;

    struct KeyMaterial {
        std::vector<uint8_t> n, e, d, p, q, dp, dq, qinv;
    };
    std::vector<KeyMaterial> keys_;
};

// Resident set size of the process in KiB.
long ResidentKiB();

}  // namespace bench
