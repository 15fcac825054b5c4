// The card monitor, the card selection and OpenProvider's choice on the
// real smart-card service: pcscd with vsmartcard's two virtual readers, and
// vicc's cards going in and out. The SoftHSM2 token slots carry the readers'
// names, as a real card's slot does. Each test runs in a process of its own
// (CTest), because pcsc-lite reads where its daemon is once per process.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>

#include "provider/card_monitor.h"
#include "provider/card_selection.h"
#include "provider/provider_cache.h"
#include "support/pin_dialog_fixture.h"
#include "support/posix/pcsc_readers.h"
#include "support/test_certificates.h"
#include "support/token_objects.h"

namespace {

using Lines = std::vector<std::string>;
using pcsc_readers::VirtualCard;
using platform::WideString;

const std::string kReaderSlots = "Token A=Virtual PCD 00 00;Token B=Virtual PCD 00 01";

std::string Narrow(const platform::WideString& text) {
    return std::string(text.begin(), text.end());
}

bool Contains(const Lines& lines, const Lines& wanted) {
    return std::search(lines.begin(), lines.end(), wanted.begin(), wanted.end()) != lines.end();
}

// Tokens A and B in the slots of the two readers, and the provider's
// dialogs playing scripts.
class CardService : public PinDialog {
protected:
    void SetUp() override {}

    void Load(const std::vector<std::string>& labels = {"Token A", "Token B"},
              const std::string& slotNames = kReaderSlots) {
        OpenOn(labels, slotNames);
        g_dialogLog.~DebugClass();
        new (&g_dialogLog) DebugClass(false);
        savedPinManager_ = g_pPinManager;
        g_pPinManager = new PinManager();
        NewScript();
    }
    void TearDown() override {
        if (state_) PinDialog::TearDown();
    }

    // Opens a provider without the silent flag: the dialog picks the
    // reader at `index` of its sorted list and confirms.
    SECURITY_STATUS OpenChoosing(int index, NCRYPT_PROV_HANDLE* handle) {
        NewScript().ChooseReader(index).ClickOk();
        g_pProviderCache->Forget();
        return table_->OpenProvider(handle, WIDE("Velmora KSP v4.5"), 0);
    }

    // Reads a key's certificate through the provider: a context kept for
    // the provider's reader.
    void ReadCertificate(NCRYPT_PROV_HANDLE provider, const platform::WideChar* name,
                         const Bytes& certificate) {
        NCRYPT_KEY_HANDLE key = 0;
        ASSERT_EQ(table_->OpenKey(provider, &key, name, 0, 0), 0);
        ASSERT_EQ(table_->SetKeyProperty(provider, key, WIDE("SmartCardKeyCertificate"),
                                         const_cast<uint8_t*>(certificate.data()),
                                         static_cast<DWORD>(certificate.size()), 0),
                  0);
        Bytes value(certificate.size());
        DWORD length = 0;
        EXPECT_EQ(
            table_->GetKeyProperty(provider, key, WIDE("SmartCardKeyCertificate"), value.data(),
                                   static_cast<DWORD>(value.size()), &length, 0),
            0);
        EXPECT_EQ(table_->FreeKey(provider, key), 0);
    }

    // The position of the provider's slot in the present-token list, as
    // TokenObjects counts them.
    static CK_ULONG SlotIndexOf(NCRYPT_PROV_HANDLE provider) {
        CK_SLOT_ID slots[8];
        CK_ULONG count = 8;
        EXPECT_EQ(g_pCryptoki->functions()->C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
        return static_cast<CK_ULONG>(std::find(slots, slots + count, Record(provider)->slotId) -
                                     slots);
    }
    static std::string TokenLabel(NCRYPT_PROV_HANDLE provider) {
        CK_TOKEN_INFO info{};
        EXPECT_EQ(g_pCryptoki->functions()->C_GetTokenInfo(Record(provider)->slotId, &info),
                  CKR_OK);
        std::string label(reinterpret_cast<const char*>(info.label), sizeof info.label);
        return label.substr(0, label.find_last_not_of(' ') + 1);
    }

    // Per reader identifier: contexts kept, and contexts withdrawn.
    std::map<uint32_t, std::pair<int, int>> Certificates() const {
        std::map<uint32_t, std::pair<int, int>> counts;
        g_pCardMonitor->ForEachCertificate([&](const CardMonitor::CertificateEntry& entry) {
            auto& [kept, withdrawn] = counts[entry.dwUniqueSlotId];
            ++(entry.pCertContext ? kept : withdrawn);
        });
        return counts;
    }

    bool MonitorEnded() { return g_pCardMonitor->hThread->Wait(15000); }
};

TEST_F(CardService, RemovingACardWithdrawsExactlyTheContextsOfItsReader) {
    VirtualCard first(dir_, 0), second(dir_, 1);
    ASSERT_NO_FATAL_FAILURE(Load());
    ASSERT_EQ(g_pCardMonitor->fStarted, 1u);
    EXPECT_EQ(g_pCardMonitor->readerNames,
              (std::vector<platform::WideString>{pcsc_readers::kFirst, pcsc_readers::kSecond}));
    NCRYPT_PROV_HANDLE onFirst = 0, onSecond = 0;
    ASSERT_EQ(OpenChoosing(0, &onFirst), 0);
    others_.push_back(onFirst);
    ASSERT_EQ(OpenChoosing(1, &onSecond), 0);
    others_.push_back(onSecond);
    ASSERT_EQ(WideString(Record(onFirst)->pszReaderName.get()), pcsc_readers::kFirst);
    ASSERT_EQ(WideString(Record(onSecond)->pszReaderName.get()), pcsc_readers::kSecond);
    {
        TokenObjects a(*g_pCryptoki, SlotIndexOf(onFirst));
        a.Generate(BytesOf("a1"), BytesOf("a1"));
        a.Generate(BytesOf("a2"), BytesOf("a2"));
        TokenObjects b(*g_pCryptoki, SlotIndexOf(onSecond));
        b.Generate(BytesOf("b1"), BytesOf("b1"));
    }
    const uint32_t idA = Record(onFirst)->dwUniqueSlotId, idB = Record(onSecond)->dwUniqueSlotId;
    ReadCertificate(onFirst, WIDE("a1"), kCertificateWithCommonName);
    ReadCertificate(onFirst, WIDE("a2"), kCertificateWithoutCommonName);
    ReadCertificate(onSecond, WIDE("b1"), kCertificateWithCommonName);
    ASSERT_EQ(Certificates(),
              (std::map<uint32_t, std::pair<int, int>>{{idA, {2, 0}}, {idB, {1, 0}}}));

    first.Remove();
    ASSERT_TRUE(MonitorEnded());
    EXPECT_EQ(Certificates(),
              (std::map<uint32_t, std::pair<int, int>>{{idA, {0, 2}}, {idB, {1, 0}}}));
    TearDownOthers();
}

TEST_F(CardService, AnInsertionEndsTheMonitorAndALaterRemovalWithdrawsNothing) {
    ASSERT_TRUE(pcsc_readers::WaitForCard(pcsc_readers::kFirst, false));
    ASSERT_TRUE(pcsc_readers::WaitForCard(pcsc_readers::kSecond, false));
    ASSERT_NO_FATAL_FAILURE(Load());
    ASSERT_EQ(g_pCardMonitor->fStarted, 1u);
    NCRYPT_PROV_HANDLE onFirst = 0, onSecond = 0;
    ASSERT_EQ(OpenChoosing(0, &onFirst), 0);
    others_.push_back(onFirst);
    ASSERT_EQ(OpenChoosing(1, &onSecond), 0);
    others_.push_back(onSecond);
    {
        TokenObjects a(*g_pCryptoki, SlotIndexOf(onFirst));
        a.Generate(BytesOf("a1"), BytesOf("a1"));
        TokenObjects b(*g_pCryptoki, SlotIndexOf(onSecond));
        b.Generate(BytesOf("b1"), BytesOf("b1"));
    }
    ReadCertificate(onFirst, WIDE("a1"), kCertificateWithCommonName);
    ReadCertificate(onSecond, WIDE("b1"), kCertificateWithCommonName);
    const uint32_t idA = Record(onFirst)->dwUniqueSlotId, idB = Record(onSecond)->dwUniqueSlotId;
    const std::map<uint32_t, std::pair<int, int>> allKept = {{idA, {1, 0}}, {idB, {1, 0}}};

    // The second reader is empty too, but it did not change.
    VirtualCard card(dir_, 0);
    ASSERT_TRUE(MonitorEnded());
    uint32_t exitCode = 1;
    EXPECT_TRUE(g_pCardMonitor->hThread->Wait(0, &exitCode));
    EXPECT_EQ(exitCode, 0u);
    EXPECT_EQ(Certificates(), allKept);

    card.Remove();
    ASSERT_TRUE(pcsc_readers::WaitForCard(pcsc_readers::kFirst, false));
    EXPECT_EQ(Certificates(), allKept);
    // Started once for the life of the process.
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
    EXPECT_EQ(GetKeyStorageInterface(WIDE("Velmora KSP v4.5"), &table, 0), 0);
    EXPECT_TRUE(g_pCardMonitor->hThread->Wait(0));
    TearDownOthers();
}

TEST_F(CardService, ServiceUnreachableAtLoadFailsTheStartAndTheDialogUntilItIsBack) {
    pcsc_readers::DaemonLink daemon(dir_);
    ASSERT_NO_FATAL_FAILURE(Load());
    EXPECT_EQ(g_pCardMonitor->fStarted, 0u);
    EXPECT_FALSE(g_pCardMonitor->hThread);

    ClearLog();
    NewScript().ClickOk();
    platform::WideChar chosen[kSelectedReaderChars] = {u'x'};
    EXPECT_EQ(SelectCard(chosen), SCARD_E_CANCELLED_BY_USER);
    EXPECT_EQ(LogLines(), (Lines{"Loading resources", "Loading Dialog", "Dialog Loaded",
                                 "SCardEstablishContext Fallido: 0x8010001D",
                                 "Action was cancelled by the user"}));
    EXPECT_EQ(script_->runs, 1);
    EXPECT_TRUE(script_->snapshots.empty()) << "the dialog ended before any step";

    daemon.Connect();
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
    ASSERT_EQ(GetKeyStorageInterface(WIDE("Velmora KSP v4.5"), &table, 0), 0);
    EXPECT_EQ(g_pCardMonitor->fStarted, 1u);
    EXPECT_EQ(g_pCardMonitor->readerNames.size(), 2u);
    NewScript().ClickOk();
    EXPECT_EQ(SelectCard(chosen), 0);
    EXPECT_EQ(WideString(chosen), pcsc_readers::kFirst);
}

TEST_F(CardService, SelectCardListsTheReadersAndHandsBackTheOneConfirmed) {
    ASSERT_NO_FATAL_FAILURE(Load());
    ClearLog();
    NewScript().ChooseReader(1).ClickOk();
    platform::WideChar chosen[kSelectedReaderChars];
    ASSERT_EQ(SelectCard(chosen), 0);
    EXPECT_EQ(WideString(chosen), pcsc_readers::kSecond);
    EXPECT_EQ(script_->title, WIDE("Corvanta KSP"));
    ASSERT_TRUE(script_->initial);
    EXPECT_EQ(script_->initial->readers,
              (std::vector<platform::WideString>{pcsc_readers::kFirst, pcsc_readers::kSecond}))
        << "every reader, with a card or without";
    EXPECT_EQ(script_->initial->selectedReader, 0);
    EXPECT_EQ(LogLines(), (Lines{"Loading resources", "Loading Dialog", "Dialog Loaded",
                                 "Retrieving data", "Data Retrieved"}));

    // The drop-down reads the readers again and selects the first one.
    ClearLog();
    NewScript().ChooseReader(1).OpenReaderList().ClickOk();
    ASSERT_EQ(SelectCard(chosen), 0);
    EXPECT_EQ(WideString(chosen), pcsc_readers::kFirst);

    ClearLog();
    NewScript().ChooseReader(1).ClickCancel();
    EXPECT_EQ(SelectCard(chosen), SCARD_E_CANCELLED_BY_USER);
    EXPECT_EQ(LogLines(), (Lines{"Loading resources", "Loading Dialog", "Dialog Loaded",
                                 "Action was cancelled by the user"}));
}

TEST_F(CardService, OpenProviderWithTwoTokensOpensTheReaderChosenInTheDialog) {
    ASSERT_NO_FATAL_FAILURE(Load());
    ClearLog();
    NCRYPT_PROV_HANDLE chosen = 0;
    ASSERT_EQ(OpenChoosing(1, &chosen), 0);
    others_.push_back(chosen);
    EXPECT_EQ(script_->runs, 1);
    EXPECT_EQ(TokenLabel(chosen), "Token B");
    EXPECT_EQ(WideString(Record(chosen)->pszReaderName.get()), pcsc_readers::kSecond);
    const std::string second = Narrow(pcsc_readers::kSecond);
    const Lines lines = LogLines();
    EXPECT_TRUE(
        Contains(lines, {"Checking provider cache", "Provider not set", "Loading resources",
                         "Loading Dialog", "Dialog Loaded", "Retrieving data", "Data Retrieved",
                         "Acquired " + second, "Iterating through slot list"}))
        << TokenLog();
    EXPECT_TRUE(Contains(
        lines, {"Found slot: " + second, "Reader name acquired. Setting active slot to " + second,
                "Caching provider instance"}))
        << TokenLog();

    // The renewed choice: the reader of the provider opened just before.
    NCRYPT_PROV_HANDLE again = 0;
    NewScript().ClickCancel();
    ASSERT_EQ(table_->OpenProvider(&again, WIDE("Velmora KSP v4.5"), 0), 0);
    others_.push_back(again);
    EXPECT_EQ(script_->runs, 0) << "no dialog while the cache holds a provider";
    EXPECT_EQ(Record(again)->slotId, Record(chosen)->slotId);

    ClearLog();
    NCRYPT_PROV_HANDLE cancelled = 0;
    NewScript().ClickCancel();
    g_pProviderCache->Forget();
    EXPECT_EQ(table_->OpenProvider(&cancelled, WIDE("Velmora KSP v4.5"), 0), ERROR_CANCELLED);
    EXPECT_EQ(cancelled, 0u);
    EXPECT_TRUE(Contains(LogLines(), {"Action was cancelled by the user",
                                      "ERROR_CANCELLED: The operation was cancelled."}));
    TearDownOthers();
}

TEST_F(CardService, AReaderWithoutATokenSlotIsNotFound) {
    ASSERT_NO_FATAL_FAILURE(Load({"Token A", "Token C"}, "Token A=Virtual PCD 00 00"));
    ClearLog();
    NCRYPT_PROV_HANDLE chosen = 0;
    EXPECT_EQ(OpenChoosing(1, &chosen), NTE_INTERNAL_ERROR);
    EXPECT_EQ(chosen, 0u);
    EXPECT_TRUE(Contains(LogLines(), {"NTE_INTERNAL_ERROR: Selected reader not found.",
                                      "QUELMKSPOpenProvider - Exit: 0x8009002D"}));
}

}  // namespace
