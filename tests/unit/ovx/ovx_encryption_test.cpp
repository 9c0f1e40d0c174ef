#include <gtest/gtest.h>

#include "ovx/ovx_packet.h"
#include "support/allocation_counter.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"
#include "unit_fields.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Slice;

// FIPS-197, appendix C.1: this key turns the first block into the second.
const ByteVector kKey = Bytes("000102030405060708090a0b0c0d0e0f");
const ByteVector kPlain = Bytes("00112233445566778899aabbccddeeff");
const ByteVector kCipher = Bytes("69c4e0d86a7b0430d8cdb78070b4c55a");

class OvxEncryption : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(packet.setEncryptType(0, kKey.data(), 16), 0u); }

    static ByteVector Repeat(const ByteVector& block, size_t times, const char* rest = "") {
        using test::operator+;
        ByteVector out;
        for (size_t i = 0; i < times; ++i)
            out = out + block;
        return out + Bytes(rest);
    }
    uint32_t Give(uint16_t offset, uint32_t length) {
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_KEY);
        frame.encrypt_offset = offset;
        frame.encrypt_length = length;
        return packet.inputFrame(&frame, 0);
    }
    // What the unit holds. Its extension block is the data check, with the Encrypt record behind it when encrypted.
    void ExpectEncrypted(const ByteVector& bytes, const char* record) {
        const ByteVector& unit = sink.Last();
        ASSERT_EQ(unit.size(), 24 + 16 + bytes.size() + 8);
        EXPECT_EQ(unit[22], 16);
        EXPECT_EQ(Slice(unit, 32, 8), Bytes(record));
        EXPECT_EQ(Slice(unit, 40, bytes.size()), bytes);
        EXPECT_EQ(test::LittleEndian(unit, 25, 4), test::BitwiseCrc32(bytes));
        EXPECT_EQ(data, bytes);  // the caller's frame is encrypted as well
    }
    void ExpectPlain(const ByteVector& bytes) {
        const ByteVector& unit = sink.Last();
        ASSERT_EQ(unit.size(), 24 + 8 + bytes.size() + 8);
        EXPECT_EQ(unit[22], 8);
        EXPECT_EQ(Slice(unit, 32, bytes.size()), bytes);
        EXPECT_EQ(test::LittleEndian(unit, 25, 4), test::BitwiseCrc32(bytes));
        EXPECT_EQ(data, bytes);
    }

    ByteVector data = Repeat(kPlain, 4, "01 02 03");
    test::Sink sink;
    MXCreateParam param = sink.Param();
    COvxPacket packet{MX_FORMAT_OVX, &param};
};

TEST_F(OvxEncryption, WholeBlocksOfTheStretch) {
    EXPECT_EQ(Give(0, 20), 0u);
    using test::operator+;
    ExpectEncrypted(kCipher + Repeat(kPlain, 3, "01 02 03"), "95 00 00 00 14 00 00 00");
}

TEST_F(OvxEncryption, FromTheOffsetOn) {
    EXPECT_EQ(Give(16, 32), 0u);
    using test::operator+;
    ExpectEncrypted(kPlain + Repeat(kCipher, 2) + kPlain + Bytes("01 02 03"), "95 00 10 00 20 00 00 00");
}

TEST_F(OvxEncryption, TheFrameBoundsTheStretch) {
    EXPECT_EQ(Give(0, 0x12345678), 0u);
    ExpectEncrypted(Repeat(kCipher, 4, "01 02 03"), "95 00 00 00 78 56 00 00");
}

TEST_F(OvxEncryption, TheStretchIsCutToWhatTheFrameHoldsBehindTheOffset) {
    EXPECT_EQ(Give(32, 67), 0u);
    using test::operator+;
    ExpectEncrypted(Repeat(kPlain, 2) + Repeat(kCipher, 2, "01 02 03"), "95 00 20 00 43 00 00 00");
}

TEST_F(OvxEncryption, AStretchThatEndsAtTheFrame) {
    data = kPlain;
    EXPECT_EQ(Give(0, 16), 0u);
    ExpectEncrypted(kCipher, "95 00 00 00 10 00 00 00");
}

TEST_F(OvxEncryption, LessThanABlockStaysPlain) {
    const ByteVector plain = data;
    for (const uint32_t length : {0u, 1u, 15u}) {
        EXPECT_EQ(Give(0, length), 0u);
        ExpectPlain(plain);
    }
    EXPECT_EQ(Give(52, 100), 0u);  // 15 bytes are left there
    ExpectPlain(plain);
    data = ByteVector(15, 7);
    EXPECT_EQ(Give(0, 100), 0u);
    ExpectPlain(ByteVector(15, 7));
}

TEST_F(OvxEncryption, AStretchBehindTheFrameEncryptsNothing) {
    const ByteVector plain = data;
    for (const uint16_t offset : {uint16_t{67}, uint16_t{68}, uint16_t{0xFFFF}}) {
        EXPECT_EQ(Give(offset, 16), 0u);
        ExpectPlain(plain);
    }
}

TEST_F(OvxEncryption, AudioIsEncryptedToo) {
    MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_AAC);
    frame.encrypt_length = 64;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    const ByteVector& unit = sink.Last();
    EXPECT_EQ(Slice(unit, 36, 8), Bytes("95 00 00 00 40 00 00 00"));
    EXPECT_EQ(Slice(unit, 44, 67), Repeat(kCipher, 4, "01 02 03"));
}

TEST_F(OvxEncryption, OtherTypesAreRefusedAndTakeTheCipherAway) {
    EXPECT_EQ(packet.setEncryptType(1, kKey.data(), 16), 3u);
    const ByteVector plain = data;
    EXPECT_EQ(Give(0, 64), 0u);
    ExpectPlain(plain);
}

TEST_F(OvxEncryption, NoKeyTakesTheCipherAway) {
    const ByteVector plain = data;
    EXPECT_EQ(packet.setEncryptType(0, nullptr, 0), 0u);
    EXPECT_EQ(Give(0, 64), 0u);
    ExpectPlain(plain);
    EXPECT_EQ(packet.setEncryptType(0, kKey.data(), 16), 0u);
    EXPECT_EQ(packet.setEncryptType(0, kKey.data(), 0), 0u);
    EXPECT_EQ(Give(0, 64), 0u);
    ExpectPlain(plain);
    EXPECT_EQ(packet.setEncryptType(0, kKey.data(), 16), 0u);
    EXPECT_EQ(packet.setEncryptType(7, nullptr, 16), 0u);  // without a key the type is not looked at
    EXPECT_EQ(Give(0, 64), 0u);
    ExpectPlain(plain);
}

TEST_F(OvxEncryption, ARefusedKeyIsNoCipher) {
    const ByteVector plain = data;
    const ByteVector key(100, 1);
    for (const uint32_t length : {1u, 2u, 8u, 15u, 17u, 33u, 48u, 64u, 100u}) {
        EXPECT_EQ(packet.setEncryptType(0, key.data(), length), 0u) << length;
        EXPECT_EQ(Give(0, 64), 0u);
        ExpectPlain(plain);
    }
}

TEST_F(OvxEncryption, LongerKeys) {
    const ByteVector key = Bytes("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
    data = kPlain;
    EXPECT_EQ(packet.setEncryptType(0, key.data(), 24), 0u);
    EXPECT_EQ(Give(0, 16), 0u);
    ExpectEncrypted(Bytes("dda97ca4864cdfe06eaf70a0ec0d7191"), "95 00 00 00 10 00 00 00");
    data = kPlain;
    EXPECT_EQ(packet.setEncryptType(0, key.data(), 32), 0u);
    EXPECT_EQ(Give(0, 16), 0u);
    ExpectEncrypted(Bytes("8ea2b7ca516745bfeafc49904b496089"), "95 00 00 00 10 00 00 00");
}

// Up to 10239 bytes pass through the work buffer; longer stretches take memory of their own for the time.
TEST_F(OvxEncryption, LongStretchesTakeATemporaryBuffer) {
    MXCreateParam quiet{};
    COvxPacket steady(MX_FORMAT_OVX, &quiet);
    steady.setEncryptType(0, kKey.data(), 16);
    const auto allocations = [&](uint32_t length) {
        data = Repeat(kPlain, 700);
        MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_AAC);
        frame.encrypt_length = length;
        const test::AllocationCounter counter;
        EXPECT_EQ(steady.inputFrame(&frame, 0), 0u);
        const uint64_t count = counter.Count();
        using test::operator+;
        EXPECT_EQ(data, Repeat(kCipher, length / 16) + Repeat(kPlain, 700 - length / 16));
        return count;
    };
    allocations(16);  // warm
    EXPECT_EQ(allocations(10239), 0u);
    EXPECT_EQ(allocations(10240), 1u);
    EXPECT_EQ(allocations(11200), 1u);
    EXPECT_EQ(allocations(10239), 0u);
}

TEST_F(OvxEncryption, WithoutMemoryForTheTemporaryBufferTheFrameGoesOutPlain) {
    data = Repeat(kPlain, 700);
    const ByteVector plain = data;
    static ByteVector taken;
    taken.reserve(20000);
    packet.setCallback(
        [](const MXOutputBlock* block, void* /*user*/) -> int32_t {
            const auto* bytes = static_cast<const uint8_t*>(block->data);
            taken.assign(bytes, bytes + block->length);
            return 0;
        },
        nullptr);
    Give(0, 0);  // warm
    {
        const test::FailingAllocations none;
        EXPECT_EQ(Give(0, 10240), 0u);
        EXPECT_EQ(taken.size(), 24 + 8 + plain.size() + 8);
        EXPECT_EQ(data, plain);
        EXPECT_EQ(Give(0, 10239), 0u);
    }
    EXPECT_EQ(taken.size(), 24 + 16 + plain.size() + 8);
    EXPECT_EQ(Slice(data, 0, 16), kCipher);
}

TEST_F(OvxEncryption, APacketThatIsTooSmallLeavesTheFrameAsItWas) {
    const ByteVector plain = data;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_KEY);
    frame.encrypt_length = 64;
    Basalt::CPacket small(24 + 16 + 67 + 8 - 1);
    EXPECT_EQ(packet.inputFrameEx(&frame, small), 3u);
    EXPECT_EQ(data, plain);
    Basalt::CPacket enough(24 + 16 + 67 + 8);
    EXPECT_EQ(packet.inputFrameEx(&frame, enough), 0u);
    ExpectEncrypted(Repeat(kCipher, 4, "01 02 03"), "95 00 00 00 40 00 00 00");
}

}  // namespace
}  // namespace Orvane::Muxora
