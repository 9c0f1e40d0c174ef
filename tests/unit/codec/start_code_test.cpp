#include "codec/start_code.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "codec/kernels/start_code_kernels.h"
#include "support/hex.h"
#include "support/kernels.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

size_t NaiveFind(const uint8_t* data, size_t length) {
    for (size_t i = 0; i + 3 <= length; ++i) {
        if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1) return i;
    }
    return length;
}

// Step by step, as the rule is told: each position below length - 3, the four-byte code first.
StartCode NaiveNext(const ByteVector& d, uint32_t from) {
    if (d.size() < 4) return {};
    for (size_t i = from; i < d.size() - 3; ++i) {
        if (d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 0 && d[i + 3] == 1) return {static_cast<uint32_t>(i), 4};
        if (d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 1) return {static_cast<uint32_t>(i), 3};
    }
    return {};
}

class StartCodeKernels : public testing::TestWithParam<Kernels::StartCodeKernel> {
  protected:
    size_t Find(const uint8_t* data, size_t length) {
        return static_cast<size_t>(GetParam().find(data, data + length) - data);
    }
};

TEST_P(StartCodeKernels, AgreesWithTheNaiveLoopOnEveryLengthAndAlignment) {
    std::mt19937 random(1);
    constexpr size_t kLongest = 400;
    for (size_t round = 0; round < 5; ++round) {
        ByteVector data = test::ZeroRichBytes(random, kLongest + 64);
        // Fewer ones in the later rounds, so that the hits lie further and further behind the beginning.
        for (uint8_t& byte : data) {
            if (byte == 1 && round > 0 && random() % (16 * round) != 0) byte = 2;
        }
        for (size_t align = 0; align < 64; ++align) {
            for (size_t length = 0; length <= kLongest; ++length) {
                ASSERT_EQ(Find(data.data() + align, length), NaiveFind(data.data() + align, length))
                    << "alignment " << align << ", length " << length;
            }
        }
    }
}

// The exact heap block lets a sanitizer see any byte read outside the range.
TEST_P(StartCodeKernels, FindsACodeAtEveryPlaceAndReadsNothingOutside) {
    for (size_t length = 3; length <= 300; ++length) {
        const auto block = std::make_unique<uint8_t[]>(length);
        std::fill_n(block.get(), length, uint8_t{0});
        ASSERT_EQ(Find(block.get(), length), length);
        for (size_t at = 0; at + 3 <= length; ++at) {
            // Nothing but zeros before the one makes the first hit stand two bytes ahead of it.
            block[at + 2] = 1;
            ASSERT_EQ(Find(block.get(), length), at);
            block[at + 2] = 0;
        }
    }
}

// Copies into a block with marked bytes around its room, and checks everything that the copy promises.
class CopyBench {
  public:
    explicit CopyBench(size_t largest) : block_(2 * kGuard + kAlignments + largest) {}

    void Check(const Kernels::StartCodeKernel& kernel, const uint8_t* data, size_t length, size_t align) {
        std::fill(block_.begin(), block_.end(), kMark);
        uint8_t* const base = block_.data() + kGuard;
        uint8_t* const out =
            base + (kAlignments - reinterpret_cast<uintptr_t>(base) % kAlignments + align) % kAlignments;
        const size_t want = NaiveFind(data, length);
        ASSERT_EQ(static_cast<size_t>(kernel.copy(out, data, data + length) - data), want) << "length " << length;
        ASSERT_TRUE(std::equal(data, data + want, out)) << "length " << length << ", alignment " << align;
        const auto marked = [](uint8_t byte) { return byte == kMark; };
        ASSERT_TRUE(std::all_of(block_.data(), out, marked)) << "ahead of length " << length << ", alignment " << align;
        ASSERT_TRUE(std::all_of(out + length, block_.data() + block_.size(), marked))
            << "behind length " << length << ", alignment " << align;
    }

    static constexpr size_t kAlignments = 64;

  private:
    static constexpr size_t kGuard = 128;
    static constexpr uint8_t kMark = 0xEE;

    ByteVector block_;
};

TEST_P(StartCodeKernels, CopiesEveryLengthToEveryAlignment) {
    std::mt19937 random(4);
    constexpr size_t kLongest = 400;
    CopyBench bench(kLongest);
    for (size_t length = 0; length <= kLongest; ++length) {
        for (size_t align = 0; align < CopyBench::kAlignments; ++align) {
            // Mostly pairs of zeros that are no code, and one code somewhere in most rounds.
            ByteVector data = align % 4 == 0 ? ByteVector(length, 0x80) : test::ZeroRichBytes(random, length);
            std::replace(data.begin(), data.end(), uint8_t{1}, uint8_t{2});
            if (align % 8 != 0 && length >= 3) data[2 + random() % (length - 2)] = 1;
            ASSERT_NO_FATAL_FAILURE(bench.Check(GetParam(), data.data(), length, align));
        }
    }
}

TEST_P(StartCodeKernels, CopiesFromEveryAlignmentToEveryAlignment) {
    std::mt19937 random(5);
    constexpr size_t kLongest = 700;
    CopyBench bench(kLongest);
    for (size_t from = 0; from < CopyBench::kAlignments; ++from) {
        ByteVector data = test::ZeroRichBytes(random, from + kLongest);
        // Hits from near the beginning to beyond the end.
        for (uint8_t& byte : data)
            if (byte == 1 && random() % 24 != 0) byte = 2;
        for (size_t align = 0; align < CopyBench::kAlignments; ++align)
            ASSERT_NO_FATAL_FAILURE(bench.Check(GetParam(), data.data() + from, kLongest - random() % 300, align));
    }
}

// A lone code at every place, then one behind nothing but zeros; the exact heap blocks let a sanitizer see any byte
// read or written outside.
TEST_P(StartCodeKernels, CopiesUpToACodeAtEveryPlaceAndTouchesNothingOutside) {
    for (const uint8_t filler : {uint8_t{0x55}, uint8_t{0}}) {
        for (size_t length = 3; length <= 330; ++length) {
            const auto from = std::make_unique<uint8_t[]>(length);
            const auto to = std::make_unique<uint8_t[]>(length);
            for (size_t at = 0; at + 3 <= length; ++at) {
                std::fill_n(from.get(), length, filler);
                from[at] = from[at + 1] = 0;
                from[at + 2] = 1;
                const uint8_t* const hit = GetParam().copy(to.get(), from.get(), from.get() + length);
                ASSERT_EQ(static_cast<size_t>(hit - from.get()), at) << length;
                ASSERT_TRUE(std::equal(from.get(), from.get() + at, to.get())) << length;
            }
            std::fill_n(from.get(), length, filler);
            ASSERT_EQ(GetParam().copy(to.get(), from.get(), from.get() + length), from.get() + length);
            ASSERT_TRUE(std::equal(from.get(), from.get() + length, to.get())) << length;
        }
    }
}

TEST_P(StartCodeKernels, CopiesLongRangesWithFewCodes) {
    std::mt19937 random(6);
    constexpr size_t kLength = 40'000;
    CopyBench bench(kLength);
    ByteVector data(kLength);
    for (size_t round = 0; round < 40; ++round) {
        for (uint8_t& byte : data)
            byte = static_cast<uint8_t>(random() % 3 == 0 ? 0 : random() % 255 + 1);
        for (size_t i = 2; i < data.size(); ++i)
            if (data[i - 2] == 0 && data[i - 1] == 0 && data[i] == 1) data[i] = 3;
        if (round != 0) {
            const size_t at = random() % (kLength - 3);
            data[at] = data[at + 1] = 0;
            data[at + 2] = 1;
        }
        ASSERT_NO_FATAL_FAILURE(bench.Check(GetParam(), data.data(), data.size(), round));
    }
}

TEST(StartCodeChoice, TakesAKernelByNameAndRefusesTheOthers) {
    const std::string before = Kernels::start_code_choice.Get().name;
    EXPECT_TRUE(Kernels::start_code_choice.Use("scalar"));
    EXPECT_STREQ(Kernels::start_code_choice.Get().name, "scalar");
    EXPECT_FALSE(Kernels::start_code_choice.Use("no such kernel"));
    EXPECT_STREQ(Kernels::start_code_choice.Get().name, "scalar");
    EXPECT_TRUE(Kernels::start_code_choice.Use(before));
    EXPECT_STREQ(decltype(Kernels::start_code_choice)::Best().name,
                 test::Supported(Kernels::StartCodeKernels()).front().name);
}

TEST_P(StartCodeKernels, IsNotFooledByNearMisses) {
    ByteVector data;
    while (data.size() < 600) {
        const ByteVector misses = Bytes("00 01 00 00 02 00 01 01 00 00 03 00 00 00 FF 01 00 00 81 00 80 01");
        data.insert(data.end(), misses.begin(), misses.end());
    }
    EXPECT_EQ(Find(data.data(), data.size()), data.size());
}

INSTANTIATE_TEST_SUITE_P(All, StartCodeKernels, testing::ValuesIn(test::Supported(Kernels::StartCodeKernels())),
                         [](const auto& kernel) { return std::string(kernel.param.name); });

TEST(StartCode, TheDispatchPointFindsWhatTheKernelsFind) {
    std::mt19937 random(2);
    for (size_t length = 0; length < 300; ++length) {
        const ByteVector data = test::ZeroRichBytes(random, length);
        EXPECT_EQ(static_cast<size_t>(FindStartCode(data.data(), data.data() + length) - data.data()),
                  NaiveFind(data.data(), length));
        ByteVector copy(length);
        const uint8_t* const hit = CopyToStartCode(copy.data(), data.data(), data.data() + length);
        EXPECT_EQ(static_cast<size_t>(hit - data.data()), NaiveFind(data.data(), length));
        EXPECT_TRUE(std::equal(data.data(), hit, copy.data()));
    }
    EXPECT_EQ(FindStartCode(nullptr, nullptr), nullptr);
    EXPECT_EQ(CopyToStartCode(nullptr, nullptr, nullptr), nullptr);
}

TEST(StartCode, LongCodesNeedFourBytesWithinTheRange) {
    const auto find = [](const ByteVector& d) { return FindLongStartCode(d.data(), d.data() + d.size()) - d.data(); };
    EXPECT_EQ(find(Bytes("00 00 00 01")), 0);
    EXPECT_EQ(find(Bytes("00 00 01 00 00 00 00 01")), 4);
    EXPECT_EQ(find(Bytes("05 00 00 01 00 00 01")), 7);
    EXPECT_EQ(find(Bytes("00 00 00")), 3);
    EXPECT_EQ(find({}), 0);
    // The zero in front lies outside the range.
    const ByteVector data = Bytes("00 00 00 01 09 00 00 00 01");
    EXPECT_EQ(FindLongStartCode(data.data() + 1, data.data() + data.size()) - data.data(), 5);
}

TEST(StartCode, LongCodesAgreeWithTheNaiveLoop) {
    std::mt19937 random(3);
    for (size_t round = 0; round < 3000; ++round) {
        const ByteVector data = test::ZeroRichBytes(random, random() % 80);
        size_t want = data.size();
        for (size_t i = 0; i + 4 <= data.size(); ++i) {
            if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 0 && data[i + 3] == 1) {
                want = i;
                break;
            }
        }
        ASSERT_EQ(static_cast<size_t>(FindLongStartCode(data.data(), data.data() + data.size()) - data.data()), want);
        ByteVector copy(data.size());
        const uint8_t* const hit = CopyToLongStartCode(copy.data(), data.data(), data.data() + data.size());
        ASSERT_EQ(static_cast<size_t>(hit - data.data()), want);
        ASSERT_TRUE(std::equal(data.data(), hit, copy.data()));
    }
}

TEST(StartCode, NextPrefersTheFourByteCode) {
    const ByteVector data = Bytes("00 00 00 01 65 00 00 01 41 AA");
    const StartCode first = NextStartCode(data.data(), 10, 0);
    EXPECT_EQ(first.position, 0u);
    EXPECT_EQ(first.size, 4u);
    EXPECT_EQ(first.Payload(), 4u);
    // From its second byte on, the same code is one of three bytes.
    const StartCode inner = NextStartCode(data.data(), 10, 1);
    EXPECT_EQ(inner.position, 1u);
    EXPECT_EQ(inner.size, 3u);
    const StartCode second = NextStartCode(data.data(), 10, 4);
    EXPECT_EQ(second.position, 5u);
    EXPECT_EQ(second.size, 3u);
    EXPECT_FALSE(NextStartCode(data.data(), 10, 8));
}

TEST(StartCode, TheLastThreeBytesDoNotBeginACode) {
    EXPECT_FALSE(NextStartCode(Bytes("41 00 00 01").data(), 4, 0));
    // A code of four bytes begins one byte earlier and is seen.
    EXPECT_EQ(NextStartCode(Bytes("41 00 00 00 01").data(), 5, 0).position, 1u);
    EXPECT_EQ(NextStartCode(Bytes("41 00 00 00 01").data(), 5, 0).size, 4u);
    for (uint32_t length = 0; length <= 3; ++length)
        EXPECT_FALSE(NextStartCode(Bytes("00 00 01").data(), length, 0));
    EXPECT_FALSE(NextStartCode(Bytes("00 00 01 09").data(), 4, 0xFFFFFFFF));
    EXPECT_FALSE(NextStartCode(nullptr, 0, 0));
}

TEST(StartCode, NextAgreesWithTheStepByStepRule) {
    std::mt19937 random(4);
    for (size_t round = 0; round < 5000; ++round) {
        const ByteVector data = test::ZeroRichBytes(random, random() % 90);
        for (uint32_t from = 0; from <= data.size() + 1; ++from) {
            const StartCode want = NaiveNext(data, from);
            const StartCode got = NextStartCode(data.data(), static_cast<uint32_t>(data.size()), from);
            ASSERT_EQ(got.position, want.position) << test::Hex(data) << " from " << from;
            ASSERT_EQ(got.size, want.size) << test::Hex(data) << " from " << from;
        }
    }
}

}  // namespace
}  // namespace Orvane::Muxora
