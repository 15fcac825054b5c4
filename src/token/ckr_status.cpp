#include "provider/ncrypt_provider.h"
#include "token/cryptoki_library.h"

namespace {

constexpr int32_t kErrorFunctionFailed = 1627;
constexpr int32_t kErrorBadArguments = 160;
constexpr int32_t kErrorLogonFailure = 1326;
constexpr int32_t kErrorAccountDisabled = 1331;

}  // namespace

int32_t MapCkrToStatus(CK_RV rv) {
    switch (rv) {
        case CKR_OK:
            return ERROR_SUCCESS;
        case CKR_CANCEL:
            return ERROR_CANCELLED;
        case CKR_HOST_MEMORY:
        case CKR_DEVICE_MEMORY:
            return NTE_NO_MEMORY;
        case CKR_SLOT_ID_INVALID:
        case CKR_ATTRIBUTE_TYPE_INVALID:
        case CKR_ATTRIBUTE_VALUE_INVALID:
        case CKR_DATA_INVALID:
        case CKR_DATA_LEN_RANGE:
        case CKR_MECHANISM_INVALID:
        case CKR_MECHANISM_PARAM_INVALID:
        case CKR_PIN_INVALID:
        case CKR_PIN_LEN_RANGE:
        case CKR_TEMPLATE_INCOMPLETE:
        case CKR_TEMPLATE_INCONSISTENT:
            return NTE_INVALID_PARAMETER;
        case CKR_FUNCTION_FAILED:
            return kErrorFunctionFailed;
        case CKR_ARGUMENTS_BAD:
            return kErrorBadArguments;
        case CKR_ATTRIBUTE_READ_ONLY:
        case CKR_ATTRIBUTE_SENSITIVE:
        case CKR_USER_NOT_LOGGED_IN:
            return NTE_PERM;
        case CKR_DEVICE_ERROR:
            return NTE_INTERNAL_ERROR;
        case CKR_FUNCTION_NOT_SUPPORTED:
            return NTE_NOT_SUPPORTED;
        case CKR_KEY_HANDLE_INVALID:
        case CKR_OBJECT_HANDLE_INVALID:
        case CKR_SESSION_HANDLE_INVALID:
            return NTE_INVALID_HANDLE;
        case CKR_PIN_INCORRECT:
            return kErrorLogonFailure;
        case CKR_PIN_LOCKED:
            return kErrorAccountDisabled;
        default:
            return NTE_FAIL;
    }
}
