#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

#include "pin/login.h"
#include "pin/pin_manager.h"
#include "platform/secure_zero.h"
#include "provider/provider_context.h"
#include "support/fresh_provider_state.h"
#include "support/mock_module.h"
#include "ui/scripted_toolkit.h"

namespace {

constexpr size_t kPinLength = 24;

// Produces the PIN one character at a time from a seed, so that the test
// never holds the whole PIN: it can only recompute it.
class PinSequence {
public:
    explicit PinSequence(uint64_t seed) : state_(seed | 1) {}
    char Next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        static constexpr char kAlphabet[] =
            "ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz23456789";
        return kAlphabet[state_ % (sizeof kAlphabet - 1)];
    }

private:
    uint64_t state_;
};

// Counts the places in this process's readable memory where the PIN's bytes
// stand in a row.
int CountPinCopies(uint64_t seed) {
    std::ifstream maps("/proc/self/maps");
    int mem = open("/proc/self/mem", O_RDONLY);
    char first = PinSequence(seed).Next();
    int found = 0;
    std::string line;
    // Pages of its own, left out of the search: read into itself, the
    // buffer would repeat whatever it held before.
    const size_t chunkSize = 1 << 20;
    void* mapped =
        mmap(nullptr, chunkSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) return -1;
    auto* chunk = static_cast<unsigned char*>(mapped);
    const auto chunkStart = reinterpret_cast<unsigned long>(chunk);
    auto search = [&](unsigned long start, unsigned long end) {
        for (unsigned long at = start; at < end; at += chunkSize - kPinLength) {
            size_t want = std::min<unsigned long>(chunkSize, end - at);
            ssize_t got = pread(mem, chunk, want, static_cast<off_t>(at));
            if (got <= 0) break;
            for (ssize_t i = 0; i + static_cast<ssize_t>(kPinLength) <= got; ++i) {
                if (chunk[i] != static_cast<unsigned char>(first)) continue;
                PinSequence expected(seed);
                size_t matched = 0;
                while (matched < kPinLength && chunk[i + matched] == expected.Next()) ++matched;
                found += matched == kPinLength;
            }
            if (static_cast<size_t>(got) < want) break;
        }
    };
    while (std::getline(maps, line)) {
        unsigned long start = 0, end = 0;
        char perms[5] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &start, &end, perms) != 3) continue;
        if (perms[0] != 'r' || line.find("[vvar]") != std::string::npos) continue;
        if (start <= chunkStart && chunkStart < end) {
            search(start, chunkStart);
            search(chunkStart + chunkSize, end);
        } else {
            search(start, end);
        }
    }
    munmap(mapped, chunkSize);
    close(mem);
    return found;
}

}  // namespace

TEST(PinSecrets, NoPlainPinStaysInMemoryAfterALoginThatCachedIt) {
    TempDir dir;
    MockModule mock;
    mock.AddSlot("Reader", CK_TRUE);
    const uint64_t seed = std::random_device()() * 0x9E3779B97F4A7C15ull + 1;

    auto script = std::make_shared<DialogScript>();
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> digest(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr);
    PinSequence pin(seed);
    for (size_t i = 0; i < kPinLength; ++i) {
        char c = pin.Next();
        EVP_DigestUpdate(digest.get(), &c, 1);
        platform::WideChar typed[] = {static_cast<platform::WideChar>(c), 0};
        script->Type(typed);
        c = 0;
    }
    unsigned char pinDigest[32];
    EVP_DigestFinal_ex(digest.get(), pinDigest, nullptr);
    mock.SetPinDigest(pinDigest);
    script->ClickOk();

    {
        FreshProviderState state(
            dir,
            std::string(RegistryFile::kProviderKey) +
                "\"Aliases\"=hex(7):56,00,65,00,6c,00,6d,00,6f,00,72,00,61,00,20,00,4b,00,53,00,50,"
                "00,20,00,76,00,34,00,2e,00,35,00,00,00,00,00\n",
            MockModule::kPath);
        std::unique_ptr<PinManager> pinManager(new PinManager());
        PinManager* saved = std::exchange(g_pPinManager, pinManager.get());
        ScriptedToolkit::Install(script);
        NCRYPT_PROV_HANDLE provider = 0;
        ASSERT_EQ(QUELMKSPOpenProvider(&provider, WIDE("Velmora KSP v4.5"), NCRYPT_SILENT_FLAG), 0);
        ASSERT_EQ(Login(reinterpret_cast<QUELMKSP_PROVIDER*>(provider)), 0);
        ASSERT_EQ(g_pPinManager->pool.size(), 1u) << "cached";
        ScriptedToolkit::Install(nullptr);
        script.reset();
        ASSERT_EQ(Login(reinterpret_cast<QUELMKSP_PROVIDER*>(provider)), 0) << "from the cache";

        EXPECT_EQ(CountPinCopies(seed), 0);

        // The search itself works: it finds a copy put there on purpose.
        std::vector<char> planted(kPinLength);
        PinSequence again(seed);
        for (char& c : planted) c = again.Next();
        EXPECT_EQ(CountPinCopies(seed), 1);
        platform::SecureZero(planted.data(), planted.size());
        EXPECT_EQ(QUELMKSPFreeProvider(provider), 0);
        SetDialogToolkitFactory(nullptr);
        g_pPinManager = saved;
    }
}
