#include "packaging/chunk_store.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "bounds.h"

using namespace Orvane::Muxora::Gateway;

namespace {

void Put(ChunkStore& store, const std::string& text, Block& block) {
    store.Put({reinterpret_cast<const uint8_t*>(text.data()), text.size()}, block);
}

std::string Text(const Block& block) {
    return {block.bytes.begin(), block.bytes.end()};
}

// As the system reads it that sends it.
std::string InFile(const Block& block) {
    std::string text(block.chunk_end - block.chunk_begin, '\0');
    const ssize_t got =
        pread(block.file->Descriptor(), text.data(), text.size(), static_cast<off_t>(block.chunk_begin));
    return got == static_cast<ssize_t>(text.size()) ? text : "";
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
    EXPECT_EQ(InFile(one), "7\r\npicture\r\n");
    EXPECT_EQ(InFile(two), "12c\r\n" + std::string(300, 'x') + "\r\n");
    EXPECT_EQ(one.file, two.file);
    EXPECT_EQ(one.chunk_end, two.chunk_begin);
}

TEST(ChunkStore, NothingIsNoChunkBecauseThatWouldBeTheEnd) {
    ChunkStore store;
    Block block;
    Put(store, "", block);
    EXPECT_EQ(block.chunk_begin, block.chunk_end);
    EXPECT_TRUE(block.bytes.empty());
}

TEST(ChunkStore, AFileThatIsFullIsFollowedByAnotherAndGoesWithItsBlocks) {
    ChunkStore store;
    auto one = std::make_unique<Block>();
    Block two;
    Block large;
    Put(store, std::string(kPageFileBytes - 100, 'a'), *one);
    Put(store, std::string(200, 'b'), two);
    Put(store, std::string(2 * kPageFileBytes, 'c'), large);
    EXPECT_NE(one->file, two.file);
    EXPECT_EQ(two.chunk_begin, 0U);
    EXPECT_EQ(InFile(two), "c8\r\n" + std::string(200, 'b') + "\r\n");
    EXPECT_EQ(Text(large), std::string(2 * kPageFileBytes, 'c'));
    const std::weak_ptr<const PageFile> first = one->file;
    one.reset();
    EXPECT_TRUE(first.expired());
}

TEST(ChunkStore, WithoutAFileABlockStandsByItself) {
    ChunkStore store;
    // No descriptors are left.
    std::vector<int> held;
    for (int one = dup(0); one >= 0; one = dup(0))
        held.push_back(one);
    Block block;
    Put(store, "picture", block);
    for (const int one : held)
        close(one);
    EXPECT_EQ(block.file, nullptr);
    EXPECT_EQ(Text(block), "picture");
    EXPECT_EQ(block.storage.size(), 7U);
}
