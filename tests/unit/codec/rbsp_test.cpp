#include "codec/rbsp.h"

#include <gtest/gtest.h>

#include <optional>

#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

std::optional<ByteVector> Message(const char* messages, uint32_t type) {
    const ByteVector bytes = Bytes(messages);
    const auto found = FindSeiMessage(bytes, type);
    return found ? std::optional(ByteVector(found->begin(), found->end())) : std::nullopt;
}

// ITU-T H.264 7.3.2.3.1
TEST(SeiMessages, AreFoundByTheirType) {
    EXPECT_EQ(Message("05 02 AA BB 06 01 CC 80", 5), Bytes("AA BB"));
    EXPECT_EQ(Message("05 02 AA BB 06 01 CC 80", 6), Bytes("CC"));
    EXPECT_EQ(Message("05 02 AA BB 06 00 80", 6), ByteVector());
    EXPECT_EQ(Message("FF 01 01 CC 80", 256), Bytes("CC"));
}

TEST(SeiMessages, WhatIsLongerThanTheRestIsNone) {
    EXPECT_EQ(Message("06 02 AA BB", 6), Bytes("AA BB"));
    EXPECT_EQ(Message("06 03 AA BB", 6), std::nullopt);
    EXPECT_EQ(Message("06 FF 00 AA BB", 6), std::nullopt);
    EXPECT_EQ(Message("05 03 AA BB", 6), std::nullopt);
    EXPECT_EQ(Message("06 FF", 6), std::nullopt);
    EXPECT_EQ(Message("06", 6), std::nullopt);
    EXPECT_EQ(Message("", 6), std::nullopt);
}

}  // namespace
}  // namespace Orvane::Muxora
