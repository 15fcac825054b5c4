// The client's parsing that needs no token: the subject of req, and the
// provider's public key blob, where a wrong bound would read past the blob.
#include <gtest/gtest.h>

#include <vector>

#include "client_error.h"
#include "distinguished_name.h"
#include "rsa_public_key.h"

namespace {

std::vector<std::pair<std::string, std::string>> Pairs(const std::string& text) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (const NameAttribute& attribute : ParseDistinguishedName(text))
        pairs.emplace_back(attribute.type, attribute.value);
    return pairs;
}

std::vector<uint8_t> Blob(uint32_t magic, uint32_t exponentSize, uint32_t modulusSize,
                          const std::vector<uint8_t>& body) {
    std::vector<uint8_t> blob;
    for (uint32_t field : {magic, modulusSize * 8, exponentSize, modulusSize, 0u, 0u})
        for (int shift = 0; shift < 32; shift += 8) blob.push_back(uint8_t(field >> shift));
    blob.insert(blob.end(), body.begin(), body.end());
    return blob;
}

constexpr uint32_t kRsa1 = 0x31415352;

}  // namespace

TEST(DistinguishedName, BothFormsInTheOrderWrittenWithEscapesAndBlanks) {
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"CN", "Ana, Pérez"}, {"O", "R/D = Lab"}, {"C", "ES"}};
    EXPECT_EQ(Pairs("/CN=Ana, Pérez/O=R\\/D = Lab/C=ES"), expected);
    EXPECT_EQ(Pairs("CN=Ana\\, Pérez, O = R/D = Lab ,C=ES"), expected);
    // Blanks written with a backslash are kept, at either end.
    EXPECT_EQ(Pairs("CN=\\ x\\ , O=y"),
              (std::vector<std::pair<std::string, std::string>>{{"CN", " x "}, {"O", "y"}}));
    EXPECT_EQ(Pairs("CN=a\\\\"), (std::vector<std::pair<std::string, std::string>>{{"CN", "a\\"}}));
}

TEST(DistinguishedName, RefusesWhatIsInNeitherForm) {
    for (const char* text : {"", "/", "CN=x,", "/CN=x/", "CN", "CN=x,O", "=x", "CN=", "CN= ,O=y",
                             "CN=x\\", "/CN=x//O=y"})
        EXPECT_THROW(ParseDistinguishedName(text), UsageError) << "'" << text << "'";
}

TEST(RsaPublicBlob, ReadsExponentAndModulusWithoutLeadingZeros) {
    std::vector<uint8_t> blob = Blob(kRsa1, 3, 4, {0x01, 0x00, 0x01, 0x00, 0x80, 0x00, 0x01});
    std::optional<RsaPublicKey> key = ParseRsaPublicBlob(blob.data(), blob.size());
    ASSERT_TRUE(key);
    EXPECT_EQ(key->exponent, SecretBytes({0x01, 0x00, 0x01}));
    EXPECT_EQ(key->modulus, SecretBytes({0x80, 0x00, 0x01}));
    EXPECT_EQ(key->Bits(), 24u);
    // The same key encoded with other leading zeros compares equal.
    std::vector<uint8_t> padded = Blob(kRsa1, 4, 3, {0x00, 0x01, 0x00, 0x01, 0x80, 0x00, 0x01});
    EXPECT_TRUE(*ParseRsaPublicBlob(padded.data(), padded.size()) == *key);
    std::vector<uint8_t> other = Blob(kRsa1, 3, 3, {0x01, 0x00, 0x01, 0x80, 0x00, 0x03});
    EXPECT_FALSE(*ParseRsaPublicBlob(other.data(), other.size()) == *key);
}

TEST(RsaPublicBlob, RefusesBlobsThatAreNotPublicRsaOrClaimMoreThanTheyHold) {
    const std::vector<uint8_t> body = {0x01, 0x00, 0x01, 0xC1, 0x02};
    const std::vector<uint8_t> good = Blob(kRsa1, 3, 2, body);
    ASSERT_TRUE(ParseRsaPublicBlob(good.data(), good.size()));
    const std::vector<std::vector<uint8_t>> refused = {
        Blob(0x32415352, 3, 2, body),                       // "RSA2", a private blob
        Blob(kRsa1, 3, 3, body),                            // one byte short
        Blob(kRsa1, 0, 5, body),                            // no exponent
        Blob(kRsa1, 3, 0, body),                            // no modulus
        Blob(kRsa1, 3, 2, {0x00, 0x00, 0x00, 0xC1, 0x02}),  // an exponent of zero
        // Sizes whose sum wraps around in 32 bits.
        Blob(kRsa1, 0xFFFFFFFF, 6, body), Blob(kRsa1, 4, 0xFFFFFFFD, body),
        std::vector<uint8_t>(good.begin(), good.begin() + 20)};
    for (size_t i = 0; i < refused.size(); ++i)
        EXPECT_FALSE(ParseRsaPublicBlob(refused[i].data(), refused[i].size())) << "case " << i;
}
