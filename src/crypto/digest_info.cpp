#include "crypto/digest_info.h"

namespace digest_info {
namespace {

struct Row {
    size_t hashLength;
    std::span<const uint8_t> prefix;
};

constexpr Row kBareHashes[] = {
    {16, kMd5Prefix}, {20, kSha1Prefix}, {32, kSha256Prefix}, {64, kSha512Prefix}};

// Already framed: the four DigestInfo lengths and the TLS 1.0 MD5+SHA-1 pair.
constexpr size_t kTakenAsTheyAre[] = {34, 35, 51, 83, 36};

}  // namespace

std::optional<std::vector<uint8_t>> ForSigning(std::span<const uint8_t> input) {
    for (const Row& row : kBareHashes) {
        if (input.size() != row.hashLength) continue;
        std::vector<uint8_t> data(row.prefix.begin(), row.prefix.end());
        data.insert(data.end(), input.begin(), input.end());
        return data;
    }
    for (size_t length : kTakenAsTheyAre)
        if (input.size() == length) return std::vector<uint8_t>(input.begin(), input.end());
    return std::nullopt;
}

}  // namespace digest_info
