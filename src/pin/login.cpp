#include "pin/login.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>

#include "diag/debug_class.h"
#include "pin/login_dialog.h"
#include "pin/pin_manager.h"
#include "platform/last_error.h"
#include "platform/text.h"
#include "provider/provider_context.h"
#include "token/cryptoki_library.h"

namespace {

constexpr size_t kPinBufferBytes = 16;

// The token label as the dialog's title shows it: trailing blanks dropped.
platform::WideString TokenLabel(const CK_TOKEN_INFO& info) {
    char label[sizeof info.label + 1] = {};
    std::memcpy(label, info.label, sizeof info.label);
    for (size_t i = sizeof info.label; i-- > 0 && label[i] == ' ';) label[i] = 0;
    return platform::FromAnsi(std::string_view(label));
}

class LoginCall {
public:
    explicit LoginCall(QUELMKSP_PROVIDER& provider)
        : provider_(provider), token_(*g_pCryptoki->functions()) {}

    SECURITY_STATUS Run() {
        SECURITY_STATUS status = LogIn();
        g_pTokenLog->WriteLine("Initiating cleanup routine - Login");
        if (dialog_) {
            g_pTokenLog->WriteLine("Deleting Login Dialog");
            dialog_.reset();
        }
        g_pTokenLog->WriteLine("Securely clearing PIN buffer");
        pin_.reset();
        g_pTokenLog->WriteLine("Pin buffer cleared");
        if (cacheLock_.owns_lock()) cacheLock_.unlock();
        g_pTokenLog->WriteLine("Cleanup routine success - Login");
        return status;
    }

private:
    SECURITY_STATUS LogIn() {
        g_pTokenLog->WriteLine("Retrieving token info");
        CK_TOKEN_INFO info{};
        if (token_.C_GetTokenInfo(provider_.slotId, &info) != CKR_OK) {
            g_pTokenLog->WriteLine("\tNTE_INTERNAL_ERROR: Failed to retrieve token info");
            return NTE_INTERNAL_ERROR;
        }
        PrepareDialog(info);

        g_pTokenLog->WriteLine("Entering critical section");
        cacheLock_.lock();
        g_pTokenLog->WriteLine("Checking PIN cache");
        uint32_t length = 0;
        SECURITY_STATUS status =
            g_pPinManager->RetrievePINFromCache(info.serialNumber, nullptr, &length);
        if (status == NTE_NOT_FOUND) {
            // The lookup has let go of the lock, so that no other login
            // waits on a user typing.
            cacheLock_.release();
            return RunDialog();
        }
        if (status != ERROR_SUCCESS) {
            g_pTokenLog->WriteLine(
                "NTE_INTERNAL_ERROR: An internal error with the PIN cache has occured");
            return NTE_INTERNAL_ERROR;
        }
        return LogInWithCachedPin(info, length);
    }

    void PrepareDialog(const CK_TOKEN_INFO& info) {
        // Without a dialog only a cached PIN can log in.
        dialog_.reset(new (std::nothrow) CLogin(provider_.hWnd));
        if (!dialog_) return;
        g_dialogLog.WriteLine("Setting cryptoki context");
        dialog_->pCryptoki = g_pCryptoki;
        g_dialogLog.WriteLine("Setting cryptoki session handle");
        dialog_->hSession = provider_.hSession;
        g_dialogLog.WriteLine("Setting pin cache context");
        dialog_->pPinManager = g_pPinManager;
        dialog_->SetSlotSerialNumber(info.serialNumber);
        dialog_->cchMaxPin = static_cast<uint32_t>(info.ulMaxPinLen);
        dialog_->cchMinPin = static_cast<uint32_t>(info.ulMinPinLen);
        dialog_->SetTokenLabel(TokenLabel(info).c_str());
    }

    SECURITY_STATUS RunDialog() {
        g_pTokenLog->WriteLine("PIN cache is empty");
        intptr_t result = dialog_ ? dialog_->DoModal() : kDialogNotCreated;
        if (result == kIdOk) return ERROR_SUCCESS;
        if (result == kIdCancel) {
            g_pTokenLog->WriteLine(
                "SCARD_W_CANCELLED_BY_USER: PIN submission has been cancelled by the user.");
            return SCARD_W_CANCELLED_BY_USER;
        }
        uint32_t code = static_cast<uint32_t>(result);
        if (result == kDialogNotCreated) {
            g_pTokenLog->WriteLine("DoModal failed to create Dialog");
            code = dialog_ ? dialog_->LastError() : platform::GetLastError();
        }
        g_pTokenLog->WriteHex("Login dialog exited with code: ", code);
        return NTE_NOT_FOUND;
    }

    SECURITY_STATUS LogInWithCachedPin(const CK_TOKEN_INFO& info, uint32_t length) {
        // A PIN longer than the usual buffer gets a buffer of its own size.
        pin_ = platform::SecureBuffer<uint8_t>(std::max<size_t>(kPinBufferBytes, length));
        g_pTokenLog->WriteLine("Retrieving PIN from cache");
        if (g_pPinManager->RetrievePINFromCache(info.serialNumber, pin_.get(), &length) !=
            ERROR_SUCCESS) {
            g_pTokenLog->WriteLine("NTE_INTERNAL_ERROR: An unexpected error has occured.");
            return NTE_INTERNAL_ERROR;
        }
        CK_RV rv = g_pCryptoki->ExtendedLogin(provider_.hSession, CKU_USER, pin_.get(), length);
        if (rv == CKR_OK || rv == CKR_USER_ALREADY_LOGGED_IN) return ERROR_SUCCESS;
        g_pTokenLog->WriteHex("NTE_INTERNAL_ERROR: Unable to login using cached PIN. Error code: ",
                              static_cast<uint32_t>(rv));
        return NTE_INTERNAL_ERROR;
    }

    QUELMKSP_PROVIDER& provider_;
    CK_FUNCTION_LIST& token_;
    std::unique_ptr<CLogin> dialog_;
    platform::SecureBuffer<uint8_t> pin_;
    // Held from the cache lookup to the end of a cached login; released on
    // every way out, an exception included.
    std::unique_lock<platform::CriticalSection> cacheLock_{g_pPinManager->lock, std::defer_lock};
};

}  // namespace

SECURITY_STATUS Login(QUELMKSP_PROVIDER* provider) {
    if (!provider) {
        g_pTokenLog->WriteLine("NTE_INVALID_PARAMETER - Provider context is NULL");
        return NTE_INVALID_PARAMETER;
    }
    if (!g_pCryptoki) {
        g_pTokenLog->WriteLine("NTE_INVALID_PARAMETER - Cryptoki library context is NULL");
        return NTE_INVALID_PARAMETER;
    }
    if (!g_pPinManager) {
        g_pTokenLog->WriteLine("NTE_INVALID_PARAMETER - PIN Manager context is NULL");
        return NTE_INVALID_PARAMETER;
    }
    return LoginCall(*provider).Run();
}
