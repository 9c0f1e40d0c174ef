#include "codec/fragments.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "support/hex.h"
#include "support/kernels.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::ByteVector;

class FragmentKernelsTest : public testing::TestWithParam<FragmentKernel> {};

// The packets that come ahead of the first start code, told byte by byte.
uint32_t NaiveCount(const ByteVector& data, uint32_t payload, uint32_t count) {
    for (uint32_t done = 0; done < count; ++done) {
        for (size_t at = size_t{done} * payload; at <= size_t{done + 1} * payload; ++at) {
            const auto is = [&](std::initializer_list<uint8_t> code) {
                return at + code.size() <= data.size() &&
                       std::equal(code.begin(), code.end(), data.begin() + static_cast<std::ptrdiff_t>(at));
            };
            if (is({0, 0, 1}) || is({0, 0, 0, 1})) return done;
        }
    }
    return count;
}

void Check(const FragmentKernel& kernel, const ByteVector& data, uint32_t payload, uint32_t head_length,
           uint16_t first_sequence) {
    const uint32_t sequence_at = head_length - 2;
    const auto count = static_cast<uint32_t>((data.size() - 1) / payload);
    uint8_t head[kFragmentHead];
    for (uint32_t i = 0; i < kFragmentHead; ++i)
        head[i] = static_cast<uint8_t>(0xC0 + i);
    // Heap blocks of the exact sizes, so that the sanitizers see a byte too many.
    const auto in = std::make_unique<uint8_t[]>(data.size());
    std::copy(data.begin(), data.end(), in.get());
    ByteVector out(size_t{count} * (head_length + payload));
    FragmentRun run{};
    run.out = out.data();
    run.from = in.get();
    run.end = in.get() + data.size();
    run.payload = payload;
    run.count = count;
    run.head = head;
    run.head_length = head_length;
    run.sequence_at = sequence_at;
    run.first_sequence = first_sequence;
    const uint32_t done = kernel.cut(run);
    // A short code one byte behind the end, with no zero ahead of it, may stop the run as well: the reader decides.
    const uint32_t expected = NaiveCount(data, payload, count);
    ASSERT_LE(done, expected) << kernel.name << " payload " << payload;
    if (done != expected) {
        const size_t stop = size_t{done + 1} * payload;
        ASSERT_EQ(ByteVector(data.begin() + static_cast<std::ptrdiff_t>(stop + 1),
                             data.begin() + static_cast<std::ptrdiff_t>(stop + 4)),
                  (ByteVector{0, 0, 1}));
    }
    for (uint32_t i = 0; i < done; ++i) {
        ByteVector packet(head, head + sequence_at);
        const auto sequence = static_cast<uint16_t>(first_sequence + i);
        packet.push_back(static_cast<uint8_t>(sequence >> 8));
        packet.push_back(static_cast<uint8_t>(sequence & 0xFF));
        const ByteVector body = test::Slice(data, size_t{i} * payload, payload);
        packet.insert(packet.end(), body.begin(), body.end());
        ASSERT_EQ(test::Slice(out, i * packet.size(), packet.size()), packet) << kernel.name << ' ' << payload;
    }
}

TEST_P(FragmentKernelsTest, WriteEveryPayloadLengthBehindEveryHead) {
    std::mt19937 random(3984);
    ByteVector data = test::RandomBytes(random, 3000);
    std::replace(data.begin(), data.end(), uint8_t{0}, uint8_t{7});
    for (uint32_t payload = 64; payload <= 400; ++payload)
        ASSERT_NO_FATAL_FAILURE(Check(GetParam(), data, payload, 2 + payload % 63, 0xFFFE));
}

TEST_P(FragmentKernelsTest, StopAheadOfEachStartCodeWhereverItLies) {
    for (const uint32_t payload : {64u, 65u, 127u, 130u, 191u, 200u}) {
        for (size_t at = 0; at + 4 <= size_t{payload} * 4 + 2; ++at) {
            for (const bool is_long : {false, true}) {
                ByteVector data(size_t{payload} * 4 + 2, 0xA5);
                std::memcpy(data.data() + at, is_long ? "\0\0\0\1" : "\0\0\1\xA5", 4);
                ASSERT_NO_FATAL_FAILURE(Check(GetParam(), data, payload, 18, 1)) << at;
            }
        }
    }
}

TEST_P(FragmentKernelsTest, GoOnBehindNearMisses) {
    std::mt19937 random(5);
    for (int round = 0; round < 300; ++round) {
        ByteVector data = test::RandomBytes(random, 2000);
        for (uint8_t& byte : data)
            byte = random() % 3 == 0 ? uint8_t{0} : byte;
        for (size_t i = 2; round % 2 == 0 && i < data.size(); ++i)
            if (data[i - 2] == 0 && data[i - 1] == 0 && data[i] == 1) data[i] = 3;
        ASSERT_NO_FATAL_FAILURE(Check(GetParam(), data, static_cast<uint32_t>(64 + random() % 300), 16, 100));
    }
}

INSTANTIATE_TEST_SUITE_P(All, FragmentKernelsTest, testing::ValuesIn(test::Supported(FragmentKernels())),
                         [](const auto& kernel) { return std::string(kernel.param.name); });

TEST(Fragments, TheChosenKernelIsOneOfThem) {
    ByteVector data(201, 0x5A);
    const FragmentKernel chosen{"chosen", nullptr, CutFragments};
    Check(chosen, data, 100, 4, 7);
}

}  // namespace
}  // namespace Orvane::Muxora
