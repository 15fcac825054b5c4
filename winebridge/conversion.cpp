#include "conversion.h"

#include <cstring>
#include <limits>

namespace bridge {

CK_ULONG Widen(WinUlong value) {
    return value == std::numeric_limits<WinUlong>::max() ? CK_UNAVAILABLE_INFORMATION : value;
}

WinUlong Narrow(CK_ULONG value) {
    return value > std::numeric_limits<WinUlong>::max() ? std::numeric_limits<WinUlong>::max()
                                                        : static_cast<WinUlong>(value);
}

ValueKind KindOf(CK_ATTRIBUTE_TYPE type) {
    switch (type) {
        case CKA_CLASS:
        case CKA_KEY_TYPE:
        case CKA_CERTIFICATE_TYPE:
        case CKA_CERTIFICATE_CATEGORY:
        case CKA_JAVA_MIDP_SECURITY_DOMAIN:
        case CKA_NAME_HASH_ALGORITHM:
        case CKA_MODULUS_BITS:
        case CKA_PRIME_BITS:
        case CKA_SUB_PRIME_BITS:
        case CKA_VALUE_BITS:
        case CKA_VALUE_LEN:
        case CKA_KEY_GEN_MECHANISM:
        case CKA_AUTH_PIN_FLAGS:
        case CKA_MECHANISM_TYPE:
        case CKA_HW_FEATURE_TYPE:
        case CKA_PIXEL_X:
        case CKA_PIXEL_Y:
        case CKA_RESOLUTION:
        case CKA_CHAR_ROWS:
        case CKA_CHAR_COLUMNS:
        case CKA_BITS_PER_PIXEL:
        case CKA_OTP_FORMAT:
        case CKA_OTP_LENGTH:
        case CKA_OTP_TIME_INTERVAL:
        case CKA_OTP_CHALLENGE_REQUIREMENT:
        case CKA_OTP_TIME_REQUIREMENT:
        case CKA_OTP_COUNTER_REQUIREMENT:
        case CKA_OTP_PIN_REQUIREMENT:
            return ValueKind::Ulong;
        case CKA_ALLOWED_MECHANISMS:
            return ValueKind::UlongArray;
        case CKA_WRAP_TEMPLATE:
        case CKA_UNWRAP_TEMPLATE:
        case CKA_DERIVE_TEMPLATE:
            return ValueKind::Template;
        default:
            return ValueKind::Bytes;
    }
}

CK_RV LinuxTemplate::TakeValues(const WinAttribute* attributes, WinUlong count) {
    return Convert(attributes, count, true);
}

CK_RV LinuxTemplate::PrepareToReceive(const WinAttribute* attributes, WinUlong count) {
    return Convert(attributes, count, false);
}

CK_RV LinuxTemplate::Convert(const WinAttribute* attributes, WinUlong count, bool withValues) {
    if (!attributes && count > 0) return CKR_ARGUMENTS_BAD;
    attributes_.assign(count, CK_ATTRIBUTE{});
    wide_.assign(count, {});
    for (WinUlong i = 0; i < count; ++i) {
        const WinAttribute& in = attributes[i];
        CK_ATTRIBUTE& out = attributes_[i];
        out.type = Widen(in.type);
        const ValueKind kind = KindOf(out.type);
        if (kind == ValueKind::Template) return CKR_ATTRIBUTE_TYPE_INVALID;
        out.pValue = in.pValue;
        out.ulValueLen = in.ulValueLen;
        if (kind == ValueKind::Bytes || !in.pValue) continue;

        // A value given is a whole number of CK_ULONGs; room to receive one
        // is counted in whole CK_ULONGs.
        const size_t n = in.ulValueLen / sizeof(WinUlong);
        if (withValues &&
            (in.ulValueLen % sizeof(WinUlong) != 0 || (kind == ValueKind::Ulong && n != 1)))
            return CKR_ATTRIBUTE_VALUE_INVALID;
        std::vector<CK_ULONG>& wide = wide_[i];
        wide.resize(n + 1);
        out.pValue = wide.data();
        out.ulValueLen = n * sizeof(CK_ULONG);
        if (!withValues) continue;
        for (size_t k = 0; k < n; ++k) {
            WinUlong value;
            std::memcpy(&value, static_cast<const uint8_t*>(in.pValue) + k * sizeof(value),
                        sizeof(value));
            wide[k] = Widen(value);
        }
    }
    return CKR_OK;
}

void LinuxTemplate::GiveBack(WinAttribute* attributes) const {
    for (size_t i = 0; i < attributes_.size(); ++i) {
        const CK_ATTRIBUTE& in = attributes_[i];
        WinAttribute& out = attributes[i];
        const ValueKind kind = KindOf(in.type);
        if (kind == ValueKind::Bytes || in.ulValueLen == CK_UNAVAILABLE_INFORMATION) {
            out.ulValueLen = Narrow(in.ulValueLen);
            continue;
        }
        const size_t n = in.ulValueLen / sizeof(CK_ULONG);
        out.ulValueLen = Narrow(n * sizeof(WinUlong));
        if (!out.pValue) continue;
        for (size_t k = 0; k < n; ++k) {
            const WinUlong value = Narrow(static_cast<const CK_ULONG*>(in.pValue)[k]);
            std::memcpy(static_cast<uint8_t*>(out.pValue) + k * sizeof(value), &value,
                        sizeof(value));
        }
    }
}

CK_RV ToLinux(const WinMechanism* in, CK_MECHANISM* out) {
    if (!in) return CKR_ARGUMENTS_BAD;
    out->mechanism = Widen(in->mechanism);
    out->pParameter = in->pParameter;
    out->ulParameterLen = in->ulParameterLen;
    switch (out->mechanism) {
        case CKM_RSA_PKCS_PSS:
        case CKM_SHA1_RSA_PKCS_PSS:
        case CKM_SHA224_RSA_PKCS_PSS:
        case CKM_SHA256_RSA_PKCS_PSS:
        case CKM_SHA384_RSA_PKCS_PSS:
        case CKM_SHA512_RSA_PKCS_PSS:
        case CKM_RSA_PKCS_OAEP:
            return in->pParameter ? CKR_MECHANISM_PARAM_INVALID : CKR_OK;
        default:
            return CKR_OK;
    }
}

namespace {

void Copy(const CK_VERSION& in, WinVersion* out) {
    out->major = in.major;
    out->minor = in.minor;
}

}  // namespace

void ToWindows(const CK_INFO& in, WinInfo* out) {
    Copy(in.cryptokiVersion, &out->cryptokiVersion);
    std::memcpy(out->manufacturerID, in.manufacturerID, sizeof(out->manufacturerID));
    out->flags = Narrow(in.flags);
    std::memcpy(out->libraryDescription, in.libraryDescription, sizeof(out->libraryDescription));
    Copy(in.libraryVersion, &out->libraryVersion);
}

void ToWindows(const CK_SLOT_INFO& in, WinSlotInfo* out) {
    std::memcpy(out->slotDescription, in.slotDescription, sizeof(out->slotDescription));
    std::memcpy(out->manufacturerID, in.manufacturerID, sizeof(out->manufacturerID));
    out->flags = Narrow(in.flags);
    Copy(in.hardwareVersion, &out->hardwareVersion);
    Copy(in.firmwareVersion, &out->firmwareVersion);
}

void ToWindows(const CK_TOKEN_INFO& in, WinTokenInfo* out) {
    std::memcpy(out->label, in.label, sizeof(out->label));
    std::memcpy(out->manufacturerID, in.manufacturerID, sizeof(out->manufacturerID));
    std::memcpy(out->model, in.model, sizeof(out->model));
    std::memcpy(out->serialNumber, in.serialNumber, sizeof(out->serialNumber));
    out->flags = Narrow(in.flags);
    out->ulMaxSessionCount = Narrow(in.ulMaxSessionCount);
    out->ulSessionCount = Narrow(in.ulSessionCount);
    out->ulMaxRwSessionCount = Narrow(in.ulMaxRwSessionCount);
    out->ulRwSessionCount = Narrow(in.ulRwSessionCount);
    out->ulMaxPinLen = Narrow(in.ulMaxPinLen);
    out->ulMinPinLen = Narrow(in.ulMinPinLen);
    out->ulTotalPublicMemory = Narrow(in.ulTotalPublicMemory);
    out->ulFreePublicMemory = Narrow(in.ulFreePublicMemory);
    out->ulTotalPrivateMemory = Narrow(in.ulTotalPrivateMemory);
    out->ulFreePrivateMemory = Narrow(in.ulFreePrivateMemory);
    Copy(in.hardwareVersion, &out->hardwareVersion);
    Copy(in.firmwareVersion, &out->firmwareVersion);
    std::memcpy(out->utcTime, in.utcTime, sizeof(out->utcTime));
}

void ToWindows(const CK_MECHANISM_INFO& in, WinMechanismInfo* out) {
    out->ulMinKeySize = Narrow(in.ulMinKeySize);
    out->ulMaxKeySize = Narrow(in.ulMaxKeySize);
    out->flags = Narrow(in.flags);
}

CK_RV HandleMap::ToWindows(CK_ULONG linuxValue, WinUlong* windowsValue) {
    if (linuxValue < kFirstMapped) {
        *windowsValue = static_cast<WinUlong>(linuxValue);
        return CKR_OK;
    }
    std::lock_guard<std::mutex> hold(lock_);
    auto found = windows_.find(linuxValue);
    if (found == windows_.end()) {
        if (linux_.size() >= kFirstMapped) return CKR_HOST_MEMORY;
        found = windows_.emplace(linuxValue, kFirstMapped + linux_.size()).first;
        linux_.push_back(linuxValue);
    }
    *windowsValue = found->second;
    return CKR_OK;
}

CK_RV HandleMap::ToLinux(WinUlong windowsValue, CK_ULONG* linuxValue) const {
    if (windowsValue < kFirstMapped) {
        *linuxValue = windowsValue;
        return CKR_OK;
    }
    std::lock_guard<std::mutex> hold(lock_);
    const size_t index = windowsValue - kFirstMapped;
    if (index >= linux_.size()) return invalid_;
    *linuxValue = linux_[index];
    return CKR_OK;
}

}  // namespace bridge
