#include "provider/card_selection.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "diag/debug_class.h"
#include "provider/ncrypt_provider.h"

namespace {

std::runtime_error Failure(const char* format, int32_t code) {
    char text[100];
    std::snprintf(text, sizeof text, format, static_cast<uint32_t>(code));
    return std::runtime_error(text);
}

}  // namespace

int32_t PlatformReaderService::EstablishContext(platform::SCARDCONTEXT* context) {
    return platform::SCardEstablishContext(platform::kScardScopeUser, nullptr, nullptr, context);
}

void PlatformReaderService::ReleaseContext(platform::SCARDCONTEXT context) {
    platform::SCardReleaseContext(context);
}

int32_t PlatformReaderService::ListReaders(platform::SCARDCONTEXT context,
                                           platform::WideString* names) {
    platform::ReaderList readers;
    int32_t rv = readers.List(context);
    if (rv == platform::kScardSuccess) names->assign(readers.names(), readers.length());
    return rv;
}

CSelectCard::CSelectCard(std::unique_ptr<DialogToolkit> toolkit, ReaderService& service)
    : toolkit_(std::move(toolkit)), service_(service) {}

CSelectCard::~CSelectCard() {
    if (established_) service_.ReleaseContext(hContext_);
}

intptr_t CSelectCard::DoModal() {
    return toolkit_->RunModal(*this, 0);
}

template <typename Work>
void CSelectCard::EndOnFailure(Work work) {
    try {
        work();
    } catch (const std::exception& error) {
        g_pTokenLog->WriteLine(error.what());
        toolkit_->End(kIdCancel);
    }
}

void CSelectCard::OnInitDialog() {
    toolkit_->SetIcons(selection_ids::kIcon);
    EndOnFailure([this] {
        int32_t rv = service_.EstablishContext(&hContext_);
        if (rv != platform::kScardSuccess) throw Failure(selection_errors::kEstablish, rv);
        established_ = true;
        FillReaderList();
    });
}

void CSelectCard::OnCbnDropdownReaders() {
    EndOnFailure([this] {
        toolkit_->ResetList(selection_ids::kReaders);
        FillReaderList();
    });
}

void CSelectCard::FillReaderList() {
    platform::WideString names;
    int32_t rv = service_.ListReaders(hContext_, &names);
    if (rv != platform::kScardSuccess) throw Failure(selection_errors::kList, rv);
    // A name of one character is no reader either.
    if (platform::WideView(names.c_str()).size() < 2)
        throw std::runtime_error(selection_errors::kNoReaders);
    for (size_t at = 0; at < names.size() && names[at];) {
        platform::WideView name(names.c_str() + at);
        toolkit_->AddListItem(selection_ids::kReaders, name);
        at += name.size() + 1;
    }
    toolkit_->SelectListItem(selection_ids::kReaders, 0);
}

void CSelectCard::OnBnClickedOk() {
    platform::WideString text = toolkit_->ControlText(selection_ids::kReaders);
    cchSelectedName_ = static_cast<uint32_t>(text.size() + 1);
    selectedName_ = std::make_unique<platform::WideChar[]>(cchSelectedName_);
    std::copy(text.begin(), text.end(), selectedName_.get());
    toolkit_->End(kIdOk);
}

void CSelectCard::OnBnClickedCancel() {
    toolkit_->End(kIdCancel);
}

int32_t SelectCard(platform::WideChar* readerName) {
    if (!readerName) return SCARD_E_CANCELLED_BY_USER;
    g_pTokenLog->WriteLine("Loading resources");
    g_pTokenLog->WriteLine("Loading Dialog");
    try {
        PlatformReaderService service;
        std::unique_ptr<DialogToolkit> toolkit = MakeDialogToolkit();
        if (toolkit) {
            CSelectCard dialog(std::move(toolkit), service);
            g_pTokenLog->WriteLine("Dialog Loaded");
            if (dialog.DoModal() == kIdOk && dialog.SelectedName()) {
                g_pTokenLog->WriteLine("Retrieving data");
                platform::WideView name(dialog.SelectedName());
                name = name.substr(0, kSelectedReaderChars - 1);
                std::copy(name.begin(), name.end(), readerName);
                readerName[name.size()] = 0;
                g_pTokenLog->WriteLine("Data Retrieved");
                return ERROR_SUCCESS;
            }
        }
    } catch (const std::exception& error) {
        // The toolkit could not be made (Windows: the secure edit control's
        // Spanish error); the user saw no dialog to confirm.
        g_pTokenLog->WriteLine(error.what());
    }
    g_pTokenLog->WriteLine("Action was cancelled by the user");
    return SCARD_E_CANCELLED_BY_USER;
}
