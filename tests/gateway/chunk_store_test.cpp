#include "packaging/chunk_store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <memory>
#include <string>

#include "bounds.h"

using namespace Orvane::Muxora::Gateway;

namespace {

void Put(ChunkStore& store, const std::string& text, Block& block) {
    store.Put({reinterpret_cast<const uint8_t*>(text.data()), text.size()}, block);
}

std::string Text(const Block& block) {
    return {block.bytes.begin(), block.bytes.end()};
}

std::string Chunk(const Block& block) {
    return {block.chunk.begin(), block.chunk.end()};
}

}  // namespace

TEST(ChunkStore, BlocksStandAsChunksOneBehindTheOther) {
    ChunkStore store;
    Block one;
    Block two;
    Put(store, "picture", one);
    Put(store, std::string(300, 'x'), two);
    EXPECT_EQ(Text(one), "picture");
    EXPECT_EQ(Text(two), std::string(300, 'x'));
    EXPECT_TRUE(one.storage.empty());
    EXPECT_EQ(Chunk(one), "7\r\npicture\r\n");
    EXPECT_EQ(Chunk(two), "12c\r\n" + std::string(300, 'x') + "\r\n");
    EXPECT_EQ(one.pages, two.pages);
    EXPECT_EQ(one.chunk.data() + one.chunk.size(), two.chunk.data());
}

TEST(ChunkStore, NothingIsNoChunkBecauseThatWouldBeTheEnd) {
    ChunkStore store;
    Block block;
    Put(store, "", block);
    EXPECT_EQ(block.chunk.size(), 0U);
    EXPECT_TRUE(block.bytes.empty());
}

TEST(ChunkStore, PagesThatAreFullAreFollowedByOthersAndGoWithTheirBlocks) {
    ChunkStore store;
    auto one = std::make_unique<Block>();
    Block two;
    Block large;
    Put(store, std::string(kSharedPagesBytes - 100, 'a'), *one);
    Put(store, std::string(200, 'b'), two);
    Put(store, std::string(2 * kSharedPagesBytes, 'c'), large);
    EXPECT_NE(one->pages, two.pages);
    EXPECT_EQ(two.chunk.data(), two.pages->Data());
    EXPECT_EQ(Chunk(two), "c8\r\n" + std::string(200, 'b') + "\r\n");
    EXPECT_EQ(Text(large), std::string(2 * kSharedPagesBytes, 'c'));
    const std::weak_ptr<const SharedPages> first = one->pages;
    one.reset();
    EXPECT_TRUE(first.expired());
}

TEST(ChunkStore, WithoutPagesABlockStandsByItself) {
    ChunkStore store;
    // The address space is at its end for what is larger than this.
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    rlimit none = before;
    none.rlim_cur = 1;
    Block block;
    block.storage.reserve(64);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &none), 0);
    Put(store, "picture", block);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    EXPECT_EQ(block.pages, nullptr);
    EXPECT_EQ(Text(block), "picture");
    EXPECT_EQ(block.storage.size(), 7U);
}
