#include "token/random_key_id.h"

#include <algorithm>
#include <cstring>

namespace {

// A fair generator fails the test for 64 bytes about once in five draws;
// a hundred failures in a row mean the generator is broken.
constexpr int kMaxDraws = 100;

}  // namespace

CK_RV GenerateNonZeroId(CK_FUNCTION_LIST& token, CK_SESSION_HANDLE session, uint8_t* id,
                        size_t length) {
    for (int draw = 0; draw < kMaxDraws; ++draw) {
        std::memset(id, 0, length);
        CK_RV rv = token.C_GenerateRandom(session, id, length);
        if (rv != CKR_OK) return rv;
        if (std::find(id, id + length, 0) == id + length) return CKR_OK;
    }
    std::memset(id, 0, length);
    return CKR_FUNCTION_FAILED;
}
