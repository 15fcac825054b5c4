#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "keys/key_context.h"
#include "support/provider_on_token.h"
#include "support/token_objects.h"

namespace {

using platform::WideString;
using Names = std::vector<WideString>;

class KeyHandles : public ProviderOnToken {
protected:
    void SetUp() override { OpenOn({"keys"}, "keys=Velmora Reader 1"); }

    TokenObjects& Writer() {
        if (!writer_) writer_.emplace(*g_pCryptoki);
        return *writer_;
    }

    // One enumeration step; the name, or the status when there is none.
    SECURITY_STATUS Next(PVOID* state, WideString* name) {
        NCryptKeyName* key = nullptr;
        SECURITY_STATUS status = table_->EnumKeys(provider_, nullptr, &key, state, 0);
        if (status != 0) return status;
        EXPECT_EQ(WideString(key->pszAlgid), WIDE("RSA"));
        EXPECT_EQ(key->dwLegacyKeySpec, 0u);
        EXPECT_EQ(key->dwFlags, 0u);
        EXPECT_EQ(static_cast<void*>(key->pszName), static_cast<void*>(key + 1))
            << "one block, released by one FreeBuffer";
        *name = key->pszName;
        EXPECT_EQ(table_->FreeBuffer(key), 0);
        return 0;
    }

    Names EnumerateAll() {
        Names names;
        PVOID state = nullptr;
        WideString name;
        SECURITY_STATUS status;
        while ((status = Next(&state, &name)) == 0) names.push_back(name);
        EXPECT_EQ(status, NTE_NO_MORE_ITEMS);
        table_->FreeBuffer(state);
        return names;
    }

    SECURITY_STATUS Open(const WideString& name, NCRYPT_KEY_HANDLE* key, DWORD keySpec = 0,
                         DWORD flags = 0) {
        ClearLog();
        return table_->OpenKey(provider_, key, name.c_str(), keySpec, flags);
    }

    // The line before the exit line of the last call.
    std::string FailureLine() const { return LogLines().rbegin()[1]; }

    std::optional<TokenObjects> writer_;
};

const WideString kBinaryName = WIDE("\x01\x02");

}  // namespace

TEST_F(KeyHandles, PairsObjectsByIdAndListsOnlyKeysWithAPrivateHalf) {
    TokenObjects& token = Writer();
    token.Generate({1, 2}, {1, 2});
    auto lonePrivate = token.Generate(BytesOf("B1"), BytesOf("B1"));
    token.Destroy(lonePrivate.publicKey);
    auto lonePublic = token.Generate(BytesOf("C1"), BytesOf("C1"));
    token.Destroy(lonePublic.privateKey);
    token.Generate(BytesOf("D1"), BytesOf("D1"));
    auto duplicate = token.Generate(BytesOf("D1"), BytesOf("D1x"));
    token.Destroy(duplicate.privateKey);
    token.Generate(BytesOf("EE"), BytesOf("EEF"));
    token.Generate({0x41, 0x42, 0x00, 0x43}, {0x41, 0x42, 0x00, 0x43});

    Names names = EnumerateAll();
    ASSERT_EQ(names.size(), 5u);
    EXPECT_EQ(names.back(), WIDE("B1")) << "a lone private key comes after the public entries";
    Names sorted = names;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (Names{kBinaryName, WIDE("AB"), WIDE("B1"), WIDE("D1"), WIDE("EE")}));

    QUELMKSP_PROVIDER& provider = Provider();
    ASSERT_EQ(provider.cObjectList, 6u) << "the lone public key is listed but never enumerated";
    for (uint32_t i = 0; i < provider.cObjectList; ++i) {
        const QUELMKSP_KEY& entry = provider.pObjectList[i];
        WideString name(entry.KeyName());
        EXPECT_EQ(entry.fFinished, 1u);
        EXPECT_EQ(entry.dwBitLength, 1024u);
        EXPECT_EQ(entry.hPublicKey != 0, name != WIDE("B1")) << i;
        EXPECT_EQ(entry.hPrivateKey != 0, name != WIDE("C1")) << i;
    }
    EXPECT_NE(TokenLog().find("Duplicate Key ID error, skip key"), std::string::npos);
    EXPECT_NE(TokenLog().find("Private key paired with public key in object list"),
              std::string::npos);
}

TEST_F(KeyHandles, OpensAKeyByEveryAcceptedNameForm) {
    Writer().Generate({0x41, 0x42, 0x00, 0x43}, {0x41, 0x42, 0x00, 0x43});
    Writer().Generate({1, 2}, {1, 2});
    const WideString reader = WIDE("Velmora Reader 1");
    for (const WideString& name :
         {WideString(WIDE("AB")), WideString(WIDE("ab")), WideString(WIDE("ABC")),
          WideString(WIDE("4142")), WideString(WIDE("4142ff")), reader + WIDE("\\AB"),
          reader + WIDE("|ab"), WIDE("anything ") + reader + WIDE(" AB")}) {
        NCRYPT_KEY_HANDLE key = 0;
        ASSERT_EQ(Open(name, &key, 3), 0) << std::string(name.begin(), name.end());
        const QUELMKSP_KEY& opened = *KeyRecord(key);
        EXPECT_EQ(WideString(opened.KeyName()), WIDE("AB"));
        EXPECT_EQ(opened.cbKeyName, 3u);
        EXPECT_EQ(opened.fFinished, 1u);
        EXPECT_NE(opened.hPublicKey, 0u);
        EXPECT_NE(opened.hPrivateKey, 0u);
        EXPECT_EQ(opened.cbKeyId, 4u);
        EXPECT_NE(opened.pszKeyName.get(), Provider().pObjectList[0].pszKeyName.get())
            << "shares nothing with the list entry";
        EXPECT_EQ(table_->FreeKey(provider_, key), 0);
    }
    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(Open(WIDE("0102"), &key), 0);
    EXPECT_EQ(WideString(KeyRecord(key)->KeyName()), kBinaryName);
    EXPECT_EQ(table_->FreeKey(provider_, key), 0);

    for (const WideString& name : {WideString(WIDE("414")), WideString(WIDE("AC")),
                                   WideString(WIDE("A")), reader + WIDE("AB")}) {
        key = 0;
        EXPECT_EQ(Open(name, &key), NTE_BAD_KEYSET);
        EXPECT_EQ(key, 0u);
        EXPECT_NE(TokenLog().find("Key name match not found"), std::string::npos);
    }
}

TEST_F(KeyHandles, OpenKeyChecksItsArgumentsAndTheKeySpec) {
    auto lonePrivate = Writer().Generate(BytesOf("priv"), BytesOf("priv"));
    Writer().Destroy(lonePrivate.publicKey);
    auto lonePublic = Writer().Generate(BytesOf("pub"), BytesOf("pub"));
    Writer().Destroy(lonePublic.privateKey);

    struct Case {
        NCRYPT_PROV_HANDLE provider;
        bool withOut;
        const platform::WideChar* name;
        DWORD keySpec;
        DWORD flags;
        SECURITY_STATUS status;
        std::string line;
    };
    const Case cases[] = {
        {0, true, WIDE("priv"), 0, 0, NTE_INVALID_HANDLE, "NTE_INVALID_HANDLE: pProvider is NULL"},
        {provider_, false, WIDE("priv"), 0, 0, NTE_INVALID_PARAMETER,
         "NTE_INVALID_PARAMETER: phKey is NULL"},
        {provider_, true, nullptr, 0, 0, NTE_INVALID_PARAMETER,
         "NTE_INVALID_PARAMETER: pszKeyName is NULL"},
        {provider_, true, WIDE("priv"), 4, 0, NTE_INVALID_PARAMETER,
         "NTE_INVALID_PARAMETER: ((dwLegacyKeySpec & ~(AT_KEYEXCHANGE | AT_SIGNATURE)) != 0) "},
        {provider_, true, WIDE("priv"), 0, 0x80, NTE_BAD_FLAGS,
         "NTE_BAD_FLAGS: ((dwFlags & ~(NCRYPT_MACHINE_KEY_FLAG | NCRYPT_SILENT_FLAG)) != 0) "},
        {provider_, true, WIDE("priv"), 0, 0x20, NTE_NOT_SUPPORTED,
         "NTE_NOT_SUPPORTED:  (dwFlags & NCRYPT_MACHINE_KEY_FLAG) "},
        {provider_, true, WIDE("priv"), 1, 0x40, NTE_BAD_KEYSET,
         "NTE_BAD_KEYSET: AT_KEYEXCHANGE key not found"},
        {provider_, true, WIDE("pub"), 2, 0, NTE_BAD_KEYSET,
         "NTE_BAD_KEYSET: AT_SIGNATURE Key not found"},
    };
    for (const Case& c : cases) {
        NCRYPT_KEY_HANDLE key = 0;
        ClearLog();
        EXPECT_EQ(
            table_->OpenKey(c.provider, c.withOut ? &key : nullptr, c.name, c.keySpec, c.flags),
            c.status)
            << c.line;
        EXPECT_EQ(key, 0u);
        EXPECT_EQ(FailureLine(), c.line);
        EXPECT_EQ(LogLines().back(), "QUELMKSPOpenKey - Exit" + HexValue(c.status));
    }

    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(Open(WIDE("priv"), &key, 2, NCRYPT_SILENT_FLAG), 0);
    QUELMKSP_KEY copy;
    copy.cbLength = 439;
    copy.dwMagic = QUELMKSP_KEY::kMagic;
    EXPECT_EQ(table_->FreeKey(provider_, reinterpret_cast<NCRYPT_KEY_HANDLE>(&copy)),
              NTE_INVALID_HANDLE);
    EXPECT_EQ(table_->FreeKey(0, key), NTE_INVALID_HANDLE);
    ClearLog();
    EXPECT_EQ(table_->FreeKey(provider_, key), 0);
    EXPECT_EQ(LogLines()[3], "Deleting key name");
    EXPECT_EQ(LogLines()[4], "Deleting private key handle");
}

TEST_F(KeyHandles, TheListChangesOnlyWithANewEnumeration) {
    auto pair = Writer().Generate(BytesOf("old"), BytesOf("old"));
    ASSERT_EQ(EnumerateAll(), Names{WIDE("old")});
    Writer().Generate(BytesOf("new"), BytesOf("new"));
    Writer().Destroy(pair.publicKey);
    Writer().Destroy(pair.privateKey);

    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(Open(WIDE("old"), &key), 0) << "deleted, but still listed";
    EXPECT_EQ(table_->FreeKey(provider_, key), 0);
    EXPECT_EQ(Open(WIDE("new"), &key), NTE_BAD_KEYSET) << "created, but not listed yet";

    EXPECT_EQ(EnumerateAll(), Names{WIDE("new")});
    EXPECT_EQ(Open(WIDE("old"), &key), NTE_BAD_KEYSET);
    ASSERT_EQ(Open(WIDE("new"), &key), 0);
    EXPECT_EQ(table_->FreeKey(provider_, key), 0);
}

TEST_F(KeyHandles, InterleavedEnumerationsEachRunToTheirEnd) {
    for (const char* id : {"k1", "k2", "k3"}) Writer().Generate(BytesOf(id), BytesOf(id));
    PVOID first = nullptr;
    WideString name;
    ASSERT_EQ(Next(&first, &name), 0);
    EXPECT_EQ(EnumerateAll().size(), 3u) << "a second enumeration rebuilds the list";
    int rest = 0;
    while (Next(&first, &name) == 0) ++rest;
    EXPECT_EQ(rest, 2) << "the first goes on by its index";
    EXPECT_EQ(table_->FreeBuffer(first), 0);

    EXPECT_EQ(table_->EnumKeys(0, nullptr, nullptr, nullptr, 0), NTE_INVALID_HANDLE);
    NCryptKeyName* key = nullptr;
    PVOID state = nullptr;
    EXPECT_EQ(table_->EnumKeys(provider_, nullptr, nullptr, &state, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(table_->EnumKeys(provider_, nullptr, &key, &state, 0x80), NTE_BAD_FLAGS);
    EXPECT_EQ(table_->EnumKeys(provider_, nullptr, &key, &state, 0x20), NTE_NOT_SUPPORTED);
    EXPECT_EQ(state, nullptr);
}

TEST_F(KeyHandles, AnEmptyTokenHasNoKeysAndOverlongAttributesFailTheList) {
    PVOID state = nullptr;
    WideString name;
    EXPECT_EQ(Next(&state, &name), NTE_NO_MORE_ITEMS);
    EXPECT_EQ(state, nullptr) << "a state made for a failed first step is released";

    Writer().Generate(BytesOf("short"), BytesOf("short"), std::string(201, 'L'));
    EXPECT_EQ(Next(&state, &name), NTE_INTERNAL_ERROR);
    EXPECT_NE(TokenLog().find("Get Public Keys atrributes error"), std::string::npos);
    NCRYPT_KEY_HANDLE key = 0;
    EXPECT_EQ(Open(WIDE("short"), &key), NTE_INTERNAL_ERROR);
    EXPECT_NE(TokenLog().find("LoadTokenKeys error "), std::string::npos);
}

TEST_F(KeyHandles, AListThatOutgrowsItsArrayKeepsEveryEntryAndEveryPairing) {
    TokenObjects& token = Writer();
    Names expected;
    for (int i = 0; i < 11; ++i) {
        std::string id = "K" + std::to_string(10 + i);
        // Every third private key carries a longer identifier that begins
        // with its public key's.
        token.Generate(BytesOf(id), BytesOf(i % 3 ? id : id + "x"));
        expected.push_back(WideString(id.begin(), id.end()));
    }
    // The public key's identifier read over its own length takes the zero
    // after the private key's shorter one.
    token.Generate({'Z', 0}, {'Z'});
    expected.push_back(WIDE("Z"));

    Names names = EnumerateAll();
    Names sorted = names;
    std::sort(sorted.begin(), sorted.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(sorted, expected);

    QUELMKSP_PROVIDER& provider = Provider();
    ASSERT_EQ(provider.cObjectList, 12u);
    EXPECT_GE(provider.cObjectListCapacity, provider.cObjectList);
    for (uint32_t i = 0; i < provider.cObjectList; ++i) {
        const QUELMKSP_KEY& entry = provider.pObjectList[i];
        EXPECT_NE(entry.hPublicKey, 0u) << i;
        EXPECT_NE(entry.hPrivateKey, 0u) << i;
        EXPECT_EQ(WideString(entry.KeyName()), names[i]) << "listed in the list's order";
    }

    // A second build starts from an empty list and ends with the same one.
    EXPECT_EQ(EnumerateAll(), names);
    EXPECT_EQ(provider.cObjectList, 12u);
}
