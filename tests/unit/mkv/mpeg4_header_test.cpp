#include "mkv/mpeg4_header.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

struct Found {
    size_t offset;
    ByteVector bytes;
    bool operator==(const Found&) const = default;
};

Found Header(const char* hex) {
    const ByteVector frame = Bytes(hex);
    const auto exact = std::make_unique<uint8_t[]>(frame.size());
    std::copy(frame.begin(), frame.end(), exact.get());
    const std::span<const uint8_t> header = FindMpeg4Header(exact.get(), static_cast<uint32_t>(frame.size()));
    if (header.empty()) return {0, {}};
    return {static_cast<size_t>(header.data() - exact.get()), {header.begin(), header.end()}};
}
const Found kNone{0, {}};

TEST(Mpeg4Header, FromTheSequenceToTheVop) {
    EXPECT_EQ(Header("00 00 01 B0 F5 00 00 01 B5 09 00 00 01 20 00 84 00 00 01 B6 10 20 30"),
              (Found{0, Bytes("00 00 01 B0 F5 00 00 01 B5 09 00 00 01 20 00 84")}));
}

TEST(Mpeg4Header, FromAVisualObjectToTheGroup) {
    EXPECT_EQ(Header("00 00 01 20 11 00 00 01 B5 09 00 00 01 20 00 84 00 00 01 B3 00 10 07 00 00 01 B6 10 20 30"),
              (Found{5, Bytes("00 00 01 B5 09 00 00 01 20 00 84")}));
}

TEST(Mpeg4Header, AnyByteB6EndsIt) {
    EXPECT_EQ(Header("00 00 01 B0 F5 11 22 33 B6 44 00 00 01 B6 10 20"), (Found{0, Bytes("00 00 01 B0 F5")}));
    // Right behind its start code it leaves one byte.
    EXPECT_EQ(Header("00 00 01 B0 B6 11 22 33 44 55"), (Found{0, Bytes("00")}));
    // A B3 needs the whole start code.
    EXPECT_EQ(Header("00 00 01 B0 F5 00 01 01 B3 77 00 00 01 B6 10"),
              (Found{0, Bytes("00 00 01 B0 F5 00 01 01 B3 77")}));
}

TEST(Mpeg4Header, WithoutAConfigurationThereIsNone) {
    EXPECT_EQ(Header("00 00 01 B6 10 20 30 40 50"), kNone);
    EXPECT_EQ(Header("00 00 01 20 10 20 00 00 01 00 50 00 00 01 B6"), kNone);
    EXPECT_EQ(Header("11 22 33 44 55 66"), kNone);
}

TEST(Mpeg4Header, BothSearchesEnd4BytesAheadOfTheEnd) {
    EXPECT_EQ(Header("00 00 01 B0"), kNone);
    EXPECT_EQ(Header("11 00 00 01 B0"), kNone);
    EXPECT_EQ(Header("00 00 01 B0 11"), (Found{0, Bytes("00")}));
    EXPECT_EQ(Header("00 00 01 B0 F5 11 22 33 44 55"), (Found{0, Bytes("00 00 01 B0 F5 11")}));
    EXPECT_EQ(Header("00"), kNone);
    EXPECT_EQ(Header("00 00 01"), kNone);
}

}  // namespace
}  // namespace Orvane::Muxora
