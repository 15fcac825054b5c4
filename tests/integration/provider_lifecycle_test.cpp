#include <gtest/gtest.h>

#include <cstring>
#include <optional>

#include "provider/ncrypt_provider.h"
#include "provider/provider_context.h"
#include "support/fresh_provider_state.h"
#include "support/softhsm_tokens.h"
#include "ui/scripted_toolkit.h"

namespace {

using Lines = std::vector<std::string>;
using platform::WideChar;
using platform::WideString;

// "Velmora KSP v4.5" and "Velmora Alt", as the installation registers them.
const std::string kAliases =
    std::string(RegistryFile::kProviderKey) +
    "\"Aliases\"=hex(7):56,00,65,00,6c,00,6d,00,6f,00,72,00,61,00,20,00,4b,00,53,00,50,00,20,"
    "00,76,00,34,00,2e,00,35,00,00,00,56,00,65,00,6c,00,6d,00,6f,00,72,00,61,00,20,00,41,00,"
    "6c,00,74,00,00,00,00,00\n";

// A provider opened through the table the router gets, on real SoftHSM2
// tokens behind the middleware.
class ProviderLifecycle : public ::testing::Test {
protected:
    void Load(const std::vector<std::string>& labels, const std::string& slotNames,
              const std::string& registry = kAliases) {
        tokens_.emplace(dir_, labels);
        if (!slotNames.empty()) SoftHsmTokens::NameSlots(slotNames);
        state_.emplace(dir_, registry, QUELMPKCS11_PATH);
        // No card selection dialog can be shown: the user's answer is then
        // a cancellation. (The dialog itself is tested on real readers.)
        ScriptedToolkit::Install(nullptr);
        ASSERT_NE(g_pCryptoki, nullptr) << g_bindingError;
        ASSERT_EQ(GetKeyStorageInterface(WIDE("Velmora KSP v4.5"), &table_, 0), 0);
    }

    SECURITY_STATUS Open(DWORD flags, NCRYPT_PROV_HANDLE* handle,
                         const WideChar* name = WIDE("Velmora KSP v4.5")) {
        state_->ClearLog();
        return table_->OpenProvider(handle, name, flags);
    }

    static QUELMKSP_PROVIDER& Record(NCRYPT_PROV_HANDLE handle) {
        return *reinterpret_cast<QUELMKSP_PROVIDER*>(handle);
    }

    Lines Log() const { return state_->LogLines(); }

    void TearDown() override { SetDialogToolkitFactory(nullptr); }

    TempDir dir_;
    std::optional<SoftHsmTokens> tokens_;
    std::optional<FreshProviderState> state_;
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table_ = nullptr;
};

}  // namespace

TEST_F(ProviderLifecycle, OpensTheOnlyTokenWithoutAskingAndFreesItAgain) {
    Load({"first"}, "first=Velmora Reader 0");
    NCRYPT_PROV_HANDLE handle = 0;
    ASSERT_EQ(Open(0, &handle), 0);

    QUELMKSP_PROVIDER& provider = Record(handle);
    EXPECT_EQ(provider.cbLength, 128u + 34u);
    EXPECT_EQ(std::memcmp(&provider.dwMagic, "QELM", 4), 0);
    EXPECT_EQ(WideString(provider.pszName), WIDE("Velmora KSP v4.5"));
    EXPECT_EQ(WideString(provider.pszReaderName.get()), WIDE("Velmora Reader 0"));
    EXPECT_EQ(provider.dwUniqueSlotId, 0u);
    EXPECT_EQ(g_pProviderCache->fSet, 1u);
    EXPECT_EQ(
        Log(),
        (Lines{"QUELMKSPOpenProvider - Entry", "phProvider      : " + HexValue(Low32(&handle)),
               "pszProviderName : Velmora KSP v4.5", "dwFlags         : 0x00000000",
               "Defaulted to reader: Velmora Reader 0", "Caching provider instance",
               "Assigning unique slot id", "Provider handle retrieved: " + HexValue(Low32(handle)),
               "QUELMKSPOpenProvider - Exit: 0x00000000"}));

    state_->ClearLog();
    EXPECT_EQ(table_->FreeProvider(handle), 0);
    EXPECT_EQ(g_pProviderCache->fSet, 0u);
    EXPECT_EQ(Log(),
              (Lines{"QUELMKSPFreeProvider - Entry", "hProvider : " + HexValue(Low32(handle)),
                     "Deleting PIN cache", "Deleting key object list", "Deleting KSP name",
                     "Deleting provider context", "Deleting reader name",
                     "Closing cryptographic session", "QUELMKSPFreeProvider - Exit: 0x00000000"}));
}

TEST_F(ProviderLifecycle, AcceptsEveryRegisteredAliasAndNothingElse) {
    Load({"only"}, "");
    NCRYPT_PROV_HANDLE handle = 0;
    ASSERT_EQ(Open(NCRYPT_SILENT_FLAG, &handle, WIDE("Velmora Alt")), 0);
    EXPECT_EQ(WideString(Record(handle).pszName), WIDE("Velmora Alt"));
    EXPECT_EQ(Record(handle).cbLength, 128u + 24u);
    EXPECT_EQ(WideString(Record(handle).pszReaderName.get()).rfind(WIDE("SoftHSM slot ID 0x"), 0),
              0u)
        << "SoftHSM2's own description when no reader name is given";
    EXPECT_EQ(table_->FreeProvider(handle), 0);

    struct Case {
        NCRYPT_PROV_HANDLE* handle;
        const WideChar* name;
        std::string line;
    };
    for (const Case& c :
         {Case{nullptr, WIDE("Velmora KSP v4.5"), "NTE_INVALID_PARAMETER: phProvider is NULL"},
          Case{&handle, nullptr, "NTE_INVALID_PARAMETER: pszProviderName is NULL"},
          Case{&handle, WIDE("velmora ksp v4.5"),
               "NTE_INVALID_PARAMETER: pszProviderName does not match the registered provider "
               "name"},
          Case{&handle, WIDE("Velmora Alt "),
               "NTE_INVALID_PARAMETER: pszProviderName does not match the registered provider "
               "name"}}) {
        handle = 0;
        EXPECT_EQ(Open(0, c.handle, c.name), NTE_INVALID_PARAMETER);
        EXPECT_EQ(Log().rbegin()[1], c.line);
        EXPECT_EQ(handle, 0u);
    }
}

TEST_F(ProviderLifecycle, WithoutRegisteredAliasesNothingOpens) {
    Load({"only"}, "", "");
    NCRYPT_PROV_HANDLE handle = 0;
    EXPECT_EQ(Open(0, &handle), NTE_INTERNAL_ERROR);
    EXPECT_EQ(Log().rbegin()[1], "NTE_INTERNAL_ERROR: OpenProvider::RegGetValue");
}

TEST_F(ProviderLifecycle, WithTwoTokensTheReaderComesFromTheCacheOrTheUser) {
    Load({"first", "second"}, "first=Reader A;second=Reader B");
    NCRYPT_PROV_HANDLE first = 0, second = 0;
    ASSERT_EQ(Open(NCRYPT_SILENT_FLAG, &first), 0);
    const WideString reader(Record(first).pszReaderName.get());
    const std::string narrow(reader.begin(), reader.end());
    EXPECT_TRUE(reader == WIDE("Reader A") || reader == WIDE("Reader B"));
    Lines lines = Log();
    EXPECT_EQ(Lines(lines.begin() + 4, lines.begin() + 6),
              (Lines{"Multiple slots are detected but NCRYPT_SILENT_FLAG is set. Defaulting to "
                     "first slot.",
                     "Defaulted to reader: " + narrow}));

    // The very next open reuses that reader without a dialog.
    ASSERT_EQ(Open(0, &second), 0);
    lines = Log();
    EXPECT_EQ(Lines(lines.begin() + 4, lines.begin() + 8),
              (Lines{"Checking provider cache", "Provider set", "Iterating through slot list",
                     "Found slot: " + narrow}));
    EXPECT_EQ(lines[8], "Reader name acquired. Setting active slot to " + narrow);
    EXPECT_EQ(Record(second).slotId, Record(first).slotId);
    EXPECT_EQ(Record(second).dwUniqueSlotId, Record(first).dwUniqueSlotId);

    // Any other call in between forgets it; the dialog then has the say,
    // and without a way to show it the user's answer is a cancellation.
    DWORD count = 0;
    NCryptAlgorithmName* list = nullptr;
    ASSERT_EQ(table_->EnumAlgorithms(second, 0, &count, &list, 0), 0);
    table_->FreeBuffer(list);
    NCRYPT_PROV_HANDLE third = 0;
    EXPECT_EQ(Open(0, &third), ERROR_CANCELLED);
    lines = Log();
    EXPECT_EQ(
        Lines(lines.begin() + 4, lines.end()),
        (Lines{"Checking provider cache", "Provider not set", "Loading resources", "Loading Dialog",
               "Action was cancelled by the user", "ERROR_CANCELLED: The operation was cancelled.",
               "QUELMKSPOpenProvider - Exit: 0x000004C7"}));
    EXPECT_EQ(third, 0u);
    EXPECT_EQ(table_->FreeProvider(first), 0);
    EXPECT_EQ(table_->FreeProvider(second), 0);
}

TEST_F(ProviderLifecycle, ProviderCacheCanBeSwitchedOff) {
    Load({"first", "second"}, "",
         kAliases + RegistryFile::kSdkKey + "\"dwUseProviderCache\"=dword:00000000\n");
    NCRYPT_PROV_HANDLE first = 0, second = 0;
    ASSERT_EQ(Open(NCRYPT_SILENT_FLAG, &first), 0);
    EXPECT_EQ(g_pProviderCache->fSet, 0u);
    EXPECT_EQ(Open(0, &second), ERROR_CANCELLED);
    EXPECT_EQ(table_->FreeProvider(first), 0);
}

TEST_F(ProviderLifecycle, ReaderNamesAreCutTo32CharactersAndNumberedOncePerProcess) {
    Load({"first", "second"}, "first=0123456789abcdefghijklmnopqrstuvwxyzABCD;second=Reader  ");
    const WideString longName = WIDE("0123456789abcdefghijklmnopqrstuv");
    NCRYPT_PROV_HANDLE a = 0, b = 0, c = 0;
    ASSERT_EQ(Open(NCRYPT_SILENT_FLAG, &a), 0);
    const WideString firstReader(Record(a).pszReaderName.get());
    EXPECT_TRUE(firstReader == longName || firstReader == WIDE("Reader")) << "blanks trimmed";
    ASSERT_EQ(Open(NCRYPT_SILENT_FLAG, &b), 0);
    EXPECT_EQ(Record(b).dwUniqueSlotId, 0u);
    EXPECT_EQ(Record(a).dwUniqueSlotId, 0u);

    // The other token, reached through a cached provider that names its reader.
    const WideString otherReader = firstReader == longName ? WIDE("Reader") : longName;
    ProviderRecord named = AllocateProviderRecord(WIDE("Velmora KSP v4.5"));
    named->pszReaderName = std::make_unique<WideChar[]>(33);
    std::copy(otherReader.begin(), otherReader.end(), named->pszReaderName.get());
    g_pProviderCache->CacheProviderInstance(named.get());
    ASSERT_EQ(Open(0, &c), 0);
    EXPECT_EQ(WideString(Record(c).pszReaderName.get()), otherReader);
    EXPECT_EQ(Record(c).dwUniqueSlotId, 1u);
    for (NCRYPT_PROV_HANDLE handle : {a, b, c}) EXPECT_EQ(table_->FreeProvider(handle), 0);
}
