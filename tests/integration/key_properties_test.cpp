#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "keys/key_context.h"
#include "provider/card_monitor.h"
#include "support/pin_dialog_fixture.h"
#include "support/test_certificates.h"
#include "support/token_objects.h"

namespace {

// A provider on a token with the 1024-bit pairs "k1" and "k2", "k1" opened.
class KeyProperties : public PinDialog {
protected:
    void SetUp() override {
        extraRegistry_ = "\"Default Key Length\"=dword:00000400\n";
        PinDialog::SetUp();
        {
            TokenObjects token(*g_pCryptoki);
            token.Generate(BytesOf("k1"), BytesOf("k1"));
            token.Generate(BytesOf("k2"), BytesOf("k2"));
        }
        ASSERT_EQ(table_->OpenKey(provider_, &key_, WIDE("k1"), 0, 0), 0);
    }
    void TearDown() override {
        for (NCRYPT_KEY_HANDLE key : {key_, created_}) {
            if (key) {
                EXPECT_EQ(table_->FreeKey(provider_, key), 0);
            }
        }
        PinDialog::TearDown();
    }

    SECURITY_STATUS Get(NCRYPT_KEY_HANDLE key, const platform::WideChar* name, Bytes* value,
                        DWORD* result, DWORD flags = 0) {
        return table_->GetKeyProperty(provider_, key, name, value ? value->data() : nullptr,
                                      value ? static_cast<DWORD>(value->size()) : 0, result, flags);
    }
    SECURITY_STATUS Set(NCRYPT_KEY_HANDLE key, const platform::WideChar* name, Bytes value,
                        DWORD flags = 0) {
        return table_->SetKeyProperty(provider_, key, name, value.data(),
                                      static_cast<DWORD>(value.size()), flags);
    }
    static Bytes Dword(uint32_t value) {
        Bytes bytes(4);
        std::memcpy(bytes.data(), &value, 4);
        return bytes;
    }
    static Bytes Wide(const platform::WideChar* text) {
        platform::WideView view(text);
        Bytes bytes((view.size() + 1) * 2, 0);
        std::memcpy(bytes.data(), view.data(), view.size() * 2);
        return bytes;
    }
    bool Logged(const std::string& line) const {
        std::vector<std::string> lines = LogLines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
    size_t MonitoredCertificates() const {
        size_t count = 0;
        g_pCardMonitor->ForEachCertificate([&](const CardMonitor::CertificateEntry&) { ++count; });
        return count;
    }

    NCRYPT_KEY_HANDLE key_ = 0;
    NCRYPT_KEY_HANDLE created_ = 0;
};

}  // namespace

TEST_F(KeyProperties, EveryReadablePropertyWithItsLengthAndValue) {
    struct Expected {
        const platform::WideChar* name;
        Bytes value;
        const char* trace;
    };
    Bytes lengths;
    for (uint32_t v : {512u, 4096u, 512u, 2048u}) {
        Bytes field = Dword(v);
        lengths.insert(lengths.end(), field.begin(), field.end());
    }
    QUELMKSP_KEY& record = *KeyRecord(key_);
    const Expected table[] = {
        {WIDE("Algorithm Name"), Wide(WIDE("RSA")), "dwProperty = QUELMKSP_ALGORITHM_PROPERTY"},
        {WIDE("Block Length"), Dword(128), "dwProperty = QUELMKSP_BLOCK_LENGTH_PROPERTY"},
        {WIDE("Export Policy"), Dword(record.dwExportPolicy),
         "dwProperty = QUELMKSP_EXPORT_POLICY_PROPERTY"},
        {WIDE("Key Usage"), Dword(record.dwKeyUsage), "dwProperty = QUELMKSP_KEY_USAGE_PROPERTY"},
        {WIDE("Key Type"), Dword(0), "dwProperty = QUELMKSP_KEY_TYPE_PROPERTY"},
        {WIDE("Length"), Dword(1024), "dwProperty = QUELMKSP_LENGTH_PROPERTY"},
        {WIDE("Lengths"), lengths, "dwProperty = QUELMKSP_LENGTHS_PROPERTY"},
        {WIDE("Name"), Wide(WIDE("k1")), "dwProperty = QUELMKSP_NAME_PROPERTY"},
        {WIDE("Algorithm Group"), Wide(WIDE("RSA")),
         "dwProperty = QUELMKSP_ALGORITHM_GROUP_PROPERTY"},
        {WIDE("Unique Name"), Wide(WIDE("k1")), "dwProperty = QUELMKSP_UNIQUE_NAME_PROPERTY"},
    };
    for (const Expected& expected : table) {
        SCOPED_TRACE(expected.trace);
        DWORD result = 0xFFFF;
        ClearLog();
        EXPECT_EQ(Get(key_, expected.name, nullptr, &result), 0);
        EXPECT_EQ(result, expected.value.size());
        EXPECT_FALSE(Logged(expected.trace)) << "a length query writes no value";
        Bytes small(expected.value.size() - 1);
        EXPECT_EQ(Get(key_, expected.name, &small, &result), NTE_BUFFER_TOO_SMALL);
        EXPECT_EQ(result, expected.value.size());
        Bytes value(expected.value.size() + 4, 0xEE);
        EXPECT_EQ(Get(key_, expected.name, &value, &result, NCRYPT_SILENT_FLAG), 0);
        value.resize(result);
        EXPECT_EQ(value, expected.value);
        EXPECT_TRUE(Logged(expected.trace));
        EXPECT_EQ(Get(key_, expected.name, &value, &result, NCRYPT_PERSIST_ONLY_FLAG),
                  NTE_NOT_SUPPORTED);
    }

    DWORD result = 0xFFFF;
    platform::WideString sixtyFour(64, u'x'), sixtyFive(65, u'x');
    for (const platform::WideChar* unknown :
         {WIDE("length"), WIDE("Security Descr"), WIDE("Lengths "), sixtyFour.c_str()}) {
        EXPECT_EQ(Get(key_, unknown, nullptr, &result), NTE_NOT_SUPPORTED);
        EXPECT_EQ(result, 0u);
    }
    result = 0xFFFF;
    EXPECT_EQ(Get(key_, sixtyFive.c_str(), nullptr, &result), NTE_INVALID_PARAMETER);
    EXPECT_EQ(result, 0u) << "the failure came before the property was known";
    EXPECT_TRUE(Logged(
        "NTE_INVALID_PARAMETER: Length of pszProperty is longer than NCRYPT_MAX_PROPERTY_NAME"));
    EXPECT_EQ(Get(key_, nullptr, nullptr, &result), NTE_INVALID_PARAMETER);
    EXPECT_EQ(Get(key_, WIDE("Length"), nullptr, nullptr), NTE_INVALID_PARAMETER);
    EXPECT_EQ(table_->GetKeyProperty(0, 0, WIDE("Length"), nullptr, 0, &result, 0),
              NTE_INVALID_HANDLE);
    EXPECT_TRUE(Logged("NTE_INVALID_HANDLE: Invalid provider handle, pProvider is NULL"));
    EXPECT_EQ(table_->GetKeyProperty(provider_, 0, WIDE("Length"), nullptr, 0, &result, 0),
              NTE_INVALID_HANDLE);
    EXPECT_TRUE(Logged("NTE_INVALID_HANDLE: Invalid key handle, pKey is NULL"));

    ASSERT_EQ(table_->CreatePersistedKey(provider_, &created_, WIDE("RSA"), nullptr, 0, 0), 0);
    EXPECT_EQ(Get(created_, WIDE("Name"), nullptr, &result), NTE_NOT_SUPPORTED)
        << "a key without a name";
}

TEST_F(KeyProperties, WritablePropertiesAndTheirRules) {
    ASSERT_EQ(table_->CreatePersistedKey(provider_, &created_, WIDE("RSA"), WIDE("new"), 0, 0), 0);
    QUELMKSP_KEY& record = *KeyRecord(created_);

    EXPECT_EQ(Set(created_, WIDE("Length"), Dword(2048)), 0);
    EXPECT_EQ(record.dwBitLength, 2048u);
    for (uint32_t bits : {1000u, 256u, 8192u, 0u}) {
        ClearLog();
        EXPECT_EQ(Set(created_, WIDE("Length"), Dword(bits)), NTE_NOT_SUPPORTED) << bits;
        EXPECT_TRUE(Logged("specified length is invalid"));
    }
    EXPECT_EQ(Set(created_, WIDE("Length"), Bytes(3)), NTE_BAD_DATA);
    EXPECT_TRUE(Logged("cbInput != sizeof(DWORD)"));
    EXPECT_EQ(record.dwBitLength, 2048u);
    EXPECT_EQ(Set(created_, WIDE("Key Usage"), Dword(0x7777)), 0) << "taken as it is";
    EXPECT_EQ(record.dwKeyUsage, 0x7777u);

    platform::WideString name(63, u'n');
    Bytes nameBytes(name.size() * 2);
    std::memcpy(nameBytes.data(), name.data(), nameBytes.size());
    EXPECT_EQ(Set(created_, WIDE("Name"), nameBytes), 0);
    EXPECT_TRUE(Logged("pKey->cbKeyName = 0x0000003F"));
    Bytes readBack(200);
    DWORD result = 0;
    ASSERT_EQ(Get(created_, WIDE("Name"), &readBack, &result), 0);
    EXPECT_EQ(result, 128u);
    EXPECT_EQ(Set(created_, WIDE("Name"), Bytes(128, 'a')), NTE_BAD_DATA);
    EXPECT_TRUE(Logged("cbInput >= (QUELMKSP_MAX_NAME_LEN*sizeof(WCHAR))"));
    EXPECT_EQ(Set(created_, WIDE("Name"), Bytes(7, 'a')), NTE_BAD_DATA);
    EXPECT_TRUE(Logged("(cbInput % 2)"));

    EXPECT_EQ(Set(created_, WIDE("Length"), Dword(1024), NCRYPT_SILENT_FLAG), NTE_BAD_FLAGS);
    EXPECT_TRUE(Logged("NTE_BAD_FLAGS: dwFlags contains an invalid flag"));
    EXPECT_EQ(Set(created_, WIDE("Security Descr"), Dword(0), NCRYPT_SILENT_FLAG),
              NTE_NOT_SUPPORTED);
    EXPECT_EQ(
        Set(created_, WIDE("Length"), Dword(1024), NCRYPT_PERSIST_FLAG | NCRYPT_PERSIST_ONLY_FLAG),
        0);
    EXPECT_EQ(Set(created_, WIDE("UI Policy"), Bytes(40)), 0);
    EXPECT_TRUE(Logged("NCRYPT_UI_POLICY is not supported and will be ignored"));
    EXPECT_EQ(Set(created_, WIDE("Export Policy"), Dword(0)), 0);
    EXPECT_EQ(record.dwExportPolicy, NCRYPT_ALLOW_PLAINTEXT_EXPORT_FLAG);
    EXPECT_EQ(Set(created_, WIDE("key usage"), Dword(1)), NTE_NOT_SUPPORTED);
    EXPECT_EQ(table_->SetKeyProperty(provider_, created_, WIDE("Length"), nullptr, 4, 0),
              NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged("NTE_INVALID_PARAMETER: pbInput is NULL"));
    platform::WideString sixtyFive(65, u'x');
    EXPECT_EQ(Set(created_, sixtyFive.c_str(), Dword(0)), NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged("NTE_INVALID_PARAMETER: pszProperty is exceeds NCRYPT_MAX_PROPERTY_NAME"));

    Provider().hWnd = 0x1122334455667788ULL;
    EXPECT_EQ(Set(created_, WIDE("HWND Handle"), Dword(0xAABBCCDD)), 0);
    EXPECT_EQ(Provider().hWnd, 0x11223344AABBCCDDULL) << "only the low four bytes change";
    EXPECT_TRUE(Logged("Window handle set: 0xAABBCCDD"));
    EXPECT_EQ(Set(created_, WIDE("HWND Handle"), Bytes(9)), NTE_INVALID_PARAMETER);

    // "Length" and "Key Usage" close at finalization; "Name" does not.
    record.fFinished = 1;
    EXPECT_EQ(Set(created_, WIDE("Length"), Dword(1024)), NTE_BAD_KEY_STATE);
    EXPECT_TRUE(Logged("pKey->fFinished == TRUE"));
    EXPECT_EQ(Set(created_, WIDE("Key Usage"), Dword(1)), NTE_BAD_KEY_STATE);
    EXPECT_EQ(Set(created_, WIDE("Name"), Bytes{'a', 0}), 0);
    record.fFinished = 0;
}

TEST_F(KeyProperties, TheCertificateIsStoredBesideThePairAndReadBack) {
    DWORD result = 0xFFFF;
    EXPECT_EQ(Get(key_, WIDE("SmartCardKeyCertificate"), nullptr, &result), NTE_NOT_FOUND);
    EXPECT_EQ(result, 0u);

    ASSERT_EQ(table_->CreatePersistedKey(provider_, &created_, WIDE("RSA"), WIDE("x"), 0, 0), 0);
    EXPECT_EQ(Set(created_, WIDE("SmartCardKeyCertificate"), kCertificateWithCommonName),
              NTE_BAD_KEY_STATE);
    EXPECT_TRUE(Logged("Key referenced by hKey is not yet finalized."));

    ASSERT_EQ(Set(key_, WIDE("SmartCardKeyCertificate"), kCertificateWithCommonName), 0);
    EXPECT_TRUE(Logged("No certificate has been found for this key"));
    EXPECT_EQ(script_->runs, 0) << "storing a certificate needs no login";

    {
        TokenObjects token(*g_pCryptoki);
        std::vector<CK_OBJECT_HANDLE> stored = token.Find(CKO_CERTIFICATE);
        ASSERT_EQ(stored.size(), 1u);
        CK_OBJECT_HANDLE object = stored[0];
        const Bytes& der = kCertificateWithCommonName;
        EXPECT_EQ(token.Attribute(object, CKA_ID), BytesOf("k1"));
        EXPECT_EQ(token.Attribute(object, CKA_VALUE), der);
        Bytes label = BytesOf("Prueba Token");
        label.push_back(0);
        EXPECT_EQ(token.Attribute(object, CKA_LABEL), label);
        Bytes issuer(der.begin() + 36, der.begin() + 100);
        issuer.push_back(0);
        EXPECT_EQ(token.Attribute(object, CKA_ISSUER), issuer);
        Bytes subject(der.begin() + 132, der.begin() + 196);
        subject.push_back(0);
        EXPECT_EQ(token.Attribute(object, CKA_SUBJECT), subject);
        EXPECT_EQ(token.Attribute(object, CKA_SERIAL_NUMBER),
                  (Bytes{0x04, 0x03, 0x02, 0x01, 0x80, 0x00}))
            << "least significant byte first, sign byte included";
        EXPECT_TRUE(token.BoolAttribute(object, CKA_TOKEN));
        EXPECT_FALSE(token.BoolAttribute(object, CKA_PRIVATE));
        EXPECT_TRUE(token.BoolAttribute(object, CKA_MODIFIABLE));
        EXPECT_EQ(token.UlongAttribute(object, CKA_CLASS), CKO_CERTIFICATE);
    }

    ClearLog();
    EXPECT_EQ(Set(key_, WIDE("SmartCardKeyCertificate"), kCertificateWithoutCommonName),
              NTE_EXISTS);
    EXPECT_TRUE(Logged("NTE_EXISTS: A certificate already exists for the selected key pair"));

    size_t monitored = MonitoredCertificates();
    const DWORD length = static_cast<DWORD>(kCertificateWithCommonName.size());
    EXPECT_EQ(Get(key_, WIDE("SmartCardKeyCertificate"), nullptr, &result), 0);
    EXPECT_EQ(result, length);
    Bytes small(length - 1);
    result = 0;
    EXPECT_EQ(Get(key_, WIDE("SmartCardKeyCertificate"), &small, &result), NTE_BUFFER_TOO_SMALL);
    EXPECT_EQ(result, length);
    EXPECT_EQ(MonitoredCertificates(), monitored) << "no context without a copy handed out";
    Bytes value(length + 10);
    ASSERT_EQ(Get(key_, WIDE("SmartCardKeyCertificate"), &value, &result), 0);
    value.resize(result);
    EXPECT_EQ(value, kCertificateWithCommonName);
    ASSERT_EQ(MonitoredCertificates(), monitored + 1);
    g_pCardMonitor->ForEachCertificate([&](const CardMonitor::CertificateEntry& entry) {
        EXPECT_EQ(entry.dwUniqueSlotId, Provider().dwUniqueSlotId);
    });

    // A certificate without a common name is labelled after its organisation.
    NCRYPT_KEY_HANDLE second = 0;
    ASSERT_EQ(table_->OpenKey(provider_, &second, WIDE("k2"), 0, 0), 0);
    ASSERT_EQ(Set(second, WIDE("SmartCardKeyCertificate"), kCertificateWithoutCommonName), 0);
    {
        TokenObjects token(*g_pCryptoki);
        std::string label("Otra Entidad\0", 13);
        EXPECT_EQ(token.Find(CKO_CERTIFICATE, &label).size(), 1u);
    }
    EXPECT_EQ(table_->FreeKey(provider_, second), 0);
}

TEST_F(KeyProperties, ACertificateWriteNeedsBothHalvesAndValidBytes) {
    QUELMKSP_KEY& record = *KeyRecord(key_);
    const CK_OBJECT_HANDLE publicKey = record.hPublicKey, privateKey = record.hPrivateKey;
    record.hPublicKey = 0;
    EXPECT_EQ(Set(key_, WIDE("SmartCardKeyCertificate"), kCertificateWithCommonName),
              NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged(
        "NTE_INTERNAL_ERROR: An internal error occured. Check PKCS logs for more information"));
    record.hPrivateKey = 0;
    EXPECT_EQ(Set(key_, WIDE("SmartCardKeyCertificate"), kCertificateWithCommonName),
              NTE_BAD_KEY_STATE);
    EXPECT_TRUE(Logged("Key referenced by hKey does not contain any key handle"));
    record.hPublicKey = publicKey;
    record.hPrivateKey = privateKey;

    Bytes truncated(kCertificateWithCommonName.begin(), kCertificateWithCommonName.end() - 1);
    EXPECT_EQ(Set(key_, WIDE("SmartCardKeyCertificate"), truncated), NTE_FAIL);
    TokenObjects token(*g_pCryptoki);
    EXPECT_TRUE(token.Find(CKO_CERTIFICATE).empty());
}
