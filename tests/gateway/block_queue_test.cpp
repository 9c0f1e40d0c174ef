#include "servers/block_queue.h"

#include <gtest/gtest.h>

#include <string>

using namespace Orvane::Muxora::Gateway;

namespace {

BlockPtr Media(size_t size, bool key) {
    auto block = std::make_shared<Block>();
    block->storage.resize(size);
    block->bytes = block->storage;
    block->key = key;
    return block;
}

BlockPtr Header(size_t size) {
    auto block = std::make_shared<Block>();
    block->storage.resize(size);
    block->bytes = block->storage;
    block->kind = Block::Kind::kHeader;
    return block;
}

// The sizes of all that waits.
std::vector<size_t> Waiting(BlockQueue& queue) {
    std::vector<BlockPtr> blocks;
    queue.Take(1000, blocks);
    std::vector<size_t> sizes;
    for (const BlockPtr& block : blocks)
        sizes.push_back(block->bytes.size());
    return sizes;
}

using Sizes = std::vector<size_t>;

}  // namespace

TEST(BlockQueue, BeginsWithAKeyFrame) {
    BlockQueue queue(1000);
    queue.Offer(Header(1));
    queue.Offer(Media(2, false));
    queue.Offer(Media(3, true));
    queue.Offer(Media(4, false));
    EXPECT_EQ(queue.Bytes(), 8U);
    EXPECT_EQ(Waiting(queue), (Sizes{1, 3, 4}));
    EXPECT_EQ(queue.Bytes(), 0U);
}

TEST(BlockQueue, RunsOverAndGoesOnWithTheNextKeyFrame) {
    BlockQueue queue(100);
    EXPECT_FALSE(queue.Offer(Header(10)));
    EXPECT_FALSE(queue.Offer(Media(60, true)));
    EXPECT_TRUE(queue.Offer(Media(31, false)));  // 101 bytes
    EXPECT_FALSE(queue.Offer(Media(5, false)));  // left out
    EXPECT_FALSE(queue.Offer(Media(7, true)));
    EXPECT_FALSE(queue.Offer(Media(8, false)));
    EXPECT_EQ(Waiting(queue), (Sizes{10, 7, 8}));
}

TEST(BlockQueue, AKeyFrameThatRunsOverIsWhereItGoesOn) {
    BlockQueue queue(100);
    queue.Offer(Media(60, true));
    EXPECT_TRUE(queue.Offer(Media(50, true)));
    EXPECT_EQ(Waiting(queue), (Sizes{50}));
}

TEST(BlockQueue, TakesWhatFitsIntoOneWriteAndKeepsTheRest) {
    BlockQueue queue(1000);
    for (size_t i = 1; i <= 5; ++i)
        queue.Offer(Media(i, true));
    std::vector<BlockPtr> some;
    queue.Take(2, some);
    ASSERT_EQ(some.size(), 2U);
    EXPECT_EQ(some[1]->bytes.size(), 2U);
    EXPECT_EQ(Waiting(queue), (Sizes{3, 4, 5}));
}

// The longest group of pictures that is kept, in one go, and as much again behind it.
TEST(BlockQueue, HasRoomForTheLongestGroupThatAClientBeginsWith) {
    BlockQueue queue(1 << 20);
    EXPECT_FALSE(queue.Offer(Header(10)));
    for (int i = 0; i < 3000; ++i)
        ASSERT_FALSE(queue.Offer(Media(100, i == 0))) << i;
    EXPECT_EQ(queue.Bytes(), 300010U);
}

TEST(BlockQueue, NeverHoldsMoreThanItsBounds) {
    BlockQueue queue(1 << 20);
    for (int i = 0; i < 100000; ++i) {
        queue.Offer(i % 50 == 0 ? Header(10) : Media(1000, i % 50 == 1));
        ASSERT_LE(queue.Bytes(), size_t{1} << 20);
    }
    std::vector<BlockPtr> blocks;
    queue.Take(1 << 20, blocks);
    EXPECT_LE(blocks.size(), 4096U);
}
