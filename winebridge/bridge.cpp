// quelmpkcs11.dll for Wine: the Windows PKCS#11 ABI in front of the Linux
// middleware. Every entry of the Windows function list converts its
// arguments, calls the same entry of the middleware's list and converts the
// results back.
#include <dlfcn.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "conversion.h"

// Wine's Windows headers, for the Windows side's environment.
#include <windows.h>

#define WIN_CALL __attribute__((ms_abi))
#define TRY(expression)                      \
    do {                                     \
        const CK_RV tried_ = (expression);   \
        if (tried_ != CKR_OK) return tried_; \
    } while (0)

namespace bridge {
namespace {

constexpr const char* kMiddlewareVariable = "QUELMKSP_BRIDGE_MIDDLEWARE";
constexpr const char* kDefaultMiddleware = "libquelmpkcs11.so";

std::mutex g_loadLock;
QUELM_FUNCTION_LIST* g_middleware = nullptr;

HandleMap g_slots(CKR_SLOT_ID_INVALID);
HandleMap g_sessions(CKR_SESSION_HANDLE_INVALID);
HandleMap g_objects(CKR_OBJECT_HANDLE_INVALID);

// The middleware and SoftHSM2 read their settings with getenv, from the
// Unix environment, which SetEnvironmentVariable does not reach. A Windows
// process configures them through its own environment, so these variables
// are copied across whenever the middleware is initialised.
bool Forwarded(std::string_view name) {
    return name == "SOFTHSM2_CONF" || name.rfind("QUELMPKCS11_", 0) == 0;
}

void ForwardEnvironment() {
    std::vector<std::pair<std::string, std::string>> wanted;
    if (char* block = GetEnvironmentStringsA()) {
        for (const char* entry = block; *entry; entry += std::strlen(entry) + 1) {
            const std::string_view text(entry);
            const size_t equals = text.find('=', 1);
            if (equals != std::string_view::npos && Forwarded(text.substr(0, equals)))
                wanted.emplace_back(text.substr(0, equals), text.substr(equals + 1));
        }
        FreeEnvironmentStringsA(block);
    }
    std::vector<std::string> stale;
    for (char** entry = environ; *entry; ++entry) {
        const std::string_view text(*entry);
        const std::string_view name = text.substr(0, text.find('='));
        if (Forwarded(name)) stale.emplace_back(name);
    }
    for (const std::string& name : stale) unsetenv(name.c_str());
    for (const auto& [name, value] : wanted) setenv(name.c_str(), value.c_str(), 1);
}

std::string MiddlewarePath() {
    char path[4096];
    const DWORD length = GetEnvironmentVariableA(kMiddlewareVariable, path, sizeof(path));
    return length > 0 && length < sizeof(path) ? std::string(path, length) : kDefaultMiddleware;
}

// Loaded at the first C_Initialize, not when Wine loads the bridge, and
// never unloaded: the middleware's function list is handed on for the life
// of the process.
CK_RV LoadMiddleware() {
    if (g_middleware) return CKR_OK;
    const std::string path = MiddlewarePath();
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    auto getList = module
                       ? reinterpret_cast<CK_C_GetFunctionList>(dlsym(module, "C_GetFunctionList"))
                       : nullptr;
    CK_FUNCTION_LIST_PTR list = nullptr;
    if (!getList || getList(&list) != CKR_OK || !list) {
        std::fprintf(stderr, "quelmpkcs11 bridge: cannot use the middleware %s (set %s): %s\n",
                     path.c_str(), kMiddlewareVariable, module ? "no function list" : dlerror());
        if (module) dlclose(module);
        return CKR_GENERAL_ERROR;
    }
    g_middleware = reinterpret_cast<QUELM_FUNCTION_LIST*>(list);
    return CKR_OK;
}

template <typename Body>
WinUlong Call(Body body) {
    CK_FUNCTION_LIST* list = g_middleware ? &g_middleware->standard : nullptr;
    if (!list) return CKR_CRYPTOKI_NOT_INITIALIZED;
    try {
        return Narrow(body(*list));
    } catch (const std::bad_alloc&) {
        return CKR_HOST_MEMORY;
    } catch (...) {
        return CKR_GENERAL_ERROR;
    }
}

// A caller's 32-bit in/out length, widened for the call and narrowed back.
class Length {
public:
    explicit Length(WinUlong* windows) : windows_(windows), value_(windows ? *windows : 0) {}
    ~Length() {
        if (windows_) *windows_ = Narrow(value_);
    }
    CK_ULONG_PTR get() { return windows_ ? &value_ : nullptr; }

private:
    WinUlong* windows_;
    CK_ULONG value_;
};

// The handles a call creates, handed to the caller only when it succeeded.
CK_RV GiveHandle(CK_RV rv, CK_OBJECT_HANDLE handle, WinUlong* out) {
    if (rv != CKR_OK || !out) return rv;
    return g_objects.ToWindows(handle, out);
}

CK_RV GiveHandles(HandleMap& map, CK_RV rv, const std::vector<CK_ULONG>& values, CK_ULONG count,
                  WinUlong* out) {
    if (rv != CKR_OK || !out) return rv;
    for (CK_ULONG i = 0; i < count && i < values.size(); ++i)
        TRY(map.ToWindows(values[i], &out[i]));
    return CKR_OK;
}

WIN_CALL WinUlong Initialize(void* args) {
    std::lock_guard<std::mutex> hold(g_loadLock);
    ForwardEnvironment();
    TRY(LoadMiddleware());
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        if (!args) return f.C_Initialize(nullptr);
        const auto* windows = static_cast<const WinInitializeArgs*>(args);
        if (windows->pReserved) return CKR_ARGUMENTS_BAD;
        // The caller's mutex callbacks follow the Windows calling convention,
        // which the Linux side cannot call; operating system locks serve.
        if (windows->createMutex && !(windows->flags & CKF_OS_LOCKING_OK)) return CKR_CANT_LOCK;
        CK_C_INITIALIZE_ARGS linuxArgs{};
        linuxArgs.flags = windows->flags;
        return f.C_Initialize(&linuxArgs);
    });
}

WIN_CALL WinUlong Finalize(void* reserved) {
    return Call([&](CK_FUNCTION_LIST& f) { return f.C_Finalize(reserved); });
}

WIN_CALL WinUlong GetInfo(WinInfo* info) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        if (!info) return CKR_ARGUMENTS_BAD;
        CK_INFO linuxInfo{};
        TRY(f.C_GetInfo(&linuxInfo));
        ToWindows(linuxInfo, info);
        return CKR_OK;
    });
}

WIN_CALL WinUlong GetFunctionList(void** list);

WIN_CALL WinUlong GetSlotList(CK_BBOOL tokenPresent, WinUlong* list, WinUlong* count) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        if (!count) return CKR_ARGUMENTS_BAD;
        CK_ULONG n = list ? *count : 0;
        std::vector<CK_SLOT_ID> slots(n + 1);
        const CK_RV rv = f.C_GetSlotList(tokenPresent, list ? slots.data() : nullptr, &n);
        *count = Narrow(n);
        return GiveHandles(g_slots, rv, slots, n, list);
    });
}

WIN_CALL WinUlong GetSlotInfo(WinUlong slot, WinSlotInfo* info) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SLOT_ID id;
        TRY(g_slots.ToLinux(slot, &id));
        if (!info) return CKR_ARGUMENTS_BAD;
        CK_SLOT_INFO linuxInfo{};
        TRY(f.C_GetSlotInfo(id, &linuxInfo));
        ToWindows(linuxInfo, info);
        return CKR_OK;
    });
}

WIN_CALL WinUlong GetTokenInfo(WinUlong slot, WinTokenInfo* info) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SLOT_ID id;
        TRY(g_slots.ToLinux(slot, &id));
        if (!info) return CKR_ARGUMENTS_BAD;
        CK_TOKEN_INFO linuxInfo{};
        TRY(f.C_GetTokenInfo(id, &linuxInfo));
        ToWindows(linuxInfo, info);
        return CKR_OK;
    });
}

WIN_CALL WinUlong GetMechanismList(WinUlong slot, WinUlong* list, WinUlong* count) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SLOT_ID id;
        TRY(g_slots.ToLinux(slot, &id));
        if (!count) return CKR_ARGUMENTS_BAD;
        CK_ULONG n = list ? *count : 0;
        std::vector<CK_MECHANISM_TYPE> types(n + 1);
        const CK_RV rv = f.C_GetMechanismList(id, list ? types.data() : nullptr, &n);
        *count = Narrow(n);
        if (rv == CKR_OK && list)
            for (CK_ULONG i = 0; i < n; ++i) list[i] = Narrow(types[i]);
        return rv;
    });
}

WIN_CALL WinUlong GetMechanismInfo(WinUlong slot, WinUlong type, WinMechanismInfo* info) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SLOT_ID id;
        TRY(g_slots.ToLinux(slot, &id));
        if (!info) return CKR_ARGUMENTS_BAD;
        CK_MECHANISM_INFO linuxInfo{};
        TRY(f.C_GetMechanismInfo(id, Widen(type), &linuxInfo));
        ToWindows(linuxInfo, info);
        return CKR_OK;
    });
}

WIN_CALL WinUlong InitToken(WinUlong slot, CK_UTF8CHAR_PTR pin, WinUlong pinLen,
                            CK_UTF8CHAR_PTR label) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SLOT_ID id;
        TRY(g_slots.ToLinux(slot, &id));
        return f.C_InitToken(id, pin, pinLen, label);
    });
}

WIN_CALL WinUlong CloseAllSessions(WinUlong slot) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SLOT_ID id;
        TRY(g_slots.ToLinux(slot, &id));
        return f.C_CloseAllSessions(id);
    });
}

// The caller's notification callback follows the Windows calling convention,
// so it is not handed on; the middleware's backend never calls one anyway.
WIN_CALL WinUlong OpenSession(WinUlong slot, WinUlong flags, void* application, void*,
                              WinUlong* session) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SLOT_ID id;
        TRY(g_slots.ToLinux(slot, &id));
        if (!session) return CKR_ARGUMENTS_BAD;
        CK_SESSION_HANDLE opened = 0;
        TRY(f.C_OpenSession(id, flags, application, nullptr, &opened));
        return g_sessions.ToWindows(opened, session);
    });
}

WIN_CALL WinUlong GetSessionInfo(WinUlong session, WinSessionInfo* info) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        if (!info) return CKR_ARGUMENTS_BAD;
        CK_SESSION_INFO linuxInfo{};
        TRY(f.C_GetSessionInfo(s, &linuxInfo));
        TRY(g_slots.ToWindows(linuxInfo.slotID, &info->slotID));
        info->state = Narrow(linuxInfo.state);
        info->flags = Narrow(linuxInfo.flags);
        info->ulDeviceError = Narrow(linuxInfo.ulDeviceError);
        return CKR_OK;
    });
}

// The entries that differ only in the middleware function they call share
// one converting shape each.

template <auto Fn>  // (session)
WIN_CALL WinUlong SessionOnly(WinUlong session) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        return (f.*Fn)(s);
    });
}

template <auto Fn>  // (session, bytes, length)
WIN_CALL WinUlong BytesIn(WinUlong session, CK_BYTE_PTR data, WinUlong length) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        return (f.*Fn)(s, data, length);
    });
}

template <auto Fn>  // (session, user type, PIN, PIN length)
WIN_CALL WinUlong Login(WinUlong session, WinUlong userType, CK_UTF8CHAR_PTR pin, WinUlong length) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        return (f.*Fn)(s, Widen(userType), pin, length);
    });
}

template <auto Fn>  // (session, in, in length, out, out length)
WIN_CALL WinUlong BytesInOut(WinUlong session, CK_BYTE_PTR in, WinUlong inLength, CK_BYTE_PTR out,
                             WinUlong* outLength) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        Length length(outLength);
        return (f.*Fn)(s, in, inLength, out, length.get());
    });
}

template <auto Fn>  // (session, out, out length)
WIN_CALL WinUlong BytesOut(WinUlong session, CK_BYTE_PTR out, WinUlong* outLength) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        Length length(outLength);
        return (f.*Fn)(s, out, length.get());
    });
}

template <auto Fn>  // (session, mechanism, key)
WIN_CALL WinUlong OperationInit(WinUlong session, WinMechanism* mechanism, WinUlong key) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_OBJECT_HANDLE k;
        CK_MECHANISM m;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(g_objects.ToLinux(key, &k));
        TRY(ToLinux(mechanism, &m));
        return (f.*Fn)(s, &m, k);
    });
}

WIN_CALL WinUlong SetPIN(WinUlong session, CK_UTF8CHAR_PTR oldPin, WinUlong oldLength,
                         CK_UTF8CHAR_PTR newPin, WinUlong newLength) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        return f.C_SetPIN(s, oldPin, oldLength, newPin, newLength);
    });
}

WIN_CALL WinUlong SetOperationState(WinUlong session, CK_BYTE_PTR state, WinUlong length,
                                    WinUlong encryptionKey, WinUlong authenticationKey) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_OBJECT_HANDLE encryption, authentication;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(g_objects.ToLinux(encryptionKey, &encryption));
        TRY(g_objects.ToLinux(authenticationKey, &authentication));
        return f.C_SetOperationState(s, state, length, encryption, authentication);
    });
}

WIN_CALL WinUlong CreateObject(WinUlong session, WinAttribute* attributes, WinUlong count,
                               WinUlong* object) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        LinuxTemplate linuxTemplate;
        TRY(linuxTemplate.TakeValues(attributes, count));
        CK_OBJECT_HANDLE created = 0;
        const CK_RV rv = f.C_CreateObject(s, linuxTemplate.data(), linuxTemplate.size(),
                                          object ? &created : nullptr);
        return GiveHandle(rv, created, object);
    });
}

WIN_CALL WinUlong CopyObject(WinUlong session, WinUlong object, WinAttribute* attributes,
                             WinUlong count, WinUlong* copy) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_OBJECT_HANDLE o;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(g_objects.ToLinux(object, &o));
        LinuxTemplate linuxTemplate;
        TRY(linuxTemplate.TakeValues(attributes, count));
        CK_OBJECT_HANDLE created = 0;
        const CK_RV rv = f.C_CopyObject(s, o, linuxTemplate.data(), linuxTemplate.size(),
                                        copy ? &created : nullptr);
        return GiveHandle(rv, created, copy);
    });
}

WIN_CALL WinUlong DestroyObject(WinUlong session, WinUlong object) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_OBJECT_HANDLE o;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(g_objects.ToLinux(object, &o));
        return f.C_DestroyObject(s, o);
    });
}

WIN_CALL WinUlong DigestKey(WinUlong session, WinUlong key) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_OBJECT_HANDLE k;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(g_objects.ToLinux(key, &k));
        return f.C_DigestKey(s, k);
    });
}

WIN_CALL WinUlong GetObjectSize(WinUlong session, WinUlong object, WinUlong* size) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_OBJECT_HANDLE o;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(g_objects.ToLinux(object, &o));
        Length length(size);
        return f.C_GetObjectSize(s, o, length.get());
    });
}

WIN_CALL WinUlong GetAttributeValue(WinUlong session, WinUlong object, WinAttribute* attributes,
                                    WinUlong count) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_OBJECT_HANDLE o;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(g_objects.ToLinux(object, &o));
        LinuxTemplate linuxTemplate;
        TRY(linuxTemplate.PrepareToReceive(attributes, count));
        const CK_RV rv = f.C_GetAttributeValue(s, o, linuxTemplate.data(), linuxTemplate.size());
        if (rv == CKR_OK || rv == CKR_ATTRIBUTE_SENSITIVE || rv == CKR_ATTRIBUTE_TYPE_INVALID ||
            rv == CKR_BUFFER_TOO_SMALL)
            linuxTemplate.GiveBack(attributes);
        return rv;
    });
}

WIN_CALL WinUlong SetAttributeValue(WinUlong session, WinUlong object, WinAttribute* attributes,
                                    WinUlong count) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_OBJECT_HANDLE o;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(g_objects.ToLinux(object, &o));
        LinuxTemplate linuxTemplate;
        TRY(linuxTemplate.TakeValues(attributes, count));
        return f.C_SetAttributeValue(s, o, linuxTemplate.data(), linuxTemplate.size());
    });
}

WIN_CALL WinUlong FindObjectsInit(WinUlong session, WinAttribute* attributes, WinUlong count) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        LinuxTemplate linuxTemplate;
        TRY(linuxTemplate.TakeValues(attributes, count));
        return f.C_FindObjectsInit(s, linuxTemplate.data(), linuxTemplate.size());
    });
}

// A null handle array asks the middleware how many matches are left.
WIN_CALL WinUlong FindObjects(WinUlong session, WinUlong* objects, WinUlong maxCount,
                              WinUlong* count) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        std::vector<CK_OBJECT_HANDLE> found(objects ? maxCount + 1 : 1);
        CK_ULONG n = 0;
        const CK_RV rv =
            f.C_FindObjects(s, objects ? found.data() : nullptr, maxCount, count ? &n : nullptr);
        if (count) *count = Narrow(n);
        return GiveHandles(g_objects, rv, found, n, objects);
    });
}

WIN_CALL WinUlong Verify(WinUlong session, CK_BYTE_PTR data, WinUlong dataLength,
                         CK_BYTE_PTR signature, WinUlong signatureLength) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        return f.C_Verify(s, data, dataLength, signature, signatureLength);
    });
}

WIN_CALL WinUlong DigestInit(WinUlong session, WinMechanism* mechanism) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_MECHANISM m;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(ToLinux(mechanism, &m));
        return f.C_DigestInit(s, &m);
    });
}

WIN_CALL WinUlong GenerateKey(WinUlong session, WinMechanism* mechanism, WinAttribute* attributes,
                              WinUlong count, WinUlong* key) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_MECHANISM m;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(ToLinux(mechanism, &m));
        LinuxTemplate linuxTemplate;
        TRY(linuxTemplate.TakeValues(attributes, count));
        CK_OBJECT_HANDLE created = 0;
        const CK_RV rv = f.C_GenerateKey(s, &m, linuxTemplate.data(), linuxTemplate.size(),
                                         key ? &created : nullptr);
        return GiveHandle(rv, created, key);
    });
}

WIN_CALL WinUlong GenerateKeyPair(WinUlong session, WinMechanism* mechanism,
                                  WinAttribute* publicAttributes, WinUlong publicCount,
                                  WinAttribute* privateAttributes, WinUlong privateCount,
                                  WinUlong* publicKey, WinUlong* privateKey) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_MECHANISM m;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(ToLinux(mechanism, &m));
        LinuxTemplate publicTemplate, privateTemplate;
        TRY(publicTemplate.TakeValues(publicAttributes, publicCount));
        TRY(privateTemplate.TakeValues(privateAttributes, privateCount));
        CK_OBJECT_HANDLE publicCreated = 0, privateCreated = 0;
        const CK_RV rv = f.C_GenerateKeyPair(s, &m, publicTemplate.data(), publicTemplate.size(),
                                             privateTemplate.data(), privateTemplate.size(),
                                             publicKey ? &publicCreated : nullptr,
                                             privateKey ? &privateCreated : nullptr);
        TRY(GiveHandle(rv, publicCreated, publicKey));
        return GiveHandle(rv, privateCreated, privateKey);
    });
}

WIN_CALL WinUlong WrapKey(WinUlong session, WinMechanism* mechanism, WinUlong wrappingKey,
                          WinUlong key, CK_BYTE_PTR wrapped, WinUlong* wrappedLength) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_MECHANISM m;
        CK_OBJECT_HANDLE wrapping, k;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(ToLinux(mechanism, &m));
        TRY(g_objects.ToLinux(wrappingKey, &wrapping));
        TRY(g_objects.ToLinux(key, &k));
        Length length(wrappedLength);
        return f.C_WrapKey(s, &m, wrapping, k, wrapped, length.get());
    });
}

WIN_CALL WinUlong UnwrapKey(WinUlong session, WinMechanism* mechanism, WinUlong unwrappingKey,
                            CK_BYTE_PTR wrapped, WinUlong wrappedLength, WinAttribute* attributes,
                            WinUlong count, WinUlong* key) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_MECHANISM m;
        CK_OBJECT_HANDLE unwrapping;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(ToLinux(mechanism, &m));
        TRY(g_objects.ToLinux(unwrappingKey, &unwrapping));
        LinuxTemplate linuxTemplate;
        TRY(linuxTemplate.TakeValues(attributes, count));
        CK_OBJECT_HANDLE created = 0;
        const CK_RV rv =
            f.C_UnwrapKey(s, &m, unwrapping, wrapped, wrappedLength, linuxTemplate.data(),
                          linuxTemplate.size(), key ? &created : nullptr);
        return GiveHandle(rv, created, key);
    });
}

WIN_CALL WinUlong DeriveKey(WinUlong session, WinMechanism* mechanism, WinUlong baseKey,
                            WinAttribute* attributes, WinUlong count, WinUlong* key) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        CK_SESSION_HANDLE s;
        CK_MECHANISM m;
        CK_OBJECT_HANDLE base;
        TRY(g_sessions.ToLinux(session, &s));
        TRY(ToLinux(mechanism, &m));
        TRY(g_objects.ToLinux(baseKey, &base));
        LinuxTemplate linuxTemplate;
        TRY(linuxTemplate.TakeValues(attributes, count));
        CK_OBJECT_HANDLE created = 0;
        const CK_RV rv = f.C_DeriveKey(s, &m, base, linuxTemplate.data(), linuxTemplate.size(),
                                       key ? &created : nullptr);
        return GiveHandle(rv, created, key);
    });
}

WIN_CALL WinUlong WaitForSlotEvent(WinUlong flags, WinUlong* slot, void* reserved) {
    return Call([&](CK_FUNCTION_LIST& f) -> CK_RV {
        if (!slot) return CKR_ARGUMENTS_BAD;
        CK_SLOT_ID id = 0;
        TRY(f.C_WaitForSlotEvent(flags, &id, reserved));
        return g_slots.ToWindows(id, slot);
    });
}

WIN_CALL WinUlong ExtendedLogin(WinUlong session, WinUlong userType, CK_UTF8CHAR_PTR pin,
                                WinUlong length) {
    return Call([&](CK_FUNCTION_LIST&) -> CK_RV {
        if (!g_middleware->ExtendedLogin) return CKR_FUNCTION_NOT_SUPPORTED;
        CK_SESSION_HANDLE s;
        TRY(g_sessions.ToLinux(session, &s));
        return g_middleware->ExtendedLogin(s, Widen(userType), pin, length);
    });
}

using F = CK_FUNCTION_LIST;

// The Windows function list: the version, the 68 standard entries in their
// order, 4 reserved entries and ExtendedLogin as entry 72.
#pragma pack(push, 1)
struct WinFunctionList {
    WinVersion version;
    void* entries[QUELM_EXTENDED_LOGIN_INDEX + 1];
};
#pragma pack(pop)
static_assert(offsetof(WinFunctionList, entries) + QUELM_EXTENDED_LOGIN_INDEX * sizeof(void*) ==
                  578,
              "ExtendedLogin at entry 72 of the packed Windows list");

template <typename Fn>
void* Entry(Fn fn) {
    return reinterpret_cast<void*>(fn);
}

WinFunctionList g_windowsList = {
    {CRYPTOKI_VERSION_MAJOR, CRYPTOKI_VERSION_MINOR},
    {
        Entry(&Initialize),
        Entry(&Finalize),
        Entry(&GetInfo),
        Entry(&GetFunctionList),
        Entry(&GetSlotList),
        Entry(&GetSlotInfo),
        Entry(&GetTokenInfo),
        Entry(&GetMechanismList),
        Entry(&GetMechanismInfo),
        Entry(&InitToken),
        Entry(&BytesIn<&F::C_InitPIN>),
        Entry(&SetPIN),
        Entry(&OpenSession),
        Entry(&SessionOnly<&F::C_CloseSession>),
        Entry(&CloseAllSessions),
        Entry(&GetSessionInfo),
        Entry(&BytesOut<&F::C_GetOperationState>),
        Entry(&SetOperationState),
        Entry(&Login<&F::C_Login>),
        Entry(&SessionOnly<&F::C_Logout>),
        Entry(&CreateObject),
        Entry(&CopyObject),
        Entry(&DestroyObject),
        Entry(&GetObjectSize),
        Entry(&GetAttributeValue),
        Entry(&SetAttributeValue),
        Entry(&FindObjectsInit),
        Entry(&FindObjects),
        Entry(&SessionOnly<&F::C_FindObjectsFinal>),
        Entry(&OperationInit<&F::C_EncryptInit>),
        Entry(&BytesInOut<&F::C_Encrypt>),
        Entry(&BytesInOut<&F::C_EncryptUpdate>),
        Entry(&BytesOut<&F::C_EncryptFinal>),
        Entry(&OperationInit<&F::C_DecryptInit>),
        Entry(&BytesInOut<&F::C_Decrypt>),
        Entry(&BytesInOut<&F::C_DecryptUpdate>),
        Entry(&BytesOut<&F::C_DecryptFinal>),
        Entry(&DigestInit),
        Entry(&BytesInOut<&F::C_Digest>),
        Entry(&BytesIn<&F::C_DigestUpdate>),
        Entry(&DigestKey),
        Entry(&BytesOut<&F::C_DigestFinal>),
        Entry(&OperationInit<&F::C_SignInit>),
        Entry(&BytesInOut<&F::C_Sign>),
        Entry(&BytesIn<&F::C_SignUpdate>),
        Entry(&BytesOut<&F::C_SignFinal>),
        Entry(&OperationInit<&F::C_SignRecoverInit>),
        Entry(&BytesInOut<&F::C_SignRecover>),
        Entry(&OperationInit<&F::C_VerifyInit>),
        Entry(&Verify),
        Entry(&BytesIn<&F::C_VerifyUpdate>),
        Entry(&BytesIn<&F::C_VerifyFinal>),
        Entry(&OperationInit<&F::C_VerifyRecoverInit>),
        Entry(&BytesInOut<&F::C_VerifyRecover>),
        Entry(&BytesInOut<&F::C_DigestEncryptUpdate>),
        Entry(&BytesInOut<&F::C_DecryptDigestUpdate>),
        Entry(&BytesInOut<&F::C_SignEncryptUpdate>),
        Entry(&BytesInOut<&F::C_DecryptVerifyUpdate>),
        Entry(&GenerateKey),
        Entry(&GenerateKeyPair),
        Entry(&WrapKey),
        Entry(&UnwrapKey),
        Entry(&DeriveKey),
        Entry(&BytesIn<&F::C_SeedRandom>),
        Entry(&BytesIn<&F::C_GenerateRandom>),
        Entry(&SessionOnly<&F::C_GetFunctionStatus>),
        Entry(&SessionOnly<&F::C_CancelFunction>),
        Entry(&WaitForSlotEvent),
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        Entry(&ExtendedLogin),
    },
};

WIN_CALL WinUlong GetFunctionList(void** list) {
    if (!list) return CKR_ARGUMENTS_BAD;
    *list = &g_windowsList;
    return CKR_OK;
}

}  // namespace
}  // namespace bridge

// Exported as C_GetFunctionList through the export list; the Linux header
// already declares that name with the Linux signature.
extern "C" WIN_CALL bridge::WinUlong BridgeGetFunctionList(void** list) {
    return bridge::GetFunctionList(list);
}
