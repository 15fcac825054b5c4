#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <future>

#include "pin/pin_manager.h"
#include "support/fresh_provider_state.h"

namespace {

const uint8_t kSerial[16] = {'0', '1', '2', '3', '4', '5', '6', '7',
                             '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

std::vector<uint8_t> Pin(const char* text) {
    return std::vector<uint8_t>(text, text + std::strlen(text));
}

class PinCacheTest : public ::testing::Test {
protected:
    // Whether another thread can take the manager's lock right now.
    bool LockIsFree() {
        return std::async(std::launch::async,
                          [this] {
                              if (!manager_.lock.try_lock()) return false;
                              manager_.lock.unlock();
                              return true;
                          })
            .get();
    }

    SECURITY_STATUS Store(const std::vector<uint8_t>& pin, const uint8_t* serial = kSerial) {
        return manager_.StorePINInCache(serial, pin.data(), static_cast<uint32_t>(pin.size()));
    }

    TempDir dir_;
    FreshProviderState state_{dir_, "", "/nonexistent"};
    PinManager manager_;
};

}  // namespace

TEST_F(PinCacheTest, ProtectedRecordsRoundUpToWholeBlocksAndHideThePin) {
    PinCache cache;
    for (auto [length, recordBytes] : {std::pair{4u, 16u}, {13u, 16u}, {14u, 32u}, {30u, 48u}}) {
        std::vector<uint8_t> pin(length, 'x');
        uint32_t needed = 0;
        ASSERT_EQ(cache.Encrypt(pin.data(), length, nullptr, &needed), 0);
        EXPECT_EQ(needed, recordBytes) << length;
        ASSERT_EQ(cache.SetPIN(pin.data(), length), 0);
        EXPECT_EQ(cache.cbProtectedPin, recordBytes);
        const uint8_t* record = cache.pbProtectedPin.get();
        EXPECT_EQ(std::search(record, record + recordBytes, pin.begin(), pin.begin() + 4),
                  record + recordBytes)
            << "the PIN is scrambled at rest";
    }
    std::vector<uint8_t> tooLong(256, 'x');
    EXPECT_EQ(cache.SetPIN(tooLong.data(), 256), NTE_INVALID_PARAMETER);

    uint32_t small = 8;
    uint8_t out[8];
    EXPECT_EQ(cache.Encrypt(out, 4, out, &small), NTE_BUFFER_TOO_SMALL);
    EXPECT_EQ(small, 16u);
    EXPECT_EQ(cache.Decrypt(out, 7, nullptr, &small), NTE_INVALID_PARAMETER);
}

TEST_F(PinCacheTest, LengthQueryThenReadAndTooSmallBuffers) {
    ASSERT_EQ(Store(Pin("123456")), 1);
    manager_.lock.lock();
    uint32_t length = 0;
    ASSERT_EQ(manager_.RetrievePINFromCache(kSerial, nullptr, &length), 0);
    EXPECT_EQ(length, 6u);
    uint8_t pin[16] = {};
    ASSERT_EQ(manager_.RetrievePINFromCache(kSerial, pin, &length), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(pin), length), "123456");

    length = 3;
    EXPECT_EQ(manager_.RetrievePINFromCache(kSerial, pin, &length), NTE_NOT_FOUND);
    EXPECT_NE(state_.Log().find("Failed to get PIN from cache"), std::string::npos);
    EXPECT_FALSE(LockIsFree()) << "a PIN that cannot be read keeps the lock";
    manager_.lock.unlock();
    EXPECT_EQ(manager_.RetrievePINFromCache(kSerial, nullptr, nullptr), NTE_INVALID_PARAMETER);
}

TEST_F(PinCacheTest, ALookupThatFindsNothingReleasesTheLock) {
    ASSERT_EQ(Store(Pin("1234")), 1);
    uint8_t other[16];
    std::memcpy(other, kSerial, 16);
    other[15] = 'g';
    manager_.lock.lock();
    uint32_t length = 0;
    ASSERT_EQ(manager_.RetrievePINFromCache(other, nullptr, &length), NTE_NOT_FOUND);
    EXPECT_TRUE(LockIsFree()) << "the dialog must be able to run without it";

    manager_.lock.lock();
    ASSERT_EQ(manager_.RetrievePINFromCache(kSerial, nullptr, &length), 0);
    EXPECT_FALSE(LockIsFree());
    manager_.lock.unlock();
}

TEST_F(PinCacheTest, OnlyEightZerosInTheRegistrySwitchCachingOff) {
    for (auto [setting, stored] : {std::pair{"\"PINCACHE\"=\"00000000\"\n", false},
                                   {"\"PINCACHE\"=\"0\"\n", true},
                                   {"\"PINCACHE\"=\"1\"\n", true},
                                   {"", true}}) {
        RegistryFile registry(dir_, std::string(RegistryFile::kSdkKey) + setting);
        PinManager manager;
        EXPECT_EQ(manager.StorePINInCache(kSerial, Pin("1234").data(), 4),
                  stored ? 1 : NTE_NOT_SUPPORTED)
            << setting;
        EXPECT_EQ(manager.pool.size(), stored ? 1u : 0u);
    }
    EXPECT_EQ(Store(Pin("")), 0) << "a missing PIN stores nothing";
}

TEST_F(PinCacheTest, TheFirstRecordForASerialWins) {
    ASSERT_EQ(Store(Pin("first")), 1);
    ASSERT_EQ(Store(Pin("second")), 1);
    EXPECT_EQ(manager_.pool.size(), 2u);
    manager_.lock.lock();
    uint32_t length = 16;
    uint8_t pin[16] = {};
    ASSERT_EQ(manager_.RetrievePINFromCache(kSerial, pin, &length), 0);
    manager_.lock.unlock();
    EXPECT_EQ(std::string(reinterpret_cast<char*>(pin), 5), "first");
}
