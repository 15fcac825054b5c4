#include "token_module.h"

#include <cstdio>
#include <cstdlib>

#include "platform/module.h"
#include "quelmpkcs11/extended_function_list.h"

namespace {

std::string Padded(const CK_UTF8CHAR* text, size_t size) {
    std::string value(reinterpret_cast<const char*>(text), size);
    const size_t end = value.find_last_not_of(' ');
    return end == std::string::npos ? std::string() : value.substr(0, end + 1);
}

std::string ReturnValueName(CK_RV rv) {
    switch (rv) {
        case CKR_GENERAL_ERROR:
            return "CKR_GENERAL_ERROR";
        case CKR_HOST_MEMORY:
            return "CKR_HOST_MEMORY";
        case CKR_FUNCTION_FAILED:
            return "CKR_FUNCTION_FAILED";
        case CKR_ARGUMENTS_BAD:
            return "CKR_ARGUMENTS_BAD";
        case CKR_CANT_LOCK:
            return "CKR_CANT_LOCK";
        case CKR_DEVICE_ERROR:
            return "CKR_DEVICE_ERROR";
        case CKR_TOKEN_NOT_PRESENT:
            return "CKR_TOKEN_NOT_PRESENT";
        default: {
            char text[32];
            std::snprintf(text, sizeof text, "CKR 0x%08lX", static_cast<unsigned long>(rv));
            return text;
        }
    }
}

CK_FUNCTION_LIST* List(void* functions) {
    return static_cast<CK_FUNCTION_LIST*>(functions);
}

}  // namespace

std::string PinState(const TokenFacts& token) {
    if (token.pinLocked) return "locked";
    if (token.pinFinalTry) return "final try";
    if (token.pinCountLow) return "retries low";
    if (token.pinToBeChanged) return "must be changed";
    return "ok";
}

std::string TokenModule::FileName() {
    const char* chosen = std::getenv("QUELMKSP_PKCS11_MODULE");
    return (chosen && *chosen) ? chosen : platform::SharedLibraryFileName("quelmpkcs11");
}

std::unique_ptr<TokenModule> TokenModule::Open(const std::string& providerFolder,
                                               std::string* why) {
    const std::string name = FileName();
    std::string error;
    std::unique_ptr<platform::Module> module = platform::Module::Load(name, &error);
    if (!module && name.find('/') == std::string::npos && !providerFolder.empty())
        module = platform::Module::Load(providerFolder + name, &error);
    if (!module) {
        *why = "the token module " + name + " cannot be loaded: " + error;
        return nullptr;
    }
    auto getList = module->Function<CK_C_GetFunctionList>("C_GetFunctionList");
    if (!getList) {
        *why = "the token module " + name + " is no PKCS#11 module: it has no C_GetFunctionList";
        return nullptr;
    }
    CK_FUNCTION_LIST* list = nullptr;
    CK_RV rv = getList(&list);
    if (rv != CKR_OK || !list) {
        *why = "the token module " + name + " gives no function list (" + ReturnValueName(rv) + ")";
        return nullptr;
    }
    rv = list->C_Initialize(nullptr);
    if (rv != CKR_OK && rv != CKR_CRYPTOKI_ALREADY_INITIALIZED) {
        *why = "the token module " + name + " could not start: C_Initialize answered " +
               ReturnValueName(rv);
        return nullptr;
    }
    // The provider initialised the module and keeps it: only a module the
    // client started itself is finalised again.
    return std::unique_ptr<TokenModule>(new TokenModule(std::move(module), list, rv == CKR_OK));
}

TokenModule::TokenModule(std::unique_ptr<platform::Module> module, void* functions, bool finalize)
    : module_(std::move(module)), functions_(functions), finalize_(finalize) {}

TokenModule::~TokenModule() {
    if (finalize_) List(functions_)->C_Finalize(nullptr);
}

std::vector<ReaderFacts> TokenModule::Readers() const {
    CK_FUNCTION_LIST* list = List(functions_);
    CK_ULONG count = 0;
    if (list->C_GetSlotList(CK_FALSE, nullptr, &count) != CKR_OK) return {};
    std::vector<CK_SLOT_ID> slots(count);
    if (count && list->C_GetSlotList(CK_FALSE, slots.data(), &count) != CKR_OK) return {};
    slots.resize(count);
    std::vector<ReaderFacts> readers;
    for (CK_SLOT_ID slot : slots) {
        CK_SLOT_INFO info{};
        if (list->C_GetSlotInfo(slot, &info) != CKR_OK) continue;
        ReaderFacts reader;
        reader.slot = static_cast<unsigned long>(slot);
        reader.reader = Padded(info.slotDescription, sizeof info.slotDescription);
        CK_TOKEN_INFO token{};
        reader.tokenPresent =
            (info.flags & CKF_TOKEN_PRESENT) && list->C_GetTokenInfo(slot, &token) == CKR_OK;
        if (reader.tokenPresent) {
            reader.token.label = Padded(token.label, sizeof token.label);
            reader.token.serial = Padded(token.serialNumber, sizeof token.serialNumber);
            reader.token.manufacturer = Padded(token.manufacturerID, sizeof token.manufacturerID);
            reader.token.model = Padded(token.model, sizeof token.model);
            reader.token.pinLocked = token.flags & CKF_USER_PIN_LOCKED;
            reader.token.pinFinalTry = token.flags & CKF_USER_PIN_FINAL_TRY;
            reader.token.pinCountLow = token.flags & CKF_USER_PIN_COUNT_LOW;
            reader.token.pinToBeChanged = token.flags & CKF_USER_PIN_TO_BE_CHANGED;
            reader.token.initialized = token.flags & CKF_TOKEN_INITIALIZED;
        }
        readers.push_back(std::move(reader));
    }
    return readers;
}

bool TokenModule::FirstToken(ReaderFacts* reader) const {
    for (ReaderFacts& candidate : Readers()) {
        if (!candidate.tokenPresent) continue;
        *reader = std::move(candidate);
        return true;
    }
    return false;
}
