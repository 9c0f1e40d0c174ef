#include "basalt/packet.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "support/allocation_counter.h"
#include "support/hex.h"

namespace Basalt {
namespace {

using test::operator+;

test::ByteVector Held(const CPacket& packet) {
    return {packet.getBuffer(), packet.getBuffer() + packet.size()};
}

TEST(Packet, AnEmptyOneIsNotValid) {
    CPacket packet;
    EXPECT_FALSE(packet.valid());
    EXPECT_EQ(packet.getBuffer(), nullptr);
    EXPECT_EQ(packet.size(), 0u);
    EXPECT_EQ(packet.capacity(), 0u);
    EXPECT_TRUE(packet.resize(0));
    EXPECT_FALSE(packet.valid());
    EXPECT_TRUE(packet.resize(2));
    EXPECT_TRUE(packet.valid());
    EXPECT_EQ(Held(packet), test::Bytes("00 00"));
}

TEST(Packet, HasRoomAndTellsWhatIsGood) {
    CPacket packet(4);
    EXPECT_TRUE(packet.valid());
    EXPECT_EQ(packet.capacity(), 4u);
    EXPECT_EQ(packet.size(), 0u);
    uint8_t* const before = packet.getBuffer();
    std::memcpy(before, "abcd", 4);
    EXPECT_TRUE(packet.resize(3));
    EXPECT_EQ(packet.getBuffer(), before);
    EXPECT_EQ(Held(packet), test::Text("abc"));
    EXPECT_TRUE(packet.resize(6));
    EXPECT_EQ(packet.capacity(), 6u);
    EXPECT_EQ(Held(packet), test::Text("abc") + test::Bytes("00 00 00"));
}

TEST(Packet, MovesWithItsBytes) {
    CPacket first(4);
    std::memcpy(first.getBuffer(), "abcd", 4);
    first.resize(4);
    CPacket second(std::move(first));
    EXPECT_EQ(Held(second), test::Text("abcd"));
    EXPECT_FALSE(first.valid());      // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(first.capacity(), 0u);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(first.size(), 0u);      // NOLINT(bugprone-use-after-move)
    CPacket third(1);
    third = std::move(second);
    EXPECT_EQ(Held(third), test::Text("abcd"));
    EXPECT_EQ(second.size(), 0u);  // NOLINT(bugprone-use-after-move)
}

TEST(Packet, WithoutMemory) {
    CPacket packet(4);
    packet.resize(2);
    const test::FailingAllocations failing;
    EXPECT_FALSE(packet.resize(100));
    EXPECT_EQ(packet.size(), 2u);
    EXPECT_EQ(packet.capacity(), 4u);
    const CPacket none(4);
    EXPECT_FALSE(none.valid());
    EXPECT_EQ(none.capacity(), 0u);
}

}  // namespace
}  // namespace Basalt
