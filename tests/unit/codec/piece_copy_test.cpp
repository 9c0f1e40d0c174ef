#include "codec/piece_copy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include "support/kernels.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

class PieceKernelsTest : public testing::TestWithParam<PieceKernel> {};

TEST_P(PieceKernelsTest, CopyEveryLengthAtEveryAlignmentAndNotAByteMore) {
    std::mt19937 random(2048);
    constexpr uint32_t kLongest = 700;
    const test::ByteVector data = test::RandomBytes(random, kLongest);
    for (uint32_t length = 0; length <= kLongest; ++length) {
        // Heap blocks of the exact sizes, so that the sanitizers see a byte too many.
        const auto from = std::make_unique<uint8_t[]>(length);
        const auto to = std::make_unique<uint8_t[]>(length);
        std::copy_n(data.begin(), length, from.get());
        GetParam().copy(to.get(), from.get(), length);
        ASSERT_TRUE(std::equal(to.get(), to.get() + length, data.begin())) << length;

        const uint32_t before = length % 67;
        test::ByteVector out(kLongest + 128, 0xEE);
        GetParam().copy(out.data() + before, data.data() + (kLongest - length), length);
        test::ByteVector expected(kLongest + 128, 0xEE);
        std::copy(data.end() - length, data.end(), expected.begin() + before);
        ASSERT_EQ(out, expected) << length;
    }
}

INSTANTIATE_TEST_SUITE_P(All, PieceKernelsTest, testing::ValuesIn(test::Supported(PieceKernels())),
                         [](const auto& kernel) { return std::string(kernel.param.name); });

}  // namespace
}  // namespace Orvane::Muxora
