// The provider, called through its function table as the router calls it,
// beside the raw PKCS#11 calls that do the same work on the same token and
// key. Every benchmark runs its contenders in turn within each iteration,
// so that both see the same machine, and reports their times and ratio as
// counters.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench_token.h"

namespace {

using bench::World;
using Clock = std::chrono::steady_clock;

// SHA-256 of nothing, and the DigestInfo the provider wraps it in.
constexpr uint8_t kHash[32] = {0xe3, 0xb0, 0xc4, 0x42, 0x98, 0xfc, 0x1c, 0x14, 0x9a, 0xfb, 0xf4,
                               0xc8, 0x99, 0x6f, 0xb9, 0x24, 0x27, 0xae, 0x41, 0xe4, 0x64, 0x9b,
                               0x93, 0x4c, 0xa4, 0x95, 0x99, 0x1b, 0x78, 0x52, 0xb8, 0x55};
constexpr uint8_t kSha256Prefix[19] = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                       0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
constexpr size_t kSignatureBytes = World::kBits / 8;

std::vector<uint8_t> DigestInfo() {
    std::vector<uint8_t> data(std::begin(kSha256Prefix), std::end(kSha256Prefix));
    data.insert(data.end(), std::begin(kHash), std::end(kHash));
    return data;
}

// One contender: a name for its counter and the work of one turn, which
// returns false when it failed.
struct Contender {
    const char* name;
    std::function<bool()> turn;
};

// Runs the contenders in turn, the order rotating with each iteration, and
// reports each one's mean time in microseconds and each one's ratio to the
// first.
void Race(benchmark::State& state, std::vector<Contender> contenders) {
    std::vector<double> seconds(contenders.size(), 0.0);
    size_t round = 0;
    for (auto _ : state) {
        double iteration = 0;
        for (size_t k = 0; k < contenders.size(); ++k) {
            size_t i = (round + k) % contenders.size();
            auto start = Clock::now();
            bool ok = contenders[i].turn();
            double took = std::chrono::duration<double>(Clock::now() - start).count();
            if (!ok) {
                state.SkipWithError((std::string(contenders[i].name) + " failed").c_str());
                return;
            }
            seconds[i] += took;
            iteration += took;
        }
        ++round;
        state.SetIterationTime(iteration);
    }
    for (size_t i = 0; i < contenders.size(); ++i) {
        state.counters[std::string(contenders[i].name) + "_us"] =
            benchmark::Counter(seconds[i] * 1e6, benchmark::Counter::kAvgIterations);
        if (i > 0 && seconds[i] > 0)
            state.counters[std::string("ratio_") + contenders[i].name] = seconds[0] / seconds[i];
    }
}

// A provider opened silently on the token, with a key open in it.
class OpenedKey {
public:
    explicit OpenedKey(const bench::ProviderCopy& copy, int index = 0) : table_(*copy.table) {
        if (table_.OpenProvider(&provider_, u"Velmora KSP v4.5", NCRYPT_SILENT_FLAG) == 0)
            table_.OpenKey(provider_, &key_, World::KeyName(index).c_str(), 0, 0);
    }
    ~OpenedKey() {
        if (key_) table_.FreeKey(provider_, key_);
        if (provider_) table_.FreeProvider(provider_);
    }
    bool ok() const { return key_ != 0; }

    bool Sign() {
        uint8_t signature[kSignatureBytes];
        DWORD length = 0;
        return table_.SignHash(provider_, key_, nullptr, const_cast<uint8_t*>(kHash), sizeof kHash,
                               signature, sizeof signature, &length, 0) == 0 &&
               length == kSignatureBytes;
    }
    bool QueryThenSign() {
        DWORD length = 0;
        if (table_.SignHash(provider_, key_, nullptr, const_cast<uint8_t*>(kHash), sizeof kHash,
                            nullptr, 0, &length, 0) != 0 ||
            length != kSignatureBytes)
            return false;
        return Sign();
    }

    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table_;
    NCRYPT_PROV_HANDLE provider_ = 0;
    NCRYPT_KEY_HANDLE key_ = 0;
};

// C_SignInit and C_Sign with the private key of pair 0 on a raw module.
class RawSigner {
public:
    RawSigner(const bench::RawToken& token, CK_SESSION_HANDLE session)
        : token_(*token.functions),
          session_(session),
          key_(token.FindById(session, CKO_PRIVATE_KEY, World::KeyId(0))),
          data_(DigestInfo()) {}

    bool Sign() {
        CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
        uint8_t signature[kSignatureBytes];
        CK_ULONG length = sizeof signature;
        return token_.C_SignInit(session_, &mechanism, key_) == CKR_OK &&
               token_.C_Sign(session_, data_.data(), data_.size(), signature, &length) == CKR_OK;
    }

private:
    CK_FUNCTION_LIST& token_;
    CK_SESSION_HANDLE session_;
    CK_OBJECT_HANDLE key_;
    std::vector<uint8_t> data_;
};

// The token calls the provider's list build makes: per key class a counting
// and a fetching search, then three attributes of every object.
bool RawListBuild(const bench::RawToken& token) {
    CK_FUNCTION_LIST& f = *token.functions;
    CK_SESSION_HANDLE s = token.session;
    for (CK_OBJECT_CLASS objectClass : {CKO_PUBLIC_KEY, CKO_PRIVATE_KEY}) {
        CK_BBOOL yes = CK_TRUE;
        CK_ATTRIBUTE search[] = {{CKA_TOKEN, &yes, 1},
                                 {CKA_CLASS, &objectClass, sizeof objectClass}};
        CK_ULONG count = 0;
        if (f.C_FindObjectsInit(s, search, 2) != CKR_OK ||
            f.C_FindObjects(s, nullptr, 1000, &count) != CKR_OK ||
            f.C_FindObjectsFinal(s) != CKR_OK)
            return false;
        std::vector<CK_OBJECT_HANDLE> objects(count);
        CK_ULONG fetched = 0;
        if (f.C_FindObjectsInit(s, search, 2) != CKR_OK ||
            f.C_FindObjects(s, objects.data(), count, &fetched) != CKR_OK ||
            f.C_FindObjectsFinal(s) != CKR_OK)
            return false;
        for (CK_ULONG i = 0; i < fetched; ++i) {
            uint8_t id[200], label[200];
            CK_ULONG bits = 0;
            CK_ATTRIBUTE read[] = {{CKA_ID, id, sizeof id},
                                   {CKA_LABEL, label, sizeof label},
                                   {CKA_MODULUS_BITS, &bits, sizeof bits}};
            if (f.C_GetAttributeValue(s, objects[i], read, 3) != CKR_OK) return false;
        }
    }
    return true;
}

bool ProviderEnumKeys(const bench::ProviderCopy& copy, NCRYPT_PROV_HANDLE provider, int expected) {
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table = *copy.table;
    void* state = nullptr;
    NCryptKeyName* name = nullptr;
    int listed = 0;
    SECURITY_STATUS status;
    while ((status = table.EnumKeys(provider, nullptr, &name, &state, 0)) == 0) {
        table.FreeBuffer(name);
        ++listed;
    }
    if (state) table.FreeBuffer(state);
    return status == NTE_NO_MORE_ITEMS && listed == expected;
}

void BM_SignHash(benchmark::State& state) {
    World& world = World::Get();
    OpenedKey provider(world.provider());
    RawSigner middleware(world.middleware(), world.middleware().session);
    RawSigner softhsm(world.softhsm(), world.softhsm().session);
    if (!provider.ok()) return state.SkipWithError("OpenKey failed");
    Race(state, {{"provider", [&] { return provider.Sign(); }},
                 {"middleware", [&] { return middleware.Sign(); }},
                 {"softhsm", [&] { return softhsm.Sign(); }}});
}

void BM_QueryThenSign(benchmark::State& state) {
    World& world = World::Get();
    OpenedKey provider(world.provider());
    RawSigner middleware(world.middleware(), world.middleware().session);
    if (!provider.ok()) return state.SkipWithError("OpenKey failed");
    Race(state, {{"provider", [&] { return provider.QueryThenSign(); }},
                 {"middleware", [&] { return middleware.Sign(); }}});
}

void BM_LoggingOnOff(benchmark::State& state) {
    World& world = World::Get();
    OpenedKey quiet(world.provider());
    world.UseLoggingRegistry(true);
    OpenedKey logging(world.loggingProvider());
    world.UseLoggingRegistry(false);
    if (!quiet.ok() || !logging.ok()) return state.SkipWithError("OpenKey failed");
    // Each copy reads the registry file of its own setting.
    Race(state, {{"logging_on",
                  [&] {
                      world.UseLoggingRegistry(true);
                      bool ok = logging.Sign();
                      world.UseLoggingRegistry(false);
                      return ok;
                  }},
                 {"logging_off", [&] { return quiet.Sign(); }}});
    auto on = state.counters.find("logging_on_us");
    auto off = state.counters.find("logging_off_us");
    if (on != state.counters.end() && off != state.counters.end())
        state.counters["added_us"] =
            on->second.value / state.iterations() - off->second.value / state.iterations();
}

// Signatures per second with one thread, then with two, each thread with a
// provider (or a raw session) of its own.
double Throughput(int threads, double seconds, const std::function<std::function<bool()>()>& make) {
    std::atomic<bool> stop{false};
    std::atomic<long> done{0};
    std::atomic<bool> failed{false};
    std::vector<std::function<bool()>> workers;
    for (int i = 0; i < threads; ++i) workers.push_back(make());
    std::vector<std::thread> running;
    auto start = Clock::now();
    for (int i = 0; i < threads; ++i)
        running.emplace_back([&, i] {
            while (!stop.load(std::memory_order_relaxed)) {
                if (!workers[i]()) {
                    failed = true;
                    return;
                }
                done.fetch_add(1, std::memory_order_relaxed);
            }
        });
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    stop = true;
    for (std::thread& t : running) t.join();
    double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    workers.clear();
    return failed ? -1 : done / elapsed;
}

void BM_Threads(benchmark::State& state) {
    World& world = World::Get();
    double seconds = world.quick() ? 0.02 : 1.0;
    auto provider = [&] {
        auto key = std::make_shared<OpenedKey>(world.provider());
        return std::function<bool()>([key] { return key->Sign(); });
    };
    auto softhsm = [&] {
        auto session = std::make_shared<CK_SESSION_HANDLE>(world.softhsm().OpenSession());
        auto signer = std::make_shared<RawSigner>(world.softhsm(), *session);
        return std::function<bool()>([signer, session] { return signer->Sign(); });
    };
    double p1 = 0, p2 = 0, s1 = 0, s2 = 0;
    for (auto _ : state) {
        p1 = Throughput(1, seconds, provider);
        s1 = Throughput(1, seconds, softhsm);
        p2 = Throughput(2, seconds, provider);
        s2 = Throughput(2, seconds, softhsm);
        if (p1 <= 0 || p2 <= 0 || s1 <= 0 || s2 <= 0) return state.SkipWithError("signing failed");
    }
    state.counters["provider_per_s_1"] = p1;
    state.counters["provider_per_s_2"] = p2;
    state.counters["softhsm_per_s_1"] = s1;
    state.counters["softhsm_per_s_2"] = s2;
    state.counters["speedup_provider"] = p2 / p1;
    state.counters["speedup_softhsm"] = s2 / s1;
}

void BM_OpenFreeProvider(benchmark::State& state) {
    World& world = World::Get();
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table = *world.provider().table;
    const bench::RawToken& raw = world.middleware();
    Race(state, {{"provider",
                  [&] {
                      NCRYPT_PROV_HANDLE provider = 0;
                      return table.OpenProvider(&provider, u"Velmora KSP v4.5",
                                                NCRYPT_SILENT_FLAG) == 0 &&
                             table.FreeProvider(provider) == 0;
                  }},
                 {"middleware", [&] {
                      CK_FUNCTION_LIST& f = *raw.functions;
                      CK_ULONG count = 0;
                      CK_SLOT_ID slots[8];
                      CK_SLOT_INFO info;
                      CK_SESSION_HANDLE session = 0;
                      if (f.C_GetSlotList(CK_TRUE, nullptr, &count) != CKR_OK || count > 8 ||
                          f.C_GetSlotList(CK_TRUE, slots, &count) != CKR_OK ||
                          f.C_GetSlotInfo(slots[0], &info) != CKR_OK ||
                          f.C_OpenSession(slots[0], CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr,
                                          nullptr, &session) != CKR_OK)
                          return false;
                      return f.C_CloseSession(session) == CKR_OK;
                  }}});
}

void BM_OpenKeyLater(benchmark::State& state) {
    World& world = World::Get();
    OpenedKey opened(world.provider());
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table = *world.provider().table;
    const bench::RawToken& raw = world.middleware();
    std::u16string name = World::KeyName(world.pairs() - 1);
    std::string id = World::KeyId(world.pairs() - 1);
    if (!opened.ok()) return state.SkipWithError("OpenKey failed");
    Race(state,
         {{"provider",
           [&] {
               NCRYPT_KEY_HANDLE key = 0;
               return table.OpenKey(opened.provider_, &key, name.c_str(), 0, 0) == 0 &&
                      table.FreeKey(opened.provider_, key) == 0;
           }},
          {"middleware", [&] { return raw.FindById(raw.session, CKO_PRIVATE_KEY, id) != 0; }}});
}

void BM_OpenKeyFirst(benchmark::State& state) {
    World& world = World::Get();
    world.EnsurePairs(static_cast<int>(state.range(0)));
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table = *world.provider().table;
    std::u16string name = World::KeyName(0);
    NCRYPT_PROV_HANDLE provider = 0;
    // Only the OpenKey is timed: each turn opens a fresh provider, whose
    // list is empty, before it starts the clock of its own.
    std::vector<double> seconds(2, 0.0);
    for (auto _ : state) {
        if (table.OpenProvider(&provider, u"Velmora KSP v4.5", NCRYPT_SILENT_FLAG) != 0)
            return state.SkipWithError("OpenProvider failed");
        NCRYPT_KEY_HANDLE key = 0;
        auto start = Clock::now();
        SECURITY_STATUS status = table.OpenKey(provider, &key, name.c_str(), 0, 0);
        auto opened = Clock::now();
        bool raw = RawListBuild(world.middleware());
        auto end = Clock::now();
        if (status == 0) table.FreeKey(provider, key);
        table.FreeProvider(provider);
        if (status != 0 || !raw) return state.SkipWithError("OpenKey failed");
        seconds[0] += std::chrono::duration<double>(opened - start).count();
        seconds[1] += std::chrono::duration<double>(end - opened).count();
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
    state.counters["provider_us"] =
        benchmark::Counter(seconds[0] * 1e6, benchmark::Counter::kAvgIterations);
    state.counters["middleware_us"] =
        benchmark::Counter(seconds[1] * 1e6, benchmark::Counter::kAvgIterations);
    state.counters["ratio_middleware"] = seconds[0] / seconds[1];
}

void BM_EnumKeys(benchmark::State& state) {
    World& world = World::Get();
    int pairs = static_cast<int>(state.range(0));
    world.EnsurePairs(pairs);
    OpenedKey opened(world.provider());
    if (!opened.ok()) return state.SkipWithError("OpenKey failed");
    Race(state,
         {{"provider", [&] { return ProviderEnumKeys(world.provider(), opened.provider_, pairs); }},
          {"middleware", [&] { return RawListBuild(world.middleware()); }}});
    auto provider = state.counters.find("provider_us");
    auto raw = state.counters.find("middleware_us");
    if (provider != state.counters.end() && raw != state.counters.end())
        state.counters["provider_share_us_per_key"] =
            (provider->second.value - raw->second.value) / state.iterations() / pairs;
}

// The list build's attribute read of every key object, through the
// middleware and straight on SoftHSM2.
void BM_AttributeReads(benchmark::State& state) {
    World& world = World::Get();
    world.EnsurePairs(static_cast<int>(state.range(0)));
    auto reader = [](const bench::RawToken& token) {
        std::vector<CK_OBJECT_HANDLE> objects = token.Find(token.session, CKO_PUBLIC_KEY);
        std::vector<CK_OBJECT_HANDLE> privates = token.Find(token.session, CKO_PRIVATE_KEY);
        objects.insert(objects.end(), privates.begin(), privates.end());
        return [&token, objects] {
            for (CK_OBJECT_HANDLE object : objects) {
                uint8_t id[200], label[200];
                CK_ULONG bits = 0;
                CK_ATTRIBUTE read[] = {{CKA_ID, id, sizeof id},
                                       {CKA_LABEL, label, sizeof label},
                                       {CKA_MODULUS_BITS, &bits, sizeof bits}};
                CK_RV rv = token.functions->C_GetAttributeValue(token.session, object, read, 3);
                // SoftHSM2 has no CKA_MODULUS_BITS on private keys; it still
                // reads the other two.
                if (rv != CKR_OK && rv != CKR_ATTRIBUTE_TYPE_INVALID) return false;
            }
            return true;
        };
    };
    Race(state, {{"middleware", reader(world.middleware())}, {"softhsm", reader(world.softhsm())}});
}

// Open, sign and free again and again: the resident set must not grow.
void BM_Memory(benchmark::State& state) {
    World& world = World::Get();
    int cycles = world.quick() ? 200 : 20000;
    long before = 0, after = 0;
    for (auto _ : state) {
        for (int i = 0; i < cycles; ++i) {
            if (i == cycles / 10) before = bench::ResidentKiB();
            OpenedKey opened(world.provider());
            if (!opened.ok() || !opened.Sign()) return state.SkipWithError("cycle failed");
        }
        after = bench::ResidentKiB();
    }
    state.counters["cycles"] = cycles;
    state.counters["rss_kib_after_warmup"] = static_cast<double>(before);
    state.counters["rss_kib_growth"] = static_cast<double>(after - before);
}

void Register(bool quick) {
    benchmark::RegisterBenchmark("SignHash", BM_SignHash)->UseManualTime();
    benchmark::RegisterBenchmark("QueryThenSign", BM_QueryThenSign)->UseManualTime();
    benchmark::RegisterBenchmark("LoggingOnOff", BM_LoggingOnOff)->UseManualTime();
    benchmark::RegisterBenchmark("Threads", BM_Threads)->Iterations(1)->Repetitions(1);
    benchmark::RegisterBenchmark("OpenFreeProvider", BM_OpenFreeProvider)->UseManualTime();
    benchmark::RegisterBenchmark("OpenKeyLater", BM_OpenKeyLater)->UseManualTime();
    benchmark::RegisterBenchmark("OpenKeyFirst", BM_OpenKeyFirst)->Arg(10)->UseManualTime();
    benchmark::RegisterBenchmark("Memory", BM_Memory)->Iterations(1)->Repetitions(1);
    for (int pairs : quick ? std::vector<int>{10, 12, 14} : std::vector<int>{10, 100, 1000}) {
        benchmark::RegisterBenchmark("EnumKeys", BM_EnumKeys)->Arg(pairs)->UseManualTime();
        benchmark::RegisterBenchmark("AttributeReads", BM_AttributeReads)
            ->Arg(pairs)
            ->UseManualTime();
    }
}

}  // namespace

int main(int argc, char** argv) {
    bool quick = false;
    std::vector<char*> arguments;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0)
            quick = true;
        else
            arguments.push_back(argv[i]);
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
    try {
        World::Create(quick);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quelmksp_bench: %s\n", error.what());
        return 1;
    }
    Register(quick);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    World::Destroy();
    // The provider copies stay loaded to the end, as in the router's process,
    // with the threads they started; their exit-time teardown is not what is
    // measured here, so the process ends without it.
    std::fflush(stdout);
    std::fflush(stderr);
    std::_Exit(0);
}
