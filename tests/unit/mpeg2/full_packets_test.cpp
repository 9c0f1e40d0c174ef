#include "mpeg2/full_packets.h"

#include <gtest/gtest.h>

#include <random>

#include "support/hex.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::ByteVector;

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

TEST(FullPackets, TheChosenKernelIsOneOfThem) {
    const ByteVector in(182, 0x5A);
    ByteVector out(188);
    CutFullPackets(out.data(), in.data(), 1, 0x0012, 15);
    EXPECT_EQ(test::Slice(out, 0, 6), test::Bytes("47 00 12 3F 01 00"));
    EXPECT_EQ(test::Slice(out, 6, 182), in);
}

}  // namespace
}  // namespace Orvane::Muxora
