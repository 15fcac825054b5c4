// The card selection dialog, through which the user picks a reader when the
// provider cannot choose the token by itself.
#pragma once

#include <cstdint>
#include <memory>

#include "pin/dialog_toolkit.h"
#include "platform/smart_card.h"
#include "platform/wide_string.h"

inline constexpr size_t kSelectedReaderChars = 1024;

// Lets the user choose a reader. Returns 0 with the reader name in
// readerName (kSelectedReaderChars characters), or SCARD_E_CANCELLED_BY_USER
// when the user does not confirm.
int32_t SelectCard(platform::WideChar* readerName);

// What the dialog asks of the smart-card service: the platform's, or in the
// logic's tests readers of their own.
class ReaderService {
public:
    virtual ~ReaderService() = default;
    virtual int32_t EstablishContext(platform::SCARDCONTEXT* context) = 0;
    virtual void ReleaseContext(platform::SCARDCONTEXT context) = 0;
    // The reader names of all groups as a multi-string.
    virtual int32_t ListReaders(platform::SCARDCONTEXT context, platform::WideString* names) = 0;
};

class PlatformReaderService : public ReaderService {
public:
    int32_t EstablishContext(platform::SCARDCONTEXT* context) override;
    void ReleaseContext(platform::SCARDCONTEXT context) override;
    int32_t ListReaders(platform::SCARDCONTEXT context, platform::WideString* names) override;
};

// The dialog's logic: every reader the service knows, sorted by the list,
// the first one selected, the list read anew when it drops down.
class CSelectCard : public DialogEvents {
public:
    CSelectCard(std::unique_ptr<DialogToolkit> toolkit, ReaderService& service);
    ~CSelectCard() override;
    CSelectCard(const CSelectCard&) = delete;
    CSelectCard& operator=(const CSelectCard&) = delete;

    // Runs the dialog; its result as the toolkit reports it.
    intptr_t DoModal();

    int DialogTemplate() const override { return selection_ids::kTemplate; }
    void OnInitDialog() override;
    void OnCbnDropdownReaders() override;
    void OnBnClickedOk() override;
    void OnBnClickedCancel() override;

    // The confirmed name; null until the user confirms.
    const platform::WideChar* SelectedName() const { return selectedName_.get(); }
    uint32_t cchSelectedName() const { return cchSelectedName_; }

private:
    // Fills the list from the service and selects its first entry. Throws
    // std::runtime_error with the Spanish text of a failure.
    void FillReaderList();
    // A failure ends the dialog as cancelled, once its text is logged.
    template <typename Work>
    void EndOnFailure(Work work);

    std::unique_ptr<DialogToolkit> toolkit_;
    ReaderService& service_;
    platform::SCARDCONTEXT hContext_ = 0;
    bool established_ = false;
    std::unique_ptr<platform::WideChar[]> selectedName_;
    uint32_t cchSelectedName_ = 0;
};

// Texts of the failures of the initialisation and the rebuild.
namespace selection_errors {
inline constexpr const char* kEstablish = "SCardEstablishContext Fallido: 0x%08X";
inline constexpr const char* kList = "SCardListReaders Fallido: 0x%08X";
inline constexpr const char* kNoReaders = "No se detectaron tarjetas/fichas";
}  // namespace selection_errors
