// H.264 and H.265 scanners: both families share one set of rules, so one file tests them side by side.
#include "codec/avc_convert.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "codec/hevc_convert.h"
#include "support/hex.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

constexpr uint32_t kAllOnes = 0xFFFFFFFF;

using Convert = uint32_t (*)(const uint8_t*, uint32_t, uint8_t*, uint32_t);
using Finder = int32_t (*)(const uint8_t*, uint32_t, uint8_t*, uint32_t);

constexpr Convert kConverts[] = {CAvcConvert::ConvertToLengthPrefixed, HevcConvertToLengthPrefixed};

struct Kind {
    Finder find;
    uint8_t mask;
    uint8_t value;
    uint32_t prefix;
    bool strict;  // either empty argument is refused, not only both
};
constexpr Kind kKinds[] = {
    {CAvcConvert::GetSps, 0x1F, 7, 0, true}, {CAvcConvert::GetPps, 0x1F, 8, 0, false},
    {HevcGetVps, 0x7E, 64, 2, true},         {HevcGetSps, 0x7E, 66, 2, true},
    {HevcGetPps, 0x7E, 68, 2, false},        {HevcGetPrefixSei, 0x7E, 78, 2, false},
};

// The result and the bytes that were written. The blocks are of exact size, so that a sanitizer sees any slip.
struct Outcome {
    uint32_t result = 0;
    ByteVector out;
    bool operator==(const Outcome&) const = default;
};

template <typename Operation>
Outcome Apply(Operation operation, const ByteVector& in, uint32_t cap) {
    const auto source = std::make_unique<uint8_t[]>(in.size());
    std::copy(in.begin(), in.end(), source.get());
    const auto target = std::make_unique<uint8_t[]>(cap);
    Outcome outcome;
    outcome.result =
        static_cast<uint32_t>(operation(source.get(), static_cast<uint32_t>(in.size()), target.get(), cap));
    if (outcome.result <= cap) outcome.out.assign(target.get(), target.get() + outcome.result);
    return outcome;
}

ByteVector Converted(const ByteVector& in) {
    const Outcome avc = Apply(kConverts[0], in, 4096);
    EXPECT_EQ(Apply(kConverts[1], in, 4096), avc);
    return avc.out;
}

// The rules as they are told, one position at a time.
bool Long(const ByteVector& d, size_t i) {
    return d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 0 && d[i + 3] == 1;
}
bool Short(const ByteVector& d, size_t i) {
    return d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 1;
}

Outcome ModelConvert(const ByteVector& in, uint32_t cap) {
    Outcome outcome;
    if (in.size() < 4) return outcome;
    const size_t limit = in.size() - 3;
    size_t i = 0;
    while (i < limit) {
        size_t start = 0;
        if (Long(in, i)) {
            start = i + 4;
        } else if (Short(in, i)) {
            start = i + 3;
        } else {
            ++i;
            continue;
        }
        i += 3;
        while (i < limit && !Long(in, i) && !Short(in, i))
            ++i;
        if (i >= limit) i = in.size();
        const size_t length = i - start;
        if (outcome.out.size() + length + 4 > cap) break;
        for (const uint32_t shift : {24u, 16u, 8u, 0u})
            outcome.out.push_back(static_cast<uint8_t>(length >> shift));
        outcome.out.insert(outcome.out.end(), in.begin() + static_cast<std::ptrdiff_t>(start),
                           in.begin() + static_cast<std::ptrdiff_t>(i));
    }
    outcome.result = static_cast<uint32_t>(outcome.out.size());
    return outcome;
}

Outcome ModelFind(const Kind& kind, const ByteVector& in, uint32_t cap) {
    if (in.size() < 4) return {};
    const size_t limit = in.size() - 3;
    for (size_t i = 0; i < limit; ++i) {
        if (!Short(in, i) || (in[i + 3] & kind.mask) != kind.value) continue;
        size_t end = i + 3;
        while (end < limit && !Long(in, end) && !Short(in, end))
            ++end;
        if (end >= limit) end = in.size();
        const size_t length = end - (i + 3);
        if (length + kind.prefix > cap) return {};
        Outcome outcome;
        if (kind.prefix != 0) outcome.out = {static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
        outcome.out.insert(outcome.out.end(), in.begin() + static_cast<std::ptrdiff_t>(i + 3),
                           in.begin() + static_cast<std::ptrdiff_t>(end));
        outcome.result = static_cast<uint32_t>(outcome.out.size());
        return outcome;
    }
    return {};
}

TEST(AvcConvert, ThreeByteStartCode) {
    EXPECT_EQ(Converted(Bytes("00 00 01 65 AA BB CC")), Bytes("00 00 00 04 65 AA BB CC"));
}

TEST(AvcConvert, FourByteStartCodes) {
    EXPECT_EQ(Converted(Bytes("00 00 00 01 67 4D 00 00 00 01 68 EE 00 00 01 65 88 84")),
              Bytes("00 00 00 02 67 4D 00 00 00 02 68 EE 00 00 00 03 65 88 84"));
}

TEST(AvcConvert, AStartCodeInTheLastThreeBytesDoesNotSplit) {
    EXPECT_EQ(Converted(Bytes("00 00 01 65 AA 00 00 01")), Bytes("00 00 00 05 65 AA 00 00 01"));
    // One of four bytes begins a byte earlier; behind it there is an empty unit.
    EXPECT_EQ(Converted(Bytes("00 00 01 65 AA 00 00 00 01")), Bytes("00 00 00 02 65 AA 00 00 00 00"));
}

TEST(AvcConvert, ZerosAheadOfAStartCode) {
    EXPECT_EQ(Converted(Bytes("00 00 00 00 01 41")), Bytes("00 00 00 01 41"));
    // Between two units they stay in the earlier one, but for the one that the four-byte code takes.
    EXPECT_EQ(Converted(Bytes("00 00 01 41 9A 00 00 00 00 00 01 41 9B")),
              Bytes("00 00 00 04 41 9A 00 00 00 00 00 02 41 9B"));
}

TEST(AvcConvert, AnEmptyUnitGetsALengthOfZero) {
    EXPECT_EQ(Converted(Bytes("00 00 01 00 00 01 65 AA")), Bytes("00 00 00 00 00 00 00 02 65 AA"));
}

TEST(AvcConvert, WithoutAStartCodeThereIsNothing) {
    EXPECT_EQ(Converted(Bytes("65 AA BB CC DD EE FF")), ByteVector{});
    for (size_t length = 0; length <= 3; ++length)
        EXPECT_EQ(Converted(test::Slice(Bytes("00 00 01"), 0, length)), ByteVector{});
}

TEST(AvcConvert, BytesAheadOfTheFirstStartCodeAreDropped) {
    EXPECT_EQ(Converted(Bytes("11 22 33 00 00 01 65 AA")), Bytes("00 00 00 02 65 AA"));
}

TEST(AvcConvert, StopsWhereTheRoomIsUsedUp) {
    const ByteVector two = Bytes("00 00 01 65 AA 00 00 01 41 BB");
    for (const Convert convert : kConverts) {
        EXPECT_EQ(Apply(convert, two, 12).out, Bytes("00 00 00 02 65 AA 00 00 00 02 41 BB"));
        EXPECT_EQ(Apply(convert, two, 11).out, Bytes("00 00 00 02 65 AA"));
        EXPECT_EQ(Apply(convert, two, 5).result, 0u);
    }
}

TEST(AvcConvert, EmptyOutputIsRefused) {
    const ByteVector in = Bytes("00 00 01 65 AA");
    ByteVector out(16);
    for (const Convert convert : kConverts) {
        EXPECT_EQ(convert(in.data(), 5, nullptr, 16), kAllOnes);
        EXPECT_EQ(convert(in.data(), 5, out.data(), 0), kAllOnes);
        EXPECT_EQ(convert(nullptr, 5, out.data(), 16), 0u);
    }
}

TEST(AvcConvert, AgreesWithTheStepByStepModel) {
    std::mt19937 random(5);
    for (size_t round = 0; round < 20000; ++round) {
        const ByteVector in = test::ZeroRichBytes(random, random() % 120);
        const uint32_t cap = 1 + static_cast<uint32_t>(random() % 240);
        const Outcome want = ModelConvert(in, cap);
        for (const Convert convert : kConverts)
            ASSERT_EQ(Apply(convert, in, cap).out, want.out) << test::Hex(in) << " into " << cap;
    }
}

// Long units are copied in pieces while their end is sought: codes of both forms, and near misses, at every place
// around the ends of the pieces, with the frame's end right behind or further off.
TEST(AvcConvert, StartCodesAtEveryPlaceOfALongUnit) {
    const ByteVector codes[] = {Bytes("00 00 01"), Bytes("00 00 00 01"), Bytes("00 00 00 00 01"),
                                Bytes("00 00 02"), Bytes("00 01"),       Bytes("00 00")};
    std::vector<size_t> places;
    for (const size_t end : {128U, 382U, 892U, 1914U, 3960U, 8054U}) {
        for (size_t place = end - 8; place < end + 8; ++place)
            places.push_back(place);
    }
    for (const ByteVector& code : codes) {
        for (const size_t place : places) {
            for (const size_t behind : {0U, 1U, 2U, 3U, 200U}) {
                const ByteVector in = Bytes("00 00 00 01") + ByteVector(place, 0xAB) + code + ByteVector(behind, 0xCD);
                const auto cap = static_cast<uint32_t>(in.size() + 16);
                const Outcome want = ModelConvert(in, cap);
                ASSERT_EQ(Apply(kConverts[0], in, cap).out, want.out) << place << ' ' << test::Hex(code);
                // No room to copy ahead of the end.
                const auto tight = static_cast<uint32_t>(want.out.size());
                ASSERT_EQ(Apply(kConverts[0], in, tight).out, want.out) << place << ' ' << test::Hex(code);
            }
        }
    }
}

TEST(AvcConvert, HasOneVirtualOperationAndNoData) {
    EXPECT_TRUE(std::has_virtual_destructor_v<CAvcConvert>);
    EXPECT_EQ(sizeof(CAvcConvert), sizeof(void*));
}

TEST(ParameterSets, AreFoundBehindBothFormsOfStartCode) {
    const ByteVector avc = Bytes("00 00 00 01 67 4D 00 1E 00 00 01 68 EE 3C 00 00 00 01 65 88");
    EXPECT_EQ(Apply(CAvcConvert::GetSps, avc, 256).out, Bytes("67 4D 00 1E"));
    EXPECT_EQ(Apply(CAvcConvert::GetPps, avc, 256).out, Bytes("68 EE 3C"));
    const ByteVector hevc =
        Bytes("00 00 00 01 40 01 0C 00 00 01 42 01 01 00 00 00 01 44 01 C1 00 00 01 4E 01 05 00 00 01 26 01 AF");
    EXPECT_EQ(Apply(HevcGetVps, hevc, 256).out, Bytes("00 03 40 01 0C"));
    EXPECT_EQ(Apply(HevcGetSps, hevc, 256).out, Bytes("00 03 42 01 01"));
    EXPECT_EQ(Apply(HevcGetPps, hevc, 256).out, Bytes("00 03 44 01 C1"));
    EXPECT_EQ(Apply(HevcGetPrefixSei, hevc, 256).out, Bytes("00 03 4E 01 05"));
}

TEST(ParameterSets, OnlyTheFirstOfAKindCounts) {
    EXPECT_EQ(Apply(CAvcConvert::GetSps, Bytes("00 00 01 67 01 00 00 01 27 02"), 256).out, Bytes("67 01"));
}

TEST(ParameterSets, TheTestLooksAtTheTypeAlone) {
    // nal_ref_idc and the forbidden bit are not looked at in H.264.
    EXPECT_EQ(Apply(CAvcConvert::GetSps, Bytes("00 00 01 E7 01 02"), 256).out, Bytes("E7 01 02"));
    // In H.265 neither the forbidden bit nor the top bit of the layer id.
    EXPECT_EQ(Apply(HevcGetVps, Bytes("00 00 01 C1 01 02"), 256).out, Bytes("00 03 C1 01 02"));
}

TEST(ParameterSets, TheLastUnitTakesTheWholeTail) {
    EXPECT_EQ(Apply(CAvcConvert::GetSps, Bytes("00 00 01 67 AA 00 00 01"), 256).out, Bytes("67 AA 00 00 01"));
}

TEST(ParameterSets, TooLongGivesNothing) {
    const auto frame = [](const char* head, size_t length) {
        ByteVector in = Bytes(head);
        in.resize(3 + length, 0x55);
        return in;
    };
    EXPECT_EQ(Apply(CAvcConvert::GetSps, frame("00 00 01 67", 256), 256).result, 256u);
    EXPECT_EQ(Apply(CAvcConvert::GetSps, frame("00 00 01 67", 257), 256).result, 0u);
    EXPECT_EQ(Apply(CAvcConvert::GetPps, frame("00 00 01 68", 257), 256).result, 0u);
    EXPECT_EQ(Apply(HevcGetSps, frame("00 00 01 42", 254), 256).result, 256u);
    EXPECT_EQ(Apply(HevcGetSps, frame("00 00 01 42", 255), 256).result, 0u);
}

TEST(ParameterSets, EmptyArguments) {
    const ByteVector in =
        Bytes("00 00 01 67 AA 00 00 01 68 BB 00 00 01 40 01 00 00 01 42 01 00 00 01 44 01 00 00 01 4E 01");
    ByteVector out(16);
    for (const Kind& kind : kKinds) {
        const auto length = static_cast<uint32_t>(in.size());
        EXPECT_EQ(kind.find(in.data(), length, nullptr, 0), -1);
        EXPECT_EQ(kind.find(in.data(), length, out.data(), 0), kind.strict ? -1 : 0);
        EXPECT_EQ(kind.find(in.data(), length, nullptr, 16), kind.strict ? -1 : 0);
        EXPECT_EQ(kind.find(nullptr, length, out.data(), 16), 0);
        for (uint32_t few = 0; few <= 3; ++few)
            EXPECT_EQ(kind.find(in.data(), few, out.data(), 16), 0);
    }
}

TEST(ParameterSets, AgreeWithTheStepByStepModel) {
    std::mt19937 random(6);
    for (size_t round = 0; round < 20000; ++round) {
        ByteVector in = test::ZeroRichBytes(random, random() % 120);
        const uint32_t cap = 1 + static_cast<uint32_t>(random() % 60);
        for (const Kind& kind : kKinds) {
            // The wanted type in a place or two.
            for (int i = 0; i < 2 && in.size() > 8; ++i)
                in[random() % in.size()] = static_cast<uint8_t>(kind.value | (random() & 0x80));
            ASSERT_EQ(Apply(kind.find, in, cap), ModelFind(kind, in, cap)) << test::Hex(in) << " into " << cap;
        }
    }
}

}  // namespace
}  // namespace Orvane::Muxora
