#include "ovx/aes.h"

#include <gtest/gtest.h>

#include "ovx/aes_kernels.h"
#include "ovx/aes_tables.h"
#include "support/allocation_counter.h"
#include "support/hex.h"
#include "support/kernels.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

ByteVector Encrypted(const IEncrypt& cipher, const ByteVector& plain) {
    ByteVector out(plain.size());
    auto capacity = static_cast<uint32_t>(out.size());
    EXPECT_TRUE(cipher.encrypt(plain.data(), static_cast<uint32_t>(plain.size()), out.data(), &capacity));
    out.resize(capacity);
    return out;
}

ByteVector Decrypted(const IEncrypt& cipher, const ByteVector& text) {
    ByteVector out(text.size());
    auto capacity = static_cast<uint32_t>(out.size());
    EXPECT_TRUE(cipher.decrypt(text.data(), static_cast<uint32_t>(text.size()), out.data(), &capacity));
    out.resize(capacity);
    return out;
}

void SetKey(CAes& cipher, const char* hex) {
    const ByteVector key = Bytes(hex);
    ASSERT_TRUE(cipher.setKey(key.data(), static_cast<uint32_t>(key.size())));
    ASSERT_TRUE(cipher.isReady());
}

void ExpectBothWays(const char* key, const char* plain, const char* text) {
    CAes cipher;
    SetKey(cipher, key);
    EXPECT_EQ(Encrypted(cipher, Bytes(plain)), Bytes(text));
    EXPECT_EQ(Decrypted(cipher, Bytes(text)), Bytes(plain));
}

// FIPS-197, figure 7.
TEST(Aes, SBox) {
    const ByteVector expected = Bytes(
        "63 7c 77 7b f2 6b 6f c5 30 01 67 2b fe d7 ab 76  ca 82 c9 7d fa 59 47 f0 ad d4 a2 af 9c a4 72 c0"
        "b7 fd 93 26 36 3f f7 cc 34 a5 e5 f1 71 d8 31 15  04 c7 23 c3 18 96 05 9a 07 12 80 e2 eb 27 b2 75"
        "09 83 2c 1a 1b 6e 5a a0 52 3b d6 b3 29 e3 2f 84  53 d1 00 ed 20 fc b1 5b 6a cb be 39 4a 4c 58 cf"
        "d0 ef aa fb 43 4d 33 85 45 f9 02 7f 50 3c 9f a8  51 a3 40 8f 92 9d 38 f5 bc b6 da 21 10 ff f3 d2"
        "cd 0c 13 ec 5f 97 44 17 c4 a7 7e 3d 64 5d 19 73  60 81 4f dc 22 2a 90 88 46 ee b8 14 de 5e 0b db"
        "e0 32 3a 0a 49 06 24 5c c2 d3 ac 62 91 95 e4 79  e7 c8 37 6d 8d d5 4e a9 6c 56 f4 ea 65 7a ae 08"
        "ba 78 25 2e 1c a6 b4 c6 e8 dd 74 1f 4b bd 8b 8a  70 3e b5 66 48 03 f6 0e 61 35 57 b9 86 c1 1d 9e"
        "e1 f8 98 11 69 d9 8e 94 9b 1e 87 e9 ce 55 28 df  8c a1 89 0d bf e6 42 68 41 99 2d 0f b0 54 bb 16");
    ASSERT_EQ(expected.size(), 256u);
    for (size_t i = 0; i < 256; ++i) {
        EXPECT_EQ(kAesTables.sbox[i], expected[i]) << i;
        EXPECT_EQ(kAesTables.inverse_sbox[expected[i]], i);
    }
}

// FIPS-197, appendices B and C.
TEST(Aes, Fips197) {
    ExpectBothWays("2b7e151628aed2a6abf7158809cf4f3c", "3243f6a8885a308d313198a2e0370734",
                   "3925841d02dc09fbdc118597196a0b32");
    ExpectBothWays("000102030405060708090a0b0c0d0e0f", "00112233445566778899aabbccddeeff",
                   "69c4e0d86a7b0430d8cdb78070b4c55a");
    ExpectBothWays("000102030405060708090a0b0c0d0e0f1011121314151617", "00112233445566778899aabbccddeeff",
                   "dda97ca4864cdfe06eaf70a0ec0d7191");
    ExpectBothWays("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f",
                   "00112233445566778899aabbccddeeff", "8ea2b7ca516745bfeafc49904b496089");
}

// NIST SP 800-38A, F.1: four blocks, each by itself.
TEST(Aes, ElectronicCodebook) {
    const char* const plain =
        "6bc1bee22e409f96e93d7e117393172a ae2d8a571e03ac9c9eb76fac45af8e51"
        "30c81c46a35ce411e5fbc1191a0a52ef f69f2445df4f9b17ad2b417be66c3710";
    ExpectBothWays("2b7e151628aed2a6abf7158809cf4f3c", plain,
                   "3ad77bb40d7a3660a89ecaf32466ef97 f5d3d58503b9699de785895a96fdbaaf"
                   "43b1cd7f598ece23881b00e3ed030688 7b0c785e27e8ad3f8223207104725dd4");
    ExpectBothWays("8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b", plain,
                   "bd334f1d6e45f25ff712a214571fa5cc 974104846d0ad3ad7734ecb3ecee4eef"
                   "ef7afd2270e2e60adce0ba2face6444e 9a4b41ba738d6c72fb16691603c18e0e");
    ExpectBothWays("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4", plain,
                   "f3eed1bdb5d2a03c064b5a7e3db181f8 591ccb10d410ed26dc5ba74a31362870"
                   "b6ed21b99ca6f4f9f153e7b1beafed1d 23304b7a39f9f3ff067d8d8f9e24ecc7");
}

// FIPS-197, appendix C, in every number of blocks that a kernel may cut into groups. In place, as OVX uses it, and with
// what lies behind the blocks left alone.
TEST(Aes, EveryKernelOfThisProcessor) {
    const ByteVector plain = Bytes("00112233445566778899aabbccddeeff");
    const ByteVector key = Bytes("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
    const ByteVector texts[] = {Bytes("69c4e0d86a7b0430d8cdb78070b4c55a"), Bytes("dda97ca4864cdfe06eaf70a0ec0d7191"),
                                Bytes("8ea2b7ca516745bfeafc49904b496089")};
    const auto kernels = test::Supported(Kernels::AesKernels());
    EXPECT_STREQ(kernels.back().name, "table");
    for (const Kernels::AesKernel& kernel : kernels) {
        for (uint32_t size = 0; size < 3; ++size) {
            SCOPED_TRACE(testing::Message() << kernel.name << ", key of " << 16 + 8 * size);
            Kernels::AesSchedule schedule{};
            Kernels::ExpandAesKey(schedule, key.data(), 16 + 8 * size);
            ByteVector expected_plain;
            ByteVector expected_text;
            for (size_t blocks = 0; blocks < 20; ++blocks) {
                ByteVector bytes = expected_plain;
                bytes.push_back(0xCC);
                kernel.encrypt(schedule, bytes.data(), bytes.data(), blocks);
                EXPECT_EQ(test::Slice(bytes, 0, 16 * blocks), expected_text);
                kernel.decrypt(schedule, bytes.data(), bytes.data(), blocks);
                EXPECT_EQ(test::Slice(bytes, 0, 16 * blocks), expected_plain);
                EXPECT_EQ(bytes.back(), 0xCC);
                expected_plain.insert(expected_plain.end(), plain.begin(), plain.end());
                expected_text.insert(expected_text.end(), texts[size].begin(), texts[size].end());
            }
        }
    }
}

TEST(Aes, WorksInPlace) {
    CAes cipher;
    SetKey(cipher, "000102030405060708090a0b0c0d0e0f");
    ByteVector bytes = Bytes("00112233445566778899aabbccddeeff 0011");
    uint32_t capacity = 18;
    EXPECT_TRUE(cipher.encrypt(bytes.data(), 18, bytes.data(), &capacity));
    EXPECT_EQ(capacity, 16u);
    EXPECT_EQ(bytes, Bytes("69c4e0d86a7b0430d8cdb78070b4c55a 0011"));
}

TEST(Aes, OnlyWholeBlocksThatFit) {
    CAes cipher;
    SetKey(cipher, "000102030405060708090a0b0c0d0e0f");
    const ByteVector source(64);
    ByteVector out(64, 0xCC);
    uint32_t capacity = 64;
    EXPECT_FALSE(cipher.encrypt(source.data(), 15, out.data(), &capacity));
    EXPECT_FALSE(cipher.encrypt(source.data(), 0, out.data(), &capacity));
    EXPECT_EQ(capacity, 64u);
    capacity = 31;
    EXPECT_FALSE(cipher.encrypt(source.data(), 47, out.data(), &capacity));
    EXPECT_EQ(out, ByteVector(64, 0xCC));
    capacity = 32;
    EXPECT_TRUE(cipher.encrypt(source.data(), 47, out.data(), &capacity));
    EXPECT_EQ(capacity, 32u);
    EXPECT_EQ(test::Slice(out, 32, 32), ByteVector(32, 0xCC));
    // The other way a short stretch is good and gives nothing.
    capacity = 64;
    EXPECT_TRUE(cipher.decrypt(source.data(), 15, out.data(), &capacity));
    EXPECT_EQ(capacity, 0u);
    capacity = 15;
    EXPECT_FALSE(cipher.decrypt(source.data(), 16, out.data(), &capacity));
}

TEST(Aes, NullsAreRefused) {
    CAes cipher;
    SetKey(cipher, "000102030405060708090a0b0c0d0e0f");
    ByteVector bytes(16);
    uint32_t capacity = 16;
    EXPECT_FALSE(cipher.encrypt(nullptr, 16, bytes.data(), &capacity));
    EXPECT_FALSE(cipher.encrypt(bytes.data(), 16, nullptr, &capacity));
    EXPECT_FALSE(cipher.encrypt(bytes.data(), 16, bytes.data(), nullptr));
    EXPECT_FALSE(cipher.decrypt(nullptr, 16, bytes.data(), &capacity));
    EXPECT_FALSE(cipher.decrypt(bytes.data(), 16, nullptr, &capacity));
    EXPECT_FALSE(cipher.decrypt(bytes.data(), 16, bytes.data(), nullptr));
    EXPECT_EQ(bytes, ByteVector(16));
}

TEST(Aes, WithoutAKeyNothingWorks) {
    const CAes cipher;
    EXPECT_FALSE(cipher.isReady());
    ByteVector bytes(16);
    uint32_t capacity = 16;
    EXPECT_FALSE(cipher.encrypt(bytes.data(), 16, bytes.data(), &capacity));
    EXPECT_FALSE(cipher.decrypt(bytes.data(), 16, bytes.data(), &capacity));
}

TEST(Aes, TheSameKeyAgainLeavesTheSchedule) {
    CAes cipher;
    SetKey(cipher, "000102030405060708090a0b0c0d0e0f");
    const ByteVector key = Bytes("000102030405060708090a0b0c0d0e0f");
    const test::AllocationCounter allocations;
    EXPECT_TRUE(cipher.setKey(key.data(), 16));
    EXPECT_EQ(allocations.Count(), 0u);  // a schedule has its own memory
    EXPECT_EQ(Encrypted(cipher, Bytes("00112233445566778899aabbccddeeff")), Bytes("69c4e0d86a7b0430d8cdb78070b4c55a"));
    // A longer key with the same beginning is another key.
    SetKey(cipher, "000102030405060708090a0b0c0d0e0f1011121314151617");
    EXPECT_EQ(Encrypted(cipher, Bytes("00112233445566778899aabbccddeeff")), Bytes("dda97ca4864cdfe06eaf70a0ec0d7191"));
    SetKey(cipher, "000102030405060708090a0b0c0d0e0f");
    EXPECT_EQ(Encrypted(cipher, Bytes("00112233445566778899aabbccddeeff")), Bytes("69c4e0d86a7b0430d8cdb78070b4c55a"));
}

TEST(Aes, LengthsThatCanBeNoKeyLeaveTheOldOne) {
    CAes cipher;
    SetKey(cipher, "000102030405060708090a0b0c0d0e0f");
    const ByteVector key(100, 1);
    for (const uint32_t length : {0u, 3u, 15u, 17u, 63u, 64u, 65u, 100u}) {
        EXPECT_FALSE(cipher.setKey(key.data(), length)) << length;
        EXPECT_TRUE(cipher.isReady()) << length;
    }
    EXPECT_FALSE(cipher.setKey(nullptr, 16));
    EXPECT_TRUE(cipher.isReady());
    EXPECT_EQ(Encrypted(cipher, Bytes("00112233445566778899aabbccddeeff")), Bytes("69c4e0d86a7b0430d8cdb78070b4c55a"));
}

TEST(Aes, OtherWrongLengthsTakeTheKeyAway) {
    const ByteVector key(100, 1);
    for (const uint32_t length : {1u, 2u, 8u, 14u, 18u, 26u, 30u, 34u, 62u}) {
        CAes cipher;
        SetKey(cipher, "000102030405060708090a0b0c0d0e0f");
        EXPECT_FALSE(cipher.setKey(key.data(), length)) << length;
        EXPECT_FALSE(cipher.isReady()) << length;
        // The old key is no longer the stored one, so it is taken anew.
        SetKey(cipher, "000102030405060708090a0b0c0d0e0f");
        EXPECT_EQ(Encrypted(cipher, Bytes("00112233445566778899aabbccddeeff")),
                  Bytes("69c4e0d86a7b0430d8cdb78070b4c55a"));
    }
}

// A key that was refused leaves none behind, not even one of zeros.
TEST(Aes, ARefusedKeyIsNoKey) {
    CAes cipher;
    SetKey(cipher, "000102030405060708090a0b0c0d0e0f");
    const ByteVector wrong(18, 0x11);
    EXPECT_FALSE(cipher.setKey(wrong.data(), 18));
    EXPECT_FALSE(cipher.isReady());
    const ByteVector zero(1);
    EXPECT_FALSE(cipher.setKey(zero.data(), 1));
    EXPECT_FALSE(cipher.setKey(zero.data(), 1)) << "nor the second time";
    EXPECT_FALSE(cipher.isReady());
}

}  // namespace
}  // namespace Orvane::Muxora
