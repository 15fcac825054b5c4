#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/certificates.h"
#include "platform/last_error.h"

extern "C" int QuelmcertNameFromC(const unsigned char* der, DWORD length, WCHAR* name,
                                  DWORD capacity);

namespace {

using Der = std::vector<unsigned char>;
using Attributes = std::vector<std::pair<const char*, std::string>>;

struct Fields {
    Fields(Attributes subject, Attributes issuer = {}, const char* serialHex = "01",
           const char* altName = nullptr)
        : subject(std::move(subject)),
          issuer(std::move(issuer)),
          serialHex(serialHex),
          altName(altName) {}
    Attributes subject;
    Attributes issuer;  // empty: self-issued
    const char* serialHex;
    const char* altName;           // an X509v3 subjectAltName value
    time_t notBefore = 981173106;  // 2001-02-03 04:05:06 UTC
    time_t notAfter = 2556143999;  // 2050-12-31 23:59:59 UTC, a GeneralizedTime
};

EVP_PKEY* Key() {
    static EVP_PKEY* key = EVP_RSA_gen(1024);
    return key;
}

X509_NAME* NameOf(const Attributes& attributes) {
    X509_NAME* name = X509_NAME_new();
    for (auto& [field, value] : attributes) {
        X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(value.c_str()), -1, -1,
                                   0);
    }
    return name;
}

Der Encode(X509* x) {
    unsigned char* out = nullptr;
    int length = i2d_X509(x, &out);
    Der der(out, out + length);
    OPENSSL_free(out);
    return der;
}

std::unique_ptr<X509, decltype(&X509_free)> Build(const Fields& fields) {
    std::unique_ptr<X509, decltype(&X509_free)> x(X509_new(), X509_free);
    X509_set_version(x.get(), 2);
    BIGNUM* serial = nullptr;
    BN_hex2bn(&serial, fields.serialHex);
    BN_to_ASN1_INTEGER(serial, X509_get_serialNumber(x.get()));
    BN_free(serial);
    X509_NAME* subject = NameOf(fields.subject);
    X509_NAME* issuer = NameOf(fields.issuer.empty() ? fields.subject : fields.issuer);
    X509_set_subject_name(x.get(), subject);
    X509_set_issuer_name(x.get(), issuer);
    X509_NAME_free(subject);
    X509_NAME_free(issuer);
    ASN1_TIME_set(X509_getm_notBefore(x.get()), fields.notBefore);
    ASN1_TIME_set(X509_getm_notAfter(x.get()), fields.notAfter);
    X509_set_pubkey(x.get(), Key());
    if (fields.altName) {
        X509_EXTENSION* extension =
            X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, fields.altName);
        X509_add_ext(x.get(), extension, -1);
        X509_EXTENSION_free(extension);
    }
    X509_sign(x.get(), Key(), EVP_sha256());
    // Key generation leaves notes in the queue that the tests of the
    // library's own queue handling must not see.
    ERR_clear_error();
    return x;
}

Der Make(const Fields& fields) {
    return Encode(Build(fields).get());
}

PCCERT_CONTEXT Create(const Der& der) {
    return CertCreateCertificateContext(X509_ASN_ENCODING, der.data(),
                                        static_cast<DWORD>(der.size()));
}

std::u16string SimpleName(PCCERT_CONTEXT context, DWORD flags = 0) {
    DWORD needed =
        CertGetNameStringW(context, CERT_NAME_SIMPLE_DISPLAY_TYPE, flags, nullptr, nullptr, 0);
    std::u16string name(needed, u'?');
    EXPECT_EQ(CertGetNameStringW(context, CERT_NAME_SIMPLE_DISPLAY_TYPE, flags, nullptr,
                                 name.data(), needed),
              needed);
    EXPECT_EQ(name.back(), u'\0');
    name.pop_back();
    return name;
}

Der Bytes(const CRYPT_INTEGER_BLOB& blob) {
    return Der(blob.pbData, blob.pbData + blob.cbData);
}

uint64_t Ticks(const FILETIME& time) {
    return (uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

std::vector<Der> Enumerate(HCERTSTORE store) {
    std::vector<Der> found;
    PCCERT_CONTEXT context = nullptr;
    while ((context = CertEnumCertificatesInStore(store, context))) {
        found.emplace_back(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded);
    }
    EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
    return found;
}

HCERTSTORE OpenMemoryStore() {
    return CertOpenStore(CERT_STORE_PROV_MEMORY, 0, nullptr, 0, nullptr);
}

}  // namespace

TEST(CertificateLayer, CertificateInfoHoldsWhatOpenSslReads) {
    // 0x80 needs a leading zero octet in DER to stay positive.
    for (auto [serialHex, reversed] :
         {std::pair<const char*, Der>{"0102", {0x02, 0x01}}, {"80", {0x80, 0x00}}}) {
        Fields fields{{{"CN", "Leaf"}},
                      {{"CN", "Issuing CA"}, {"O", "Velmora"}},
                      serialHex,
                      "email:leaf@example.com"};
        auto x = Build(fields);
        Der der = Encode(x.get());
        PCCERT_CONTEXT context = Create(der);
        ASSERT_NE(context, nullptr) << serialHex;
        EXPECT_EQ(Der(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded),
                  der);
        EXPECT_NE(context->pbCertEncoded, der.data()) << "the context keeps its own copy";
        EXPECT_EQ(context->hCertStore, nullptr);
        const CERT_INFO& info = *context->pCertInfo;
        EXPECT_EQ(info.dwVersion, DWORD{CERT_V3});
        EXPECT_EQ(Bytes(info.SerialNumber), reversed) << serialHex;
        EXPECT_STREQ(info.SignatureAlgorithm.pszObjId, "1.2.840.113549.1.1.11");
        EXPECT_EQ(Bytes(info.SignatureAlgorithm.Parameters), (Der{0x05, 0x00}));

        for (auto [blob, name] : {std::pair{info.Issuer, X509_get_issuer_name(x.get())},
                                  {info.Subject, X509_get_subject_name(x.get())}}) {
            unsigned char* encoded = nullptr;
            int length = i2d_X509_NAME(name, &encoded);
            EXPECT_EQ(Bytes(blob), Der(encoded, encoded + length));
            OPENSSL_free(encoded);
        }
        // Seconds between 1601 and 1970, then 100-ns units.
        EXPECT_EQ(Ticks(info.NotBefore), (uint64_t(fields.notBefore) + 11644473600u) * 10000000u);
        EXPECT_EQ(Ticks(info.NotAfter), (uint64_t(fields.notAfter) + 11644473600u) * 10000000u);

        EXPECT_STREQ(info.SubjectPublicKeyInfo.Algorithm.pszObjId, "1.2.840.113549.1.1.1");
        unsigned char* key = nullptr;
        int keyLength = i2d_PublicKey(Key(), &key);
        const CRYPT_BIT_BLOB& bits = info.SubjectPublicKeyInfo.PublicKey;
        EXPECT_EQ(Der(bits.pbData, bits.pbData + bits.cbData), Der(key, key + keyLength));
        EXPECT_EQ(bits.cUnusedBits, 0u);
        OPENSSL_free(key);

        ASSERT_EQ(info.cExtension, 1u);
        EXPECT_STREQ(info.rgExtension[0].pszObjId, "2.5.29.17");
        EXPECT_EQ(info.rgExtension[0].fCritical, FALSE);
        EXPECT_TRUE(CertFreeCertificateContext(context));
    }
}

TEST(CertificateLayer, RefusesAnythingButExactlyOneCertificate) {
    Der der = Make({{{"CN", "x"}}});
    struct Case {
        const char* what;
        DWORD encoding;
        Der bytes;
        DWORD error;
    };
    Der trailing = der;
    trailing.push_back(0);
    std::vector<Case> cases = {
        {"no X.509 encoding", PKCS_7_ASN_ENCODING, der, E_INVALIDARG},
        {"empty", X509_ASN_ENCODING, {}, E_INVALIDARG},
        {"an INTEGER", X509_ASN_ENCODING, {0x02, 0x01, 0x05}, CRYPT_E_ASN1_BADTAG},
        {"a SEQUENCE of an INTEGER",
         X509_ASN_ENCODING,
         {0x30, 0x03, 0x02, 0x01, 0x05},
         CRYPT_E_ASN1_BADTAG},
        {"header cut", X509_ASN_ENCODING, Der(der.begin(), der.begin() + 2), CRYPT_E_ASN1_EOD},
        {"body cut", X509_ASN_ENCODING, Der(der.begin(), der.end() - 1), CRYPT_E_ASN1_EOD},
        {"trailing byte", X509_ASN_ENCODING, trailing, CRYPT_E_ASN1_CORRUPT},
    };
    for (const Case& c : cases) {
        SetLastError(0);
        EXPECT_EQ(CertCreateCertificateContext(c.encoding, c.bytes.data(),
                                               static_cast<DWORD>(c.bytes.size())),
                  nullptr)
            << c.what;
        EXPECT_EQ(GetLastError(), c.error) << c.what;
        EXPECT_EQ(ERR_peek_error(), 0u) << c.what << ": OpenSSL's error queue is the caller's";
    }
    ERR_raise(ERR_LIB_USER, 42);
    EXPECT_EQ(Create(Der(der.begin(), der.end() - 1)), nullptr);
    EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 42) << "the caller's error stays";
    EXPECT_EQ(ERR_get_error(), 0u);
    EXPECT_EQ(CertCreateCertificateContext(X509_ASN_ENCODING, nullptr, 10), nullptr);
    PCCERT_CONTEXT both = CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING,
                                                       der.data(), DWORD(der.size()));
    ASSERT_NE(both, nullptr);
    EXPECT_EQ(both->dwCertEncodingType, DWORD{X509_ASN_ENCODING | PKCS_7_ASN_ENCODING});
    CertFreeCertificateContext(both);
}

TEST(CertificateLayer, SimpleDisplayNameFollowsTheWindowsOrderOfPreference) {
    struct Case {
        Attributes subject;
        const char* altName;
        std::u16string expected;
    };
    std::vector<Case> cases = {
        {{{"C", "ES"}, {"O", "Org"}, {"OU", "Unit"}, {"CN", "Common"}}, nullptr, u"Common"},
        {{{"C", "ES"}, {"O", "Org"}, {"OU", "Unit"}, {"OU", "Second"}}, nullptr, u"Unit"},
        {{{"C", "ES"}, {"emailAddress", "a@b.es"}, {"O", "Org"}}, nullptr, u"Org"},
        {{{"C", "ES"}, {"emailAddress", "a@b.es"}}, "email:alt@b.es", u"a@b.es"},
        {{{"C", "ES"}, {"L", "Madrid"}}, "DNS:host.es,email:alt@b.es", u"alt@b.es"},
        {{{"C", "ES"}, {"L", "Madrid"}}, "DNS:host.es", u"ES"},
        {{}, nullptr, u""},
        {{{"CN",
           "Pe\xC3\xB1"
           "a \xF0\x9D\x84\x9E"}},
         nullptr,
         {u'P', u'e', 0x00F1, u'a', u' ', 0xD834, 0xDD1E}},
    };
    for (const Case& c : cases) {
        Fields fields(c.subject, {{"CN", "Issuer"}}, "01", c.altName);
        PCCERT_CONTEXT context = Create(Make(fields));
        ASSERT_NE(context, nullptr);
        EXPECT_EQ(SimpleName(context), c.expected);
        EXPECT_EQ(SimpleName(context, CERT_NAME_ISSUER_FLAG), u"Issuer");
        CertFreeCertificateContext(context);
    }
}

TEST(CertificateLayer, NameBufferSizesAsWindowsHandlesThem) {
    PCCERT_CONTEXT context = Create(Make({{{"CN", "Peña"}}}));
    ASSERT_NE(context, nullptr);
    WCHAR buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), u'#');
    auto Get = [&](DWORD capacity, DWORD type = CERT_NAME_SIMPLE_DISPLAY_TYPE) {
        return CertGetNameStringW(context, type, 0, nullptr, buffer, capacity);
    };
    EXPECT_EQ(CertGetNameStringW(context, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, nullptr, 0),
              5u);
    EXPECT_EQ(Get(0), 5u);
    EXPECT_EQ(buffer[0], u'#') << "a zero count writes nothing";
    EXPECT_EQ(Get(8), 5u);
    EXPECT_EQ(std::u16string(buffer), u"Peña");
    EXPECT_EQ(buffer[5], u'#');
    EXPECT_EQ(Get(3), 3u);
    EXPECT_EQ(std::u16string(buffer), u"Pe");
    EXPECT_EQ(Get(1), 1u);
    EXPECT_EQ(buffer[0], u'\0');
    EXPECT_EQ(Get(8, 1), 1u) << "other name types give the empty string";
    EXPECT_EQ(buffer[0], u'\0');
    CertFreeCertificateContext(context);
}

TEST(CertificateLayer, CompareCertificateNameComparesTheEncodings) {
    PCCERT_CONTEXT ca = Create(Make({{{"C", "ES"}, {"CN", "CA"}}}));
    PCCERT_CONTEXT leaf = Create(Make({{{"CN", "Leaf"}}, {{"C", "ES"}, {"CN", "CA"}}}));
    PCCERT_CONTEXT reordered = Create(Make({{{"CN", "CA"}, {"C", "ES"}}}));
    CERT_NAME_BLOB* caName = &ca->pCertInfo->Subject;
    EXPECT_TRUE(CertCompareCertificateName(X509_ASN_ENCODING, caName, &leaf->pCertInfo->Issuer));
    EXPECT_FALSE(CertCompareCertificateName(X509_ASN_ENCODING, caName, &leaf->pCertInfo->Subject));
    EXPECT_FALSE(
        CertCompareCertificateName(X509_ASN_ENCODING, caName, &reordered->pCertInfo->Subject));
    for (PCCERT_CONTEXT c : {ca, leaf, reordered}) CertFreeCertificateContext(c);
}

TEST(CertificateLayer, StoreAddDispositions) {
    HCERTSTORE store = OpenMemoryStore();
    ASSERT_NE(store, nullptr);
    Der first = Make({{{"CN", "First"}}, {{"CN", "CA"}}, "10"});
    Der sameSerial = Make({{{"CN", "Renewed"}}, {{"CN", "CA"}}, "10"});
    Der other = Make({{{"CN", "Other"}}, {{"CN", "CA"}}, "11"});
    Fields later{{{"CN", "Later"}}, {{"CN", "CA"}}, "10"};
    later.notBefore += 86400;
    Der newer = Make(later);

    PCCERT_CONTEXT source = Create(first);
    PCCERT_CONTEXT added = nullptr;
    ASSERT_TRUE(CertAddCertificateContextToStore(store, source, CERT_STORE_ADD_NEW, &added));
    EXPECT_NE(added, source) << "the store holds a context of its own";
    EXPECT_EQ(added->hCertStore, store);
    EXPECT_EQ(source->hCertStore, nullptr);
    CertFreeCertificateContext(source);

    auto Add = [&](const Der& der, DWORD disposition, PCCERT_CONTEXT* out = nullptr) {
        PCCERT_CONTEXT context = Create(der);
        BOOL ok = CertAddCertificateContextToStore(store, context, disposition, out);
        CertFreeCertificateContext(context);
        return ok;
    };
    PCCERT_CONTEXT refused = source;
    for (const Der* duplicate : {&first, &sameSerial}) {
        SetLastError(0);
        EXPECT_FALSE(Add(*duplicate, CERT_STORE_ADD_NEW, &refused));
        EXPECT_EQ(GetLastError(), CRYPT_E_EXISTS);
        EXPECT_EQ(refused, nullptr);
    }
    EXPECT_TRUE(Add(other, CERT_STORE_ADD_NEW));
    PCCERT_CONTEXT existing = nullptr;
    EXPECT_TRUE(Add(sameSerial, CERT_STORE_ADD_USE_EXISTING, &existing));
    EXPECT_EQ(existing, added);
    CertFreeCertificateContext(existing);
    EXPECT_EQ(Enumerate(store), (std::vector<Der>{first, other}));

    EXPECT_TRUE(Add(sameSerial, CERT_STORE_ADD_REPLACE_EXISTING));
    EXPECT_EQ(Enumerate(store), (std::vector<Der>{sameSerial, other})) << "replaced in place";
    EXPECT_EQ(SimpleName(added), u"First") << "a replaced context stays valid for its holder";
    CertFreeCertificateContext(added);

    EXPECT_FALSE(Add(sameSerial, CERT_STORE_ADD_NEWER));
    EXPECT_EQ(GetLastError(), CRYPT_E_EXISTS);
    EXPECT_TRUE(Add(newer, CERT_STORE_ADD_NEWER));
    EXPECT_TRUE(Add(other, CERT_STORE_ADD_ALWAYS));
    EXPECT_EQ(Enumerate(store), (std::vector<Der>{newer, other, other}));
    EXPECT_FALSE(Add(other, 99));
    EXPECT_EQ(GetLastError(), E_INVALIDARG);
    EXPECT_TRUE(CertCloseStore(store, CERT_CLOSE_STORE_CHECK_FLAG));
}

TEST(CertificateLayer, StoreDeleteEnumerateAndClose) {
    HCERTSTORE store = OpenMemoryStore();
    std::vector<Der> certificates;
    for (const char* serial : {"1", "2", "3"}) {
        certificates.push_back(Make({{{"CN", serial}}, {}, serial}));
        PCCERT_CONTEXT context = Create(certificates.back());
        ASSERT_TRUE(CertAddCertificateContextToStore(store, context, CERT_STORE_ADD_NEW, nullptr));
        CertFreeCertificateContext(context);
    }
    // Deleting the current context while enumerating: the walk goes on with
    // the one after it.
    PCCERT_CONTEXT current = CertEnumCertificatesInStore(store, nullptr);
    PCCERT_CONTEXT held = CertDuplicateCertificateContext(current);
    EXPECT_EQ(held, current);
    EXPECT_TRUE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(current)));
    current = CertEnumCertificatesInStore(store, current);
    ASSERT_NE(current, nullptr);
    EXPECT_EQ(SimpleName(current), u"2");
    CertFreeCertificateContext(current);
    EXPECT_EQ(Enumerate(store), (std::vector<Der>{certificates[1], certificates[2]}));
    EXPECT_EQ(SimpleName(held), u"1") << "a deleted context lives while it is held";
    EXPECT_TRUE(CertDeleteCertificateFromStore(held)) << "deleting twice";
    EXPECT_EQ(Enumerate(store).size(), 2u);

    EXPECT_TRUE(CertDeleteCertificateFromStore(Create(certificates[0]))) << "in no store";
    EXPECT_FALSE(CertDeleteCertificateFromStore(nullptr));

    PCCERT_CONTEXT kept = CertEnumCertificatesInStore(store, nullptr);
    EXPECT_FALSE(CertCloseStore(store, CERT_CLOSE_STORE_CHECK_FLAG));
    EXPECT_EQ(GetLastError(), CRYPT_E_PENDING_CLOSE);
    EXPECT_EQ(kept->hCertStore, store);
    EXPECT_EQ(SimpleName(kept), u"2") << "contexts outlive their closed store";
    EXPECT_TRUE(CertFreeCertificateContext(kept));
    EXPECT_TRUE(CertCloseStore(nullptr, 0));
    EXPECT_TRUE(CertFreeCertificateContext(nullptr));
}

TEST(CertificateLayer, OnlyTheMemoryProviderOpens) {
    for (LPCSTR provider : {CERT_STORE_PROV_MEMORY, "Memory", "memory"}) {
        HCERTSTORE store = CertOpenStore(provider, X509_ASN_ENCODING, nullptr, 0, nullptr);
        EXPECT_NE(store, nullptr) << reinterpret_cast<uintptr_t>(provider);
        CertCloseStore(store, 0);
    }
    for (LPCSTR provider : {reinterpret_cast<LPCSTR>(10), "System", "File"}) {
        EXPECT_EQ(CertOpenStore(provider, 0, nullptr, 0, nullptr), nullptr);
        EXPECT_EQ(GetLastError(), ERROR_CALL_NOT_IMPLEMENTED);
    }
    EXPECT_EQ(CertOpenStore(nullptr, 0, nullptr, 0, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), E_INVALIDARG);
}

// The provider hands out contexts on one thread while a monitor deletes and
// adds them on another.
TEST(CertificateLayer, ContextsAndStoresAcrossThreads) {
    HCERTSTORE store = OpenMemoryStore();
    std::vector<PCCERT_CONTEXT> sources;
    for (const char* serial : {"1", "2", "3", "4"}) {
        sources.push_back(Create(Make({{{"CN", serial}}, {}, serial})));
        CertAddCertificateContextToStore(store, sources.back(), CERT_STORE_ADD_NEW, nullptr);
    }
    std::atomic<bool> done{false};
    std::thread monitor([&] {
        for (int round = 0; round < 2000; ++round) {
            PCCERT_CONTEXT first = CertEnumCertificatesInStore(store, nullptr);
            if (first) CertDeleteCertificateFromStore(first);
            CertAddCertificateContextToStore(store, sources[round % 4], CERT_STORE_ADD_USE_EXISTING,
                                             nullptr);
        }
        done = true;
    });
    size_t seen = 0;
    do {
        PCCERT_CONTEXT context = nullptr;
        while ((context = CertEnumCertificatesInStore(store, context))) {
            PCCERT_CONTEXT copy = CertDuplicateCertificateContext(context);
            seen += SimpleName(copy).size();
            CertFreeCertificateContext(copy);
        }
    } while (!done);
    monitor.join();
    EXPECT_GT(seen, 0u);
    for (PCCERT_CONTEXT source : sources) CertFreeCertificateContext(source);
    EXPECT_TRUE(CertCloseStore(store, CERT_CLOSE_STORE_CHECK_FLAG));
}

TEST(CertificateLayer, OneLastErrorPerThreadForEveryModule) {
    platform::SetLastError(5);
    EXPECT_EQ(GetLastError(), 5u);
    SetLastError(7);
    EXPECT_EQ(platform::GetLastError(), 7u);
    std::thread([] {
        EXPECT_EQ(GetLastError(), 0u);
        SetLastError(9);
    }).join();
    EXPECT_EQ(GetLastError(), 7u);
}

TEST(CertificateLayer, PublicHeaderWorksFromC) {
    Der der = Make({{{"O", "From C"}}});
    WCHAR name[16];
    EXPECT_EQ(QuelmcertNameFromC(der.data(), DWORD(der.size()), name, 16), 7);
    EXPECT_EQ(std::u16string(name), u"From C");
    EXPECT_EQ(QuelmcertNameFromC(der.data(), 3, name, 16), -1);
}
