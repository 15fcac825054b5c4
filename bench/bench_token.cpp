#include "bench_token.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>

extern char** environ;

namespace bench {
namespace {

constexpr const char* kSoftHsm = "/usr/lib/softhsm/libsofthsm2.so";
constexpr const char* kUserPin = "1234";
constexpr const char16_t* kProviderName = u"Velmora KSP v4.5";

World* g_world = nullptr;

void Check(CK_RV rv, const char* call) {
    if (rv != CKR_OK)
        throw std::runtime_error(std::string(call) + " failed: " + std::to_string(rv));
}

void Run(std::vector<std::string> arguments) {
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    int started = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (started != 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0)
        throw std::runtime_error(arguments[0] + " failed");
}

std::string RegistryText(const std::string& logPath) {
    std::string text =
        "Windows Registry Editor Version 5.00\n\n"
        "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Cryptography\\Providers\\"
        "Velmora KSP v4.5]\n"
        "\"Aliases\"=hex(7):56,00,65,00,6c,00,6d,00,6f,00,72,00,61,00,20,00,4b,00,53,00,"
        "50,00,20,00,76,00,34,00,2e,00,35,00,00,00,00,00\n"
        "\"Default Key Length\"=dword:00000800\n\n"
        "[HKEY_LOCAL_MACHINE\\Software\\Velmora Ltd.\\QUELM SDK]\n";
    if (logPath.empty()) return text + "\"KSPLOG\"=\"00000000\"\n";
    return text + "\"KSPLOG\"=\"1\"\n\"KSPDIR\"=\"" + logPath + "\"\n";
}

CK_FUNCTION_LIST* LoadModule(const char* path) {
    void* handle = dlopen(path, RTLD_NOW);
    if (!handle) throw std::runtime_error(dlerror());
    auto get = reinterpret_cast<CK_C_GetFunctionList>(dlsym(handle, "C_GetFunctionList"));
    CK_FUNCTION_LIST* list = nullptr;
    if (!get) throw std::runtime_error(std::string(path) + " has no C_GetFunctionList");
    Check(get(&list), "C_GetFunctionList");
    CK_RV rv = list->C_Initialize(nullptr);
    if (rv != CKR_CRYPTOKI_ALREADY_INITIALIZED) Check(rv, "C_Initialize");
    return list;
}

RawToken OpenRaw(CK_FUNCTION_LIST* functions) {
    RawToken raw;
    raw.functions = functions;
    CK_SLOT_ID slots[8];
    CK_ULONG count = 8;
    Check(functions->C_GetSlotList(CK_TRUE, slots, &count), "C_GetSlotList");
    CK_TOKEN_INFO info;
    for (CK_ULONG i = 0; i < count; ++i) {
        if (functions->C_GetTokenInfo(slots[i], &info) == CKR_OK &&
            (info.flags & CKF_TOKEN_INITIALIZED)) {
            raw.slot = slots[i];
            break;
        }
    }
    raw.session = raw.OpenSession();
    CK_RV rv = functions->C_Login(raw.session, CKU_USER,
                                  reinterpret_cast<CK_UTF8CHAR*>(const_cast<char*>(kUserPin)), 4);
    if (rv != CKR_USER_ALREADY_LOGGED_IN) Check(rv, "C_Login");
    return raw;
}

std::vector<uint8_t> BigEndian(const EVP_PKEY* key, const char* name) {
    BIGNUM* value = nullptr;
    if (!EVP_PKEY_get_bn_param(key, name, &value)) throw std::runtime_error(name);
    std::vector<uint8_t> bytes(BN_num_bytes(value));
    BN_bn2bin(value, bytes.data());
    BN_clear_free(value);
    return bytes;
}

CK_ATTRIBUTE Bytes(CK_ATTRIBUTE_TYPE type, std::vector<uint8_t>& value) {
    return {type, value.data(), static_cast<CK_ULONG>(value.size())};
}

}  // namespace

CK_SESSION_HANDLE RawToken::OpenSession() const {
    CK_SESSION_HANDLE opened = 0;
    Check(functions->C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                   &opened),
          "C_OpenSession");
    return opened;
}

std::vector<CK_OBJECT_HANDLE> RawToken::Find(CK_SESSION_HANDLE on,
                                             CK_OBJECT_CLASS objectClass) const {
    CK_BBOOL yes = CK_TRUE;
    CK_ATTRIBUTE search[] = {{CKA_TOKEN, &yes, 1}, {CKA_CLASS, &objectClass, sizeof objectClass}};
    Check(functions->C_FindObjectsInit(on, search, 2), "C_FindObjectsInit");
    std::vector<CK_OBJECT_HANDLE> found;
    CK_OBJECT_HANDLE chunk[256];
    CK_ULONG count = 0;
    while (functions->C_FindObjects(on, chunk, 256, &count) == CKR_OK && count)
        found.insert(found.end(), chunk, chunk + count);
    functions->C_FindObjectsFinal(on);
    return found;
}

CK_OBJECT_HANDLE RawToken::FindById(CK_SESSION_HANDLE on, CK_OBJECT_CLASS objectClass,
                                    const std::string& id) const {
    CK_ATTRIBUTE search[] = {{CKA_CLASS, &objectClass, sizeof objectClass},
                             {CKA_ID, const_cast<char*>(id.data()), id.size()}};
    CK_OBJECT_HANDLE object = 0;
    CK_ULONG count = 0;
    Check(functions->C_FindObjectsInit(on, search, 2), "C_FindObjectsInit");
    functions->C_FindObjects(on, &object, 1, &count);
    functions->C_FindObjectsFinal(on);
    return count ? object : 0;
}

void World::Create(bool quick) {
    g_world = new World(quick);
}

World& World::Get() {
    return *g_world;
}

void World::Destroy() {
    delete g_world;
    g_world = nullptr;
}

World::World(bool quick) : quick_(quick) {
    std::random_device random;
    char name[40];
    std::snprintf(name, sizeof name, "quelmksp-bench-%08x", random());
    folder_ = std::filesystem::temp_directory_path() / name;
    std::filesystem::create_directories(folder_ / "tokens");
    MakeToken();
    MakeKeys();
    EnsurePairs(10);
    // Everything the provider copies read is in the environment before the
    // first of them loads; afterwards variables are only replaced, so that
    // every link namespace keeps seeing the one environment.
    quiet_ = LoadProvider(false);
    UseLoggingRegistry(true);
    logging_ = LoadProvider(true);
    UseLoggingRegistry(false);
}

World::~World() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void World::MakeToken() {
    std::string conf = folder_ / "softhsm2.conf";
    std::ofstream(conf) << "directories.tokendir = " << (folder_ / "tokens").string()
                        << "\nobjectstore.backend = file\nlog.level = ERROR\n";
    setenv("SOFTHSM2_CONF", conf.c_str(), 1);
    setenv("QUELMPKCS11_STATE", (folder_ / "state").c_str(), 1);
    setenv("QUELMPKCS11_MODULE", kSoftHsm, 1);
    setenv("QUELMKSP_PKCS11_MODULE", QUELMPKCS11_PATH, 1);
    for (const char* unused : {"QUELMPKCS11_MAX_TRIES", "QUELMPKCS11_SLOT_NAMES",
                               "QUELMPKCS11_SHOW_UNINITIALIZED", "QUELMKSP_DEBUG_OUTPUT"})
        unsetenv(unused);
    Run({"softhsm2-util", "--init-token", "--free", "--label", "bench", "--so-pin", "12345678",
         "--pin", kUserPin});

    quietRegistry_ = folder_ / "quiet.reg";
    loggingRegistry_ = folder_ / "logging.reg";
    std::ofstream(quietRegistry_) << RegistryText("");
    std::ofstream(loggingRegistry_) << RegistryText(folder_ / "ksp.log");
    // The PIN dialog of each provider copy reads the PIN from this file once;
    // the PIN is cached after that.
    std::string pinInput = folder_ / "pin-input";
    std::ofstream(pinInput) << kUserPin << "\n";
    setenv("QUELMKSP_PIN_INPUT", pinInput.c_str(), 1);
    setenv("QUELMKSP_REGISTRY", loggingRegistry_.c_str(), 1);
    UseLoggingRegistry(false);

    middleware_ = OpenRaw(LoadModule(QUELMPKCS11_PATH));
    // The middleware's own backend: the same library, so the same token
    // state.
    softhsm_ = OpenRaw(LoadModule(kSoftHsm));
}

void World::UseLoggingRegistry(bool on) const {
    setenv("QUELMKSP_REGISTRY", (on ? loggingRegistry_ : quietRegistry_).c_str(), 1);
}

void World::MakeKeys() {
    int count = quick_ ? 1 : 3;
    for (int i = 0; i < count; ++i) {
        std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key(EVP_RSA_gen(kBits), &EVP_PKEY_free);
        if (!key) throw std::runtime_error("RSA key generation failed");
        keys_.push_back({BigEndian(key.get(), OSSL_PKEY_PARAM_RSA_N),
                         BigEndian(key.get(), OSSL_PKEY_PARAM_RSA_E),
                         BigEndian(key.get(), OSSL_PKEY_PARAM_RSA_D),
                         BigEndian(key.get(), OSSL_PKEY_PARAM_RSA_FACTOR1),
                         BigEndian(key.get(), OSSL_PKEY_PARAM_RSA_FACTOR2),
                         BigEndian(key.get(), OSSL_PKEY_PARAM_RSA_EXPONENT1),
                         BigEndian(key.get(), OSSL_PKEY_PARAM_RSA_EXPONENT2),
                         BigEndian(key.get(), OSSL_PKEY_PARAM_RSA_COEFFICIENT1)});
    }
}

std::string World::KeyId(int index) {
    char id[8];
    std::snprintf(id, sizeof id, "k%04d", index);
    return id;
}

std::u16string World::KeyName(int index) {
    std::string id = KeyId(index);
    return std::u16string(id.begin(), id.end());
}

void World::WritePair(int index) {
    KeyMaterial& k = keys_[index % keys_.size()];
    std::string id = KeyId(index);
    std::string label = "bench key " + id;
    CK_OBJECT_CLASS publicClass = CKO_PUBLIC_KEY, privateClass = CKO_PRIVATE_KEY;
    CK_KEY_TYPE rsa = CKK_RSA;
    CK_BBOOL yes = CK_TRUE;
    CK_ATTRIBUTE idAttribute = {CKA_ID, id.data(), id.size()};
    CK_ATTRIBUTE labelAttribute = {CKA_LABEL, label.data(), label.size()};
    CK_ATTRIBUTE publicTemplate[] = {{CKA_CLASS, &publicClass, sizeof publicClass},
                                     {CKA_KEY_TYPE, &rsa, sizeof rsa},
                                     {CKA_TOKEN, &yes, 1},
                                     idAttribute,
                                     labelAttribute,
                                     {CKA_VERIFY, &yes, 1},
                                     {CKA_ENCRYPT, &yes, 1},
                                     Bytes(CKA_MODULUS, k.n),
                                     Bytes(CKA_PUBLIC_EXPONENT, k.e)};
    CK_ATTRIBUTE privateTemplate[] = {{CKA_CLASS, &privateClass, sizeof privateClass},
                                      {CKA_KEY_TYPE, &rsa, sizeof rsa},
                                      {CKA_TOKEN, &yes, 1},
                                      idAttribute,
                                      labelAttribute,
                                      {CKA_SIGN, &yes, 1},
                                      {CKA_DECRYPT, &yes, 1},
                                      Bytes(CKA_MODULUS, k.n),
                                      Bytes(CKA_PUBLIC_EXPONENT, k.e),
                                      Bytes(CKA_PRIVATE_EXPONENT, k.d),
                                      Bytes(CKA_PRIME_1, k.p),
                                      Bytes(CKA_PRIME_2, k.q),
                                      Bytes(CKA_EXPONENT_1, k.dp),
                                      Bytes(CKA_EXPONENT_2, k.dq),
                                      Bytes(CKA_COEFFICIENT, k.qinv)};
    CK_OBJECT_HANDLE object = 0;
    CK_FUNCTION_LIST& token = *middleware_.functions;
    Check(token.C_CreateObject(middleware_.session, publicTemplate, std::size(publicTemplate),
                               &object),
          "C_CreateObject (public key)");
    Check(token.C_CreateObject(middleware_.session, privateTemplate, std::size(privateTemplate),
                               &object),
          "C_CreateObject (private key)");
}

void World::EnsurePairs(int count) {
    for (; pairs_ < count; ++pairs_) WritePair(pairs_);
}

ProviderCopy World::LoadProvider(bool ownNamespace) {
    void* handle = ownNamespace
                       ? dlmopen(LM_ID_NEWLM, QUELMKSP_PROVIDER_PATH, RTLD_NOW | RTLD_LOCAL)
                       : dlopen(QUELMKSP_PROVIDER_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!handle) throw std::runtime_error(dlerror());
    auto entry =
        reinterpret_cast<GetKeyStorageInterfaceFn>(dlsym(handle, "GetKeyStorageInterface"));
    ProviderCopy copy;
    if (!entry || entry(kProviderName, &copy.table, 0) != 0)
        throw std::runtime_error("GetKeyStorageInterface failed");
    // The first login of a copy asks for the PIN, which is cached from then
    // on: one signature with each copy, outside every measurement.
    NCRYPT_PROV_HANDLE provider = 0;
    NCRYPT_KEY_HANDLE key = 0;
    if (copy.table->OpenProvider(&provider, kProviderName, NCRYPT_SILENT_FLAG) ||
        copy.table->OpenKey(provider, &key, KeyName(0).c_str(), 0, 0))
        throw std::runtime_error("the provider cannot open the first key");
    uint8_t hash[32] = {};
    DWORD length = 0;
    SECURITY_STATUS status =
        copy.table->SignHash(provider, key, nullptr, hash, sizeof hash, nullptr, 0, &length, 0);
    copy.table->FreeKey(provider, key);
    copy.table->FreeProvider(provider);
    if (status != 0) throw std::runtime_error("the provider's first login failed");
    return copy;
}

long ResidentKiB() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    return 0;
}

}  // namespace bench
