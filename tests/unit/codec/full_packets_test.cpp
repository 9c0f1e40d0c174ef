#include "codec/full_packets.h"

#include <gtest/gtest.h>

#include <random>

#include "support/hex.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::ByteVector;
using test::operator+;

TEST(FullPackets, EveryKernelWritesThemAndNothingElse) {
    std::mt19937 random(188);
    const ByteVector payload = test::RandomBytes(random, 182 * 40);
    for (const CutKernel& kernel : CutKernels()) {
        if (!kernel.supported()) continue;
        for (uint32_t count = 0; count <= 40; ++count) {
            ByteVector expected;
            for (uint32_t i = 0; i < count; ++i) {
                const ByteVector head{0x47, 0x1F, 0xE3, static_cast<uint8_t>(0x30 + (13 + i) % 16), 1, 0};
                expected.insert(expected.end(), head.begin(), head.end());
                const ByteVector body = test::Slice(payload, i * 182, 182);
                expected.insert(expected.end(), body.begin(), body.end());
            }
            // Heap blocks of the exact sizes, so that the sanitizers see a byte too many.
            ByteVector out(count * 188);
            const ByteVector in = test::Slice(payload, 0, count * 182);
            kernel.cut(out.data(), in.data(), count, 0x1FE3, 13);
            ASSERT_EQ(out, expected) << kernel.name << ' ' << count;
        }
    }
}

TEST(FullPackets, EveryKernelWritesPlainOnesToo) {
    std::mt19937 random(184);
    const ByteVector payload = test::RandomBytes(random, 184 * 20);
    for (const CutKernel& kernel : CutKernels()) {
        if (!kernel.supported()) continue;
        for (uint32_t count = 0; count <= 20; ++count) {
            ByteVector expected;
            for (uint32_t i = 0; i < count; ++i) {
                const ByteVector head{0x47, 0x01, 0x00, static_cast<uint8_t>(0x10 + (5 + i) % 16)};
                expected.insert(expected.end(), head.begin(), head.end());
                const ByteVector body = test::Slice(payload, i * 184, 184);
                expected.insert(expected.end(), body.begin(), body.end());
            }
            ByteVector out(count * 188);
            const ByteVector in = test::Slice(payload, 0, count * 184);
            kernel.cut_plain(out.data(), in.data(), count, 0x0100, 5);
            ASSERT_EQ(out, expected) << kernel.name << ' ' << count;
        }
    }
}

TEST(FullPackets, TheChosenKernelIsOneOfThem) {
    const ByteVector in(182, 0x5A);
    ByteVector out(188);
    CutFullPackets(out.data(), in.data(), 1, 0x0012, 15);
    EXPECT_EQ(test::Slice(out, 0, 6), test::Bytes("47 00 12 3F 01 00"));
    EXPECT_EQ(test::Slice(out, 6, 182), in);

    const ByteVector plain_in(184, 0x33);
    CutPlainPackets(out.data(), plain_in.data(), 1, 0x0101, 0);
    EXPECT_EQ(out, test::Bytes("47 01 01 10") + plain_in);
}

}  // namespace
}  // namespace Orvane::Muxora
