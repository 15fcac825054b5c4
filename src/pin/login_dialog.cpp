#include "pin/login_dialog.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>

#include "diag/debug_class.h"
#include "pin/pin_manager.h"
#include "pin/secure_cells.h"
#include "platform/last_error.h"
#include "platform/text.h"
#include "token/cryptoki_library.h"

namespace {

constexpr CK_RV kMostTriesLeft = 14;

SECURITY_STATUS CheckPin(const uint8_t* pin, uint32_t length) {
    if (!pin) {
        g_dialogLog.WriteLine("NTE_INVALID_PARAMETER - PIN is NULL");
        return NTE_INVALID_PARAMETER;
    }
    if (length == 0) {
        g_dialogLog.WriteLine("NTE_INVALID_PARAMETER - PIN length is zero");
        return NTE_INVALID_PARAMETER;
    }
    return ERROR_SUCCESS;
}

}  // namespace

CLogin::CLogin(std::unique_ptr<DialogToolkit> toolkit, uint64_t parentWindow)
    : toolkit_(std::move(toolkit)), parentWindow_(parentWindow) {}

CLogin::CLogin(uint64_t parentWindow) : parentWindow_(parentWindow) {}

CLogin::~CLogin() = default;

void CLogin::SetSlotSerialNumber(const uint8_t* serial) {
    g_dialogLog.WriteLine("Setting slot serial number");
    if (!serial) {
        g_dialogLog.WriteLine("NTE_INVALID_PARAMETER - Serial number is NULL");
        throw std::invalid_argument("Failed to set slot serial number");
    }
    pbSerialNumber = platform::SecureBuffer<uint8_t>(serial, kSerialBytes);
}

void CLogin::SetTokenLabel(const platform::WideChar* label) {
    pszTokenLabel = platform::WideString(platform::ViewOf(label));
}

intptr_t CLogin::DoModal() {
    if (!toolkit_) {
        try {
            toolkit_ = MakeDialogToolkit();
        } catch (const std::exception&) {
            return kDialogNotCreated;
        }
        if (!toolkit_) return kDialogNotCreated;
    }
    return toolkit_->RunModal(*this, parentWindow_);
}

uint32_t CLogin::LastError() const {
    return toolkit_ ? toolkit_->LastError() : platform::GetLastError();
}

void CLogin::OnInitDialog() {
    toolkit_->SetIcons(dialog_ids::kIcon);
    toolkit_->SetStatusStyle({250, 0, 0, 16, 700, WIDE("Arial")});
    toolkit_->LimitText(dialog_ids::kPin, cchMaxPin);
    toolkit_->SetControlText(dialog_ids::kStatus, WIDE(""));
    toolkit_->SetTitle(platform::WideString(dialog_texts::kTitlePrefix) + pszTokenLabel);
    if (pPinManager) {
        // Only one PIN dialog may be open at a time in the process.
        uint32_t expected = 0;
        if (!pPinManager->pinCacheLock.compare_exchange_strong(expected, 1))
            toolkit_->End(kIdCancel);
    }
}

void CLogin::OnEnChangePin() {
    toolkit_->EnableControl(dialog_ids::kOk,
                            toolkit_->ControlTextLength(dialog_ids::kPin) >= cchMinPin);
}

void CLogin::ReleaseDialogFlag() {
    g_dialogLog.WriteLine("Releasing PIN cache lock");
    if (pPinManager) pPinManager->pinCacheLock = 0;
}

SECURITY_STATUS CLogin::SubmitPin(platform::SecureBuffer<uint8_t>& pin) {
    if (!pCryptoki) {
        g_dialogLog.WriteLine("NTE_INTERNAL_ERROR - cryptoki context is not set");
        return NTE_INTERNAL_ERROR;
    }
    if (hSession == 0) {
        g_dialogLog.WriteLine("NTE_INVALID_HANDLE - cryptoki session handle is not set");
        return NTE_INVALID_HANDLE;
    }
    if (!pbSerialNumber) {
        g_dialogLog.WriteLine("NTE_INTERNAL_ERROR - slot serial number is not set");
        return NTE_INTERNAL_ERROR;
    }
    if (!pPinManager) {
        g_dialogLog.WriteLine("NTE_INTERNAL_ERROR - pin cache context is not set");
        return NTE_INTERNAL_ERROR;
    }
    if (toolkit_->ControlTextLength(dialog_ids::kPin) == 0) {
        g_dialogLog.WriteLine("No PIN was entered");
        return SCARD_W_WRONG_CHV;
    }

    g_dialogLog.WriteLine("Retrieving PIN length");
    uint32_t length = 0;
    SECURITY_STATUS status = RetrievePIN(nullptr, &length);
    if (status != ERROR_SUCCESS) {
        g_dialogLog.WriteHex("Failed to retrieve PIN length: ", static_cast<uint32_t>(status));
        return status;
    }
    try {
        pin = platform::SecureBuffer<uint8_t>(length);
    } catch (const std::bad_alloc&) {
        g_dialogLog.WriteLine("Not enough memory to continue operation.");
        return NTE_NO_MEMORY;
    }
    g_dialogLog.WriteLine("Retrieving PIN");
    status = RetrievePIN(pin.get(), &length);
    if (status != ERROR_SUCCESS) {
        g_dialogLog.WriteHex("Failed to retrieve PIN: ", static_cast<uint32_t>(status));
        return status;
    }
    g_dialogLog.WriteLine("Logging in to token");
    status = Login(pin.get(), length);
    // Only a wrong or locked PIN keeps the dialog; any other outcome of the
    // login, failures included, closes it as accepted.
    if (status == SCARD_W_WRONG_CHV || status == SCARD_W_CHV_BLOCKED) return status;
    return kIdOk;
}

void CLogin::OnBnClickedOk() {
    platform::SecureBuffer<uint8_t> pin;
    SECURITY_STATUS result = SubmitPin(pin);

    g_dialogLog.WriteLine("Initiating cleanup routine - OnBnClickedOk()");
    if (pin) {
        g_dialogLog.WriteLine("Securely deleting PIN buffer");
        pin.reset();
    }
    ReleaseDialogFlag();
    // After a wrong or locked PIN the dialog stays, so that the user can try
    // again or read why not.
    if (result == SCARD_W_WRONG_CHV || result == SCARD_W_CHV_BLOCKED) return;
    g_dialogLog.WriteLine("Cleanup routine success - OnBnClickedOk()");
    toolkit_->End(result);
}

void CLogin::OnBnClickedCancel() {
    g_dialogLog.WriteLine("Login cancelled");
    if (toolkit_->ControlTextLength(dialog_ids::kPin) > 0) {
        toolkit_->PinCells().ClearText();
        toolkit_->SetControlText(dialog_ids::kPin, WIDE(""));
    }
    ReleaseDialogFlag();
    toolkit_->End(kIdCancel);
}

SECURITY_STATUS CLogin::RetrievePIN(uint8_t* buffer, uint32_t* length) {
    g_dialogLog.WriteLine("Retrieve PIN - Enter");
    SECURITY_STATUS status = ERROR_SUCCESS;
    platform::SecureBuffer<platform::WideChar> plain;
    if (!length) {
        g_dialogLog.WriteLine("NTE_INVALID_PARAMETER - PIN length buffer is null");
        status = NTE_INVALID_PARAMETER;
    } else {
        auto typed = static_cast<uint32_t>(toolkit_->ControlTextLength(dialog_ids::kPin));
        if (!buffer) {
            g_dialogLog.WriteLine("PIN buffer is NULL. Returning PIN length");
            *length = typed;
        } else if (*length < typed) {
            g_dialogLog.WriteLine("NTE_BUFFER_TOO_SMALL - PIN buffer is too small");
            g_dialogLog.WriteHex("*pcbPIN = ", *length);
            g_dialogLog.WriteHex("cchPIN = ", typed);
            *length = typed;
            status = NTE_BUFFER_TOO_SMALL;
        } else {
            g_dialogLog.WriteLine("Securely retrieving pin");
            plain = toolkit_->PinCells().GetPlainText();
            // The token sees the PIN in the ANSI code page, as typed.
            platform::SecureBuffer<char> ansi;
            if (plain) {
                std::string converted =
                    platform::ToAnsi(platform::WideView(plain.get(), typed), *length);
                ansi = platform::SecureBuffer<char>(converted.data(), converted.size());
                platform::SecureZero(converted.data(), converted.size());
                std::memcpy(buffer, ansi.get(), ansi.size());
            } else {
                status = NTE_NO_MEMORY;
                g_dialogLog.WriteHex("Failed to properly retrieve PIN. Error: ",
                                     static_cast<uint32_t>(status));
            }
        }
    }
    g_dialogLog.WriteLine("Initiating cleanup routine - RetrievePIN");
    plain.reset();
    g_dialogLog.WriteLine("Cleanup routine success - RetrievePIN");
    g_dialogLog.WriteLine("Retrieve PIN - Exit");
    return status;
}

SECURITY_STATUS CLogin::Login(const uint8_t* pin, uint32_t length) {
    g_dialogLog.WriteLine("Login - Entry");
    if (!pCryptoki) {
        g_dialogLog.WriteLine("NTE_INTERNAL_ERROR - Cryptographic library not set.");
        return NTE_INTERNAL_ERROR;
    }
    if (SECURITY_STATUS status = CheckPin(pin, length)) return status;
    g_dialogLog.WriteLine("Initiating login to cryptographic session");
    CK_RV rv = pCryptoki->ExtendedLogin(hSession, CKU_USER, const_cast<uint8_t*>(pin), length);
    if (rv == CKR_USER_ALREADY_LOGGED_IN) {
        g_dialogLog.WriteLine("User is already logged in");
        rv = CKR_OK;
    } else if (rv == CKR_OK) {
        g_dialogLog.WriteLine("Login success");
    }
    if (rv == CKR_OK) {
        CachePIN(pin, length);
        return ERROR_SUCCESS;
    }
    if (rv >= 1 && rv <= kMostTriesLeft) {
        char text[100];
        std::snprintf(text, sizeof text, dialog_texts::kTriesLeft, static_cast<int>(rv));
        toolkit_->SetControlText(dialog_ids::kStatus, platform::FromAnsi(text));
        toolkit_->SetControlText(dialog_ids::kPin, WIDE(""));
        g_dialogLog.WriteLine(text);
        return SCARD_W_WRONG_CHV;
    }
    if (rv == CKR_PIN_LOCKED) {
        toolkit_->SetControlText(dialog_ids::kStatus, dialog_texts::kLocked);
        toolkit_->EnableControl(dialog_ids::kPin, false);
        toolkit_->EnableControl(dialog_ids::kOk, false);
        g_dialogLog.WriteLine("Pin is locked");
        return SCARD_W_CHV_BLOCKED;
    }
    g_dialogLog.WriteHex("An unexpected error occured. Refer to PKCS logs for more info",
                         static_cast<uint32_t>(rv));
    return MapCkrToStatus(rv);
}

SECURITY_STATUS CLogin::CachePIN(const uint8_t* pin, uint32_t length) {
    g_dialogLog.WriteLine("Checking PIN cache setting");
    if (!PinCachingAllowed()) {
        g_dialogLog.WriteLine("PIN caching is not allowed");
        return ERROR_CANCELLED;
    }
    g_dialogLog.WriteLine("Storing PIN to PIN cache");
    if (!pPinManager) {
        g_dialogLog.WriteLine("NTE_INTERNAL_ERROR - pin cache is not set");
        return NTE_INTERNAL_ERROR;
    }
    if (!pbSerialNumber) {
        g_dialogLog.WriteLine("NTE_INTERNAL_ERROR - slot serial number is not set");
        return NTE_INTERNAL_ERROR;
    }
    if (SECURITY_STATUS status = CheckPin(pin, length)) return status;
    if (pPinManager->StorePINInCache(pbSerialNumber.get(), pin, length) == 0) {
        g_dialogLog.WriteLine("NTE_INTERNAL_ERROR: Failed to store pin to cache.");
        return NTE_INTERNAL_ERROR;
    }
    return ERROR_SUCCESS;
}
