// CLogin: the logic of the modal PIN dialog. It logs in to the token
// itself, shows the tries left or the locked state, caches an accepted PIN
// and keeps a second PIN dialog from opening beside it.
#pragma once

#include <cstdint>
#include <memory>

#include "pin/dialog_toolkit.h"
#include "platform/secure_buffer.h"
#include "provider/ncrypt_provider.h"
#include "token/pkcs11.h"

class CryptokiLibrary;
class PinManager;

class CLogin : public DialogEvents {
public:
    static constexpr size_t kSerialBytes = 16;

    CLogin(std::unique_ptr<DialogToolkit> toolkit, uint64_t parentWindow);
    // The toolkit is made only when the dialog is shown: a login with a
    // cached PIN never needs it.
    explicit CLogin(uint64_t parentWindow);
    ~CLogin() override;

    void SetSlotSerialNumber(const uint8_t* serial);
    void SetTokenLabel(const platform::WideChar* label);

    // Runs the dialog; its result as the toolkit reports it.
    intptr_t DoModal();

    int DialogTemplate() const override { return dialog_ids::kTemplate; }
    void OnInitDialog() override;
    void OnEnChangePin() override;
    void OnBnClickedOk() override;
    void OnBnClickedCancel() override;

    SECURITY_STATUS RetrievePIN(uint8_t* buffer, uint32_t* length);
    SECURITY_STATUS Login(const uint8_t* pin, uint32_t length);
    SECURITY_STATUS CachePIN(const uint8_t* pin, uint32_t length);

    // The platform's last error after DoModal failed to show the dialog.
    uint32_t LastError() const;

    CryptokiLibrary* pCryptoki = nullptr;
    CK_SESSION_HANDLE hSession = 0;
    PinManager* pPinManager = nullptr;
    platform::SecureBuffer<uint8_t> pbSerialNumber;
    platform::WideString pszTokenLabel;
    uint32_t cchMaxPin = 8;
    uint32_t cchMinPin = 0;

private:
    // The checks and the login of Acceso; the PIN read lands in pin.
    SECURITY_STATUS SubmitPin(platform::SecureBuffer<uint8_t>& pin);
    void ReleaseDialogFlag();

    std::unique_ptr<DialogToolkit> toolkit_;
    uint64_t parentWindow_;
};

// Texts the dialog shows.
namespace dialog_texts {
inline constexpr const platform::WideChar* kTitlePrefix = WIDE("Introduzca el PIN para");
inline constexpr const char* kTriesLeft = "PIN incorrecto. Faltan %d reintentos";
inline constexpr const platform::WideChar* kLocked = WIDE("El PIN est\u00e1 bloqueado");
}  // namespace dialog_texts
