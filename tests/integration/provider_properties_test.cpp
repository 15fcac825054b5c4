#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/certificates.h"
#include "support/pin_dialog_fixture.h"
#include "support/test_certificates.h"
#include "support/token_objects.h"

namespace {

class ProviderProperties : public PinDialog {
protected:
    SECURITY_STATUS Get(const platform::WideChar* name, Bytes* value, DWORD* result,
                        DWORD flags = 0) {
        return table_->GetProviderProperty(provider_, name, value ? value->data() : nullptr,
                                           value ? static_cast<DWORD>(value->size()) : 0, result,
                                           flags);
    }
    SECURITY_STATUS Set(const platform::WideChar* name, Bytes value, DWORD flags = 0) {
        return table_->SetProviderProperty(provider_, name, value.data(),
                                           static_cast<DWORD>(value.size()), flags);
    }
    static Bytes Dword(uint32_t value) {
        Bytes bytes(4);
        std::memcpy(bytes.data(), &value, 4);
        return bytes;
    }
    bool Logged(const std::string& line) const {
        std::vector<std::string> lines = LogLines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    // The encoded certificates of the store the property hands out.
    std::vector<Bytes> StoreContents(const platform::WideChar* property) {
        Bytes handle(8);
        DWORD result = 0;
        EXPECT_EQ(Get(property, &handle, &result), 0);
        EXPECT_EQ(result, 8u);
        HCERTSTORE store = nullptr;
        std::memcpy(&store, handle.data(), sizeof store);
        EXPECT_NE(store, nullptr);
        std::vector<Bytes> certificates;
        if (!store) return certificates;
        for (PCCERT_CONTEXT context = CertEnumCertificatesInStore(store, nullptr); context;
             context = CertEnumCertificatesInStore(store, context))
            certificates.emplace_back(context->pbCertEncoded,
                                      context->pbCertEncoded + context->cbCertEncoded);
        EXPECT_TRUE(CertCloseStore(store, 0));
        return certificates;
    }

    void StoreOn(const char* id, const Bytes& certificate) {
        NCRYPT_KEY_HANDLE key = 0;
        platform::WideString name(id, id + std::strlen(id));
        ASSERT_EQ(table_->OpenKey(provider_, &key, name.c_str(), 0, 0), 0);
        ASSERT_EQ(table_->SetKeyProperty(provider_, key, WIDE("SmartCardKeyCertificate"),
                                         const_cast<uint8_t*>(certificate.data()),
                                         static_cast<DWORD>(certificate.size()), 0),
                  0);
        EXPECT_EQ(table_->FreeKey(provider_, key), 0);
    }
};

}  // namespace

TEST_F(ProviderProperties, EveryReadablePropertyWithItsLengthAndValue) {
    struct Expected {
        const platform::WideChar* name;
        Bytes value;
    };
    Bytes name(34, 0);
    std::memcpy(name.data(), WIDE("Velmora KSP v4.5"), 32);
    const Expected table[] = {
        {WIDE("Impl Type"), Dword(0x19)},
        {WIDE("Max Name Length"), Dword(64)},
        {WIDE("Name"), name},
        {WIDE("Version"), Dword(0x01000100)},
        {WIDE("Security Descr Support"), Dword(0)},
        {WIDE("SmartCardGuid"), Bytes(8, 0)},
    };
    for (const Expected& expected : table) {
        DWORD result = 0xFFFF;
        EXPECT_EQ(Get(expected.name, nullptr, &result, NCRYPT_SILENT_FLAG), 0);
        EXPECT_EQ(result, expected.value.size());
        Bytes small(expected.value.size() - 1);
        EXPECT_EQ(Get(expected.name, &small, &result), NTE_BUFFER_TOO_SMALL);
        EXPECT_EQ(result, expected.value.size());
        Bytes value(expected.value.size() + 2, 0xEE);
        EXPECT_EQ(Get(expected.name, &value, &result), 0);
        value.resize(result);
        EXPECT_EQ(value, expected.value);
    }
    EXPECT_TRUE(Logged("pbOutput is NULL, property length query succeeded."));
    EXPECT_TRUE(Logged("NTE_BUFFER_TOO_SMALL: cbOutput is less than cbResult"));

    DWORD result = 0xFFFF;
    EXPECT_EQ(Get(WIDE("Use Context"), nullptr, &result), NTE_INTERNAL_ERROR);
    EXPECT_EQ(result, 0u) << "no context yet";
    platform::WideString sixtyFour(64, u'x'), sixtyFive(65, u'x');
    for (const platform::WideChar* unknown : {WIDE("impl type"), WIDE("SmartCardRootCertStore"),
                                              WIDE("SmartcardUserCertStore"), sixtyFour.c_str()}) {
        result = 0xFFFF;
        EXPECT_EQ(Get(unknown, nullptr, &result), NTE_NOT_SUPPORTED);
        EXPECT_EQ(result, 0u);
    }
    EXPECT_TRUE(Logged("NTE_NOT_SUPPORTED: pszProperty is not supported"));
    EXPECT_EQ(Get(sixtyFive.c_str(), nullptr, &result), NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged(
        "NTE_INVALID_PARAMETER: pszProperty length is greater than NCRYPT_MAX_PROPERTY_NAME"));
    EXPECT_EQ(Get(WIDE("Name"), nullptr, &result, NCRYPT_PERSIST_FLAG), NTE_BAD_FLAGS);
    EXPECT_TRUE(Logged("NTE_BAD_FLAGS: Only NCRYPT_SILENT_FLAG is an acceptable value"));
    EXPECT_EQ(Get(WIDE("Name"), nullptr, nullptr), NTE_INVALID_PARAMETER);
    EXPECT_EQ(Get(nullptr, nullptr, &result), NTE_INVALID_PARAMETER);
    EXPECT_EQ(table_->GetProviderProperty(0, WIDE("Name"), nullptr, 0, &result, 0),
              NTE_INVALID_HANDLE);

    for (const platform::WideChar* store :
         {WIDE("SmartcardRootCertStore"), WIDE("SmartCardUserCertStore")}) {
        ClearLog();
        EXPECT_EQ(Get(store, nullptr, &result), 0);
        EXPECT_EQ(result, 8u);
        EXPECT_EQ(TokenLog().find("InitializeObjectList"), std::string::npos)
            << "a length query builds nothing";
        Bytes four(4);
        EXPECT_EQ(Get(store, &four, &result), NTE_BUFFER_TOO_SMALL);
        EXPECT_EQ(result, 8u);
    }
}

TEST_F(ProviderProperties, WritablePropertiesAndTheReadOnlyOnes) {
    Bytes context(12, 0);
    std::memcpy(context.data(), WIDE("enrol"), 10);
    EXPECT_EQ(Set(WIDE("Use Context"), context), 0);
    Bytes value(64);
    DWORD result = 0;
    ASSERT_EQ(Get(WIDE("Use Context"), &value, &result), 0);
    value.resize(result);
    EXPECT_EQ(value, context);
    EXPECT_EQ(Set(WIDE("Use Context"), Bytes{'a', 0, 'b'}), 0) << "no terminator needed";
    ASSERT_EQ(Get(WIDE("Use Context"), nullptr, &result), 0);
    EXPECT_EQ(result, 6u);

    for (const platform::WideChar* readOnly :
         {WIDE("Impl Type"), WIDE("Max Name Length"), WIDE("Security Descr Support"),
          WIDE("Version"), WIDE("Name")})
        EXPECT_EQ(Set(readOnly, Dword(1)), NTE_NOT_SUPPORTED);
    EXPECT_TRUE(Logged("NTE_NOT_SUPPORTED: The specified property is read-only"));
    EXPECT_EQ(Set(WIDE("SmartCardGuid"), Bytes(8)), NTE_NOT_SUPPORTED);
    EXPECT_TRUE(Logged("NTE_NOT_SUPPORTED: pszProperty is not supported"));
    EXPECT_EQ(Set(WIDE("Use Context"), context, NCRYPT_PERSIST_ONLY_FLAG), NTE_NOT_SUPPORTED);
    EXPECT_TRUE(Logged("NTE_NOT_SUPPORTED: NCRYPT_PERSIST_ONLY_FLAG is currently not supported"));
    EXPECT_EQ(Set(WIDE("Use Context"), context, NCRYPT_PERSIST_FLAG), NTE_BAD_FLAGS);
    EXPECT_TRUE(Logged("NTE_BAD_FLAGS: Only NCRYPT_SILENT_FLAG is currently supported"));
    EXPECT_EQ(table_->SetProviderProperty(provider_, WIDE("Use Context"), nullptr, 2, 0),
              NTE_INVALID_PARAMETER);
    platform::WideString sixtyFive(65, u'x');
    EXPECT_EQ(Set(sixtyFive.c_str(), context), NTE_INVALID_PARAMETER);
    EXPECT_TRUE(
        Logged("NTE_INVALID_PARAMETER: The length of pszProperty is greater than "
               "NCRYPT_MAX_PROPERTY_NAME"));

    Provider().hWnd = 0x1122334455667788ULL;
    EXPECT_EQ(Set(WIDE("HWND Handle"), Dword(0xCAFEF00D), NCRYPT_SILENT_FLAG), 0);
    EXPECT_EQ(Provider().hWnd, 0x11223344CAFEF00DULL);
    EXPECT_EQ(Set(WIDE("HWND Handle"), Bytes(9)), NTE_INVALID_PARAMETER);
}

TEST_F(ProviderProperties, TheStoresSplitTheTokensCertificatesBySelfSigned) {
    {
        TokenObjects token(*g_pCryptoki);
        token.Generate(BytesOf("root"), BytesOf("root"));
        token.Generate(BytesOf("user"), BytesOf("user"));
        token.Generate(BytesOf("none"), BytesOf("none"));
    }
    StoreOn("root", kCertificateWithCommonName);
    StoreOn("user", kIssuedCertificate);

    EXPECT_EQ(StoreContents(WIDE("SmartcardRootCertStore")),
              std::vector<Bytes>{kCertificateWithCommonName});
    EXPECT_EQ(StoreContents(WIDE("SmartCardUserCertStore")),
              std::vector<Bytes>{kIssuedCertificate});
}
