// The two PKCS#11 ABIs that meet in the bridge, and every conversion between
// them. The Windows side has a 32-bit CK_ULONG and structures packed to one
// byte; the Linux side is the middleware's native ABI. Nothing here needs
// Wine, so the conversions are tested natively.
#pragma once

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

// winegcc defines _WIN32 and _WIN64, which would make the Linux headers
// describe the Windows ABI.
#pragma push_macro("_WIN32")
#pragma push_macro("_WIN64")
#undef _WIN32
#undef _WIN64
#include <p11-kit/pkcs11.h>

#include "quelmpkcs11/extended_function_list.h"
#pragma pop_macro("_WIN64")
#pragma pop_macro("_WIN32")

namespace bridge {

using WinUlong = uint32_t;

#pragma pack(push, 1)
struct WinVersion {
    uint8_t major;
    uint8_t minor;
};
struct WinAttribute {
    WinUlong type;
    void* pValue;
    WinUlong ulValueLen;
};
struct WinMechanism {
    WinUlong mechanism;
    void* pParameter;
    WinUlong ulParameterLen;
};
struct WinInitializeArgs {
    void* createMutex;
    void* destroyMutex;
    void* lockMutex;
    void* unlockMutex;
    WinUlong flags;
    void* pReserved;
};
struct WinInfo {
    WinVersion cryptokiVersion;
    uint8_t manufacturerID[32];
    WinUlong flags;
    uint8_t libraryDescription[32];
    WinVersion libraryVersion;
};
struct WinSlotInfo {
    uint8_t slotDescription[64];
    uint8_t manufacturerID[32];
    WinUlong flags;
    WinVersion hardwareVersion;
    WinVersion firmwareVersion;
};
struct WinTokenInfo {
    uint8_t label[32];
    uint8_t manufacturerID[32];
    uint8_t model[16];
    uint8_t serialNumber[16];
    WinUlong flags;
    WinUlong ulMaxSessionCount;
    WinUlong ulSessionCount;
    WinUlong ulMaxRwSessionCount;
    WinUlong ulRwSessionCount;
    WinUlong ulMaxPinLen;
    WinUlong ulMinPinLen;
    WinUlong ulTotalPublicMemory;
    WinUlong ulFreePublicMemory;
    WinUlong ulTotalPrivateMemory;
    WinUlong ulFreePrivateMemory;
    WinVersion hardwareVersion;
    WinVersion firmwareVersion;
    uint8_t utcTime[16];
};
struct WinSessionInfo {
    WinUlong slotID;
    WinUlong state;
    WinUlong flags;
    WinUlong ulDeviceError;
};
struct WinMechanismInfo {
    WinUlong ulMinKeySize;
    WinUlong ulMaxKeySize;
    WinUlong flags;
};
#pragma pack(pop)

static_assert(sizeof(WinAttribute) == 16 && sizeof(WinMechanism) == 16, "packed pairs");
static_assert(sizeof(WinInfo) == 72 && sizeof(WinSlotInfo) == 104, "packed infos");
static_assert(sizeof(WinTokenInfo) == 160 && sizeof(WinSessionInfo) == 16, "packed infos");

// CK_UNAVAILABLE_INFORMATION is all ones on both sides; every other value
// keeps its number. A Linux value too big for 32 bits reads as unavailable.
CK_ULONG Widen(WinUlong value);
WinUlong Narrow(CK_ULONG value);

// How an attribute's value is laid out, which decides its conversion.
enum class ValueKind {
    Bytes,       // the same bytes on both sides
    Ulong,       // one CK_ULONG: 4 bytes on Windows, 8 on Linux
    UlongArray,  // CK_ULONGs (mechanism types)
    Template,    // a nested attribute template, which the bridge does not carry
};
ValueKind KindOf(CK_ATTRIBUTE_TYPE type);

// A Linux copy of a Windows attribute template. Byte values are shared with
// the caller; converted values live in the object.
class LinuxTemplate {
public:
    // For templates that carry values in: every value is converted.
    CK_RV TakeValues(const WinAttribute* attributes, WinUlong count);
    // For C_GetAttributeValue: room for each value the caller has room for.
    CK_RV PrepareToReceive(const WinAttribute* attributes, WinUlong count);
    // After C_GetAttributeValue: values and lengths back into the caller's
    // template, in the Windows layout.
    void GiveBack(WinAttribute* attributes) const;

    CK_ATTRIBUTE* data() { return attributes_.empty() ? nullptr : attributes_.data(); }
    CK_ULONG size() const { return attributes_.size(); }

private:
    CK_RV Convert(const WinAttribute* attributes, WinUlong count, bool withValues);
    std::vector<CK_ATTRIBUTE> attributes_;
    std::vector<std::vector<CK_ULONG>> wide_;
};

// A Linux mechanism for a Windows one. Parameters are bytes and pass
// unchanged; the few mechanisms whose parameter structures hold CK_ULONGs
// are refused with CKR_MECHANISM_PARAM_INVALID.
CK_RV ToLinux(const WinMechanism* in, CK_MECHANISM* out);

void ToWindows(const CK_INFO& in, WinInfo* out);
void ToWindows(const CK_SLOT_INFO& in, WinSlotInfo* out);
void ToWindows(const CK_TOKEN_INFO& in, WinTokenInfo* out);
void ToWindows(const CK_MECHANISM_INFO& in, WinMechanismInfo* out);

// Slot ids and handles as the Windows side sees them. Values below 2^31
// keep their number; bigger ones get a number of their own from 2^31 up, so
// that none is ever truncated and the two sides stay one to one.
class HandleMap {
public:
    // invalid: what a call returns for a Windows value that was never handed out.
    explicit HandleMap(CK_RV invalid) : invalid_(invalid) {}

    // CKR_HOST_MEMORY when no number is left, else CKR_OK.
    CK_RV ToWindows(CK_ULONG linuxValue, WinUlong* windowsValue);
    CK_RV ToLinux(WinUlong windowsValue, CK_ULONG* linuxValue) const;

    static constexpr WinUlong kFirstMapped = 0x80000000u;

private:
    CK_RV invalid_;
    mutable std::mutex lock_;
    std::unordered_map<CK_ULONG, WinUlong> windows_;
    std::vector<CK_ULONG> linux_;
};

}  // namespace bridge
