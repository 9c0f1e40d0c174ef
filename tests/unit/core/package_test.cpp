#include "core/package.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/sink.h"

namespace Orvane::Muxora {
namespace {

constexpr MXCapacityEntry kVideo[] = {{1, 0, 0, 0, {}}, {2, 0, 0, 0, {}}};
constexpr MXCapacityEntry kAudio[] = {{3, 0, 0, 0, {}}};

// A format with nothing of its own.
class Plain : public CPackage {
  public:
    using CPackage::AllocateLarge;
    using CPackage::CPackage;
    using CPackage::EmitAt;
    using CPackage::EmitNext;
    uint32_t init() override { return MX_OK; }
    uint32_t uninit() override { return MX_OK; }
    uint32_t createHeader(MXHeaderInfo* /*info*/, uint32_t /*unused*/) override { return MX_OK; }
    uint32_t inputFrame(MXFrameInfo* /*frame*/, uint32_t /*reserved*/) override { return MX_OK; }
    uint32_t createTailer(const void* /*info*/, uint32_t /*unused*/) override { return MX_OK; }
    bool checkFrame(const MXFrameInfo* /*frame*/) const override { return true; }
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override {
        return Capacity(type, kVideo, kAudio, table, count);
    }
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override {
        return Capacity(type, {}, kAudio, table, count);
    }
};

int g_allocated = 0;
uint32_t g_freed = 0;

void* CountingAlloc(int32_t size) {
    g_allocated += size;
    return std::malloc(static_cast<size_t>(size));
}

void CountingFree(void* buffer, uint32_t size) {
    g_freed += size;
    std::free(buffer);
}

void* NoMemory(int32_t /*size*/) {
    return nullptr;
}

class Package : public testing::Test {
  protected:
    void SetUp() override {
        g_allocated = 0;
        g_freed = 0;
    }
    test::Sink sink;
};

TEST_F(Package, WithoutARecordOutputIsDropped) {
    Plain package(16);
    EXPECT_EQ(package.format(), 16u);
    EXPECT_EQ(package.EmitAt("abc", 3, 7), 3u);
    EXPECT_EQ(package.EmitNext("abc", 3), 3u);
}

TEST_F(Package, NullMembersKeepTheirDefaultsWhileTheOthersTakeEffect) {
    MXCreateParam param = sink.Param();
    Plain package(3, &param);
    EXPECT_EQ(package.EmitNext("abc", 3), 3u);
    EXPECT_EQ(sink.file, test::Text("abc"));
    EXPECT_NE(package.AllocateLarge(0x200000), nullptr);  // the default allocator
    EXPECT_EQ(g_allocated, 0);

    MXCreateParam only_pair{};
    only_pair.alloc = CountingAlloc;
    only_pair.free = CountingFree;
    Plain silent(3, &only_pair);
    EXPECT_EQ(silent.EmitNext("abc", 3), 3u);
    {
        const auto buffer = silent.AllocateLarge(100);
        EXPECT_EQ(g_allocated, 100);
        EXPECT_EQ(g_freed, 0u);
    }
    EXPECT_EQ(g_freed, 100u);
}

TEST_F(Package, ANullAllocKeepsTheDefaultBesideAFreeOfTheCallers) {
    MXCreateParam param{};
    param.free = CountingFree;
    Plain package(3, &param);
    { const auto buffer = package.AllocateLarge(50); }
    EXPECT_EQ(g_allocated, 0);
    EXPECT_EQ(g_freed, 50u);

    MXCreateParam alloc_only{};
    alloc_only.alloc = CountingAlloc;
    Plain other(3, &alloc_only);
    { const auto buffer = other.AllocateLarge(60); }
    EXPECT_EQ(g_allocated, 60);
    EXPECT_EQ(g_freed, 50u);
}

TEST_F(Package, AnAllocatorWithoutMemoryGivesNull) {
    MXCreateParam param{};
    param.alloc = NoMemory;
    Plain package(3, &param);
    EXPECT_EQ(package.AllocateLarge(50), nullptr);
    Plain defaults(3);
    EXPECT_EQ(defaults.AllocateLarge(0x80000000u), nullptr);  // no signed size
}

TEST_F(Package, AbsoluteBlocks) {
    MXCreateParam param = sink.Param();
    Plain package(0, &param);
    // The members of the record stand on 4-byte boundaries; the copies can be looked at by reference.
    struct Copy {
        uint32_t size;
        const void* data;
        uint32_t length;
        uint32_t seek_type;
        uint32_t offset32;
        int64_t offset;
    };
    Copy seen{};
    package.setCallback(
        [](const MXOutputBlock* block, void* user) -> int32_t {
            *static_cast<Copy*>(user) = {block->size,      block->data,     block->length,
                                         block->seek_type, block->offset32, block->offset};
            return -1;  // not read
        },
        &seen);
    const char* const bytes = "abcd";
    EXPECT_EQ(package.EmitAt(bytes, 4, 0x123456789A), 4u);
    EXPECT_EQ(seen.size, 32u);
    EXPECT_EQ(seen.data, bytes);
    EXPECT_EQ(seen.length, 4u);
    EXPECT_EQ(seen.seek_type, 0u);
    EXPECT_EQ(seen.offset32, 0x3456789Au);
    EXPECT_EQ(seen.offset, 0x123456789A);
    EXPECT_EQ(package.EmitNext(bytes, 2), 2u);
    EXPECT_EQ(seen.size, 32u);
    EXPECT_EQ(seen.length, 2u);
    EXPECT_EQ(seen.seek_type, 1u);
    EXPECT_EQ(seen.offset32, 0u);
    EXPECT_EQ(seen.offset, 0);
}

TEST_F(Package, WhatTheCallbackLeavesInLengthIsWhatWasWritten) {
    sink.accept = {0, 2, -1};
    MXCreateParam param = sink.Param();
    Plain package(0, &param);
    EXPECT_EQ(package.EmitAt("abc", 3, 0), 0u);
    EXPECT_EQ(package.EmitNext("abc", 3), 2u);
    EXPECT_EQ(package.EmitAt("abc", 3, 0), 3u);
}

TEST_F(Package, SetCallbackReplacesFunctionAndUser) {
    Plain package(0);
    EXPECT_EQ(package.setCallback(test::Sink::Output, &sink), 0u);
    package.EmitNext("x", 1);
    EXPECT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(package.setCallback(nullptr, nullptr), 0u);
    EXPECT_EQ(package.EmitNext("x", 1), 1u);
    EXPECT_EQ(sink.blocks.size(), 1u);
}

TEST_F(Package, DefaultOperations) {
    Plain package(0);
    Basalt::CPacket packet(10);
    EXPECT_EQ(package.inputFrameEx(nullptr, packet), 0u);
    EXPECT_EQ(packet.size(), 0u);
    EXPECT_EQ(package.setExtData("abc", 3), 0u);
    const void* data = &sink;
    uint32_t length = 77;
    EXPECT_EQ(package.getExtData(&data, &length), 0u);
    EXPECT_EQ(data, &sink);
    EXPECT_EQ(length, 77u);
    EXPECT_EQ(package.setEncryptType(1, "key", 3), 0u);
}

TEST_F(Package, DefaultBackupClearsFourFields) {
    Plain package(0);
    MXOutputBlock block{};
    block.size = 1;
    block.data = &sink;
    block.length = 2;
    block.seek_type = 3;
    block.offset32 = 4;
    block.offset = 5;
    EXPECT_EQ(package.getBackup(&block), 0u);
    EXPECT_EQ(block.size, 1u);
    EXPECT_TRUE(block.data == nullptr);
    EXPECT_EQ(block.length, 0u);
    EXPECT_EQ(block.seek_type, 0u);
    EXPECT_EQ(block.offset32, 0u);
    EXPECT_TRUE(block.offset == 5);
    EXPECT_EQ(package.getBackup(nullptr), 0u);
}

TEST_F(Package, Capacity) {
    Plain package(0);
    const void* table = nullptr;
    uint32_t count = 9;
    EXPECT_EQ(package.getEncodeCapacity(0, &table, &count), 0u);
    EXPECT_EQ(table, kVideo);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(package.getEncodeCapacity(1, &table, &count), 0u);
    EXPECT_EQ(table, kAudio);
    EXPECT_EQ(count, 1u);
    // A format without video leaves the pointer alone.
    EXPECT_EQ(package.getCodecCapacity(0, &table, &count), 0u);
    EXPECT_EQ(table, kAudio);
    EXPECT_EQ(count, 0u);
    count = 9;
    EXPECT_EQ(package.getCodecCapacity(2, &table, &count), 3u);
    EXPECT_EQ(table, kAudio);
    EXPECT_EQ(count, 9u);
    EXPECT_EQ(package.getCodecCapacity(0, nullptr, &count), 3u);
    EXPECT_EQ(package.getCodecCapacity(0, &table, nullptr), 3u);
}

TEST_F(Package, HasData) {
    test::ByteVector bytes{1};
    MXFrameInfo frame{};
    EXPECT_FALSE(HasData(nullptr));
    frame.frame_size = 1;
    EXPECT_FALSE(HasData(&frame));
    frame.frame_pointer = bytes.data();
    EXPECT_TRUE(HasData(&frame));
    frame.frame_size = 0;
    EXPECT_FALSE(HasData(&frame));
}

}  // namespace
}  // namespace Orvane::Muxora
