// A small recording in memory, and a reader of its clusters.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "mkv/mkv_packet.h"
#include "support/hex.h"

namespace Orvane::Muxora::MkvTest {

constexpr size_t kBlock = 13;  // bytes of the block of a frame of Give

// A file in memory, of a size fixed beforehand.
class File {
  public:
    explicit File(size_t capacity) : bytes_(capacity) {}
    MXCreateParam Param() {
        MXCreateParam param{};
        param.user = this;
        param.output = [](const MXOutputBlock* block, void* user) {
            static_cast<File*>(user)->Take(*block);
            return 0;
        };
        return param;
    }
    size_t Size() const { return size_; }
    uint64_t Number(size_t at, size_t width) const {
        uint64_t value = 0;
        for (size_t i = 0; i < width; ++i)
            value = value << 8 | bytes_.at(at + i);
        return value;
    }

  private:
    void Take(const MXOutputBlock& block) {
        const auto end = static_cast<size_t>(block.offset) + block.length;
        if (end > bytes_.size()) std::abort();
        std::memcpy(bytes_.data() + block.offset, block.data, block.length);
        size_ = std::max(size_, end);
    }

    test::ByteVector bytes_;
    size_t size_ = 0;
};

// Reads the clusters from 1059 on: how many there are, and where they end. Checks each head and each block.
struct Clusters {
    uint32_t count = 0;
    uint32_t blocks = 0;
    size_t end = 1059;
};
inline Clusters ReadClusters(const File& file) {
    Clusters clusters;
    while (file.Number(clusters.end, 4) == 0x1F43B675) {
        EXPECT_EQ(file.Number(clusters.end + 12, 2), 0xE782u);
        EXPECT_EQ(file.Number(clusters.end + 14, 2), clusters.count * 1000 % 65536);
        const size_t next = clusters.end + 12 + (file.Number(clusters.end + 4, 8) & 0xFFFFFFFFFFFFFF);
        size_t block = clusters.end + 16;
        for (; block < next; block += 2 + (file.Number(block + 1, 1) & 0x7F), ++clusters.blocks)
            EXPECT_EQ(file.Number(block, 1), 0xA3u);
        EXPECT_EQ(block, next);
        clusters.end = next;
        ++clusters.count;
    }
    return clusters;
}

inline void Start(CMkvPacket& packet) {
    ASSERT_EQ(packet.init(), 0u);
    ASSERT_EQ(packet.createHeader(nullptr, 0), 0u);
}

// Hands in a video frame; allocates nothing itself.
inline uint32_t Give(CMkvPacket& packet, uint32_t sub_type, uint32_t frame_rate) {
    std::array<uint8_t, 7> data{0x00, 0x00, 0x00, 0x01, 0x65, 0x88, 0x84};
    MXFrameInfo frame{};
    frame.size = sizeof frame;
    frame.frame_pointer = data.data();
    frame.frame_size = data.size();
    frame.frame_type = MX_FRAME_VIDEO;
    frame.frame_sub_type = sub_type;
    frame.encode_type = MX_VIDEO_H264;
    frame.frame_rate = frame_rate;
    return packet.inputFrame(&frame, 0);
}

}  // namespace Orvane::Muxora::MkvTest
