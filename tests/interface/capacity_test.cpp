// What the components tell of each format's codecs, in CodecNumber: the whole table, and any rate, width and channels
// unless something else stands here.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "Muxora.h"
#include "MuxoraAPI.h"

namespace {

using namespace Orvane::Muxora;

struct Row {
    const char* key;
    std::vector<uint32_t> video;
    std::vector<uint32_t> audio;
};

std::vector<uint32_t> Codecs(const char* key, CapacityType type) {
    const void* table = nullptr;
    int count = 0;
    if (CMuxora::supports(key)) {
        EXPECT_TRUE(CMuxora(key).getPacketCapacity(type, &table, &count)) << key;
    } else {
        EXPECT_TRUE(CFilePackage(key).getPacketCapacity(type, &table, &count)) << key;
    }
    std::vector<uint32_t> codecs;
    for (int i = 0; i < count; ++i) {
        const MXCapacityEntry& entry = static_cast<const MXCapacityEntry*>(table)[i];
        codecs.push_back(entry.codec);
        const std::string name(key);
        const bool sound = type == CAPACITY_AUDIO;
        const bool flv_pcm = name == "flv" && sound && entry.codec != CODEC_AAC;
        const bool gays = name == "gaysps" && sound;
        EXPECT_EQ(entry.samples_per_sec, flv_pcm ? 11000u : gays ? 8000u : 0u) << key << ' ' << i;
        EXPECT_EQ(entry.bits_per_sample, flv_pcm ? 8u : 0u) << key << ' ' << i;
        EXPECT_EQ(entry.channels, flv_pcm || gays ? 1u : 0u) << key << ' ' << i;
        for (const uint32_t reserved : entry.reserved)
            EXPECT_EQ(reserved, 0u) << key << ' ' << i;
    }
    return codecs;
}

TEST(Capacity, OfEveryFormat) {
    const Row rows[] = {
        {"ovx", {2, 1, 5, 3, 6, 7}, {28, 31, 33, 38, 21}},
        {"rtp", {2, 5, 1, 3}, {28, 31, 33, 38, 21}},
        {"mp4", {2, 1, 5, 3}, {33, 38}},
        {"mov", {2, 1, 5, 3}, {33, 38}},
        {"mp464", {2, 1, 5, 3}, {33, 38}},
        {"avi", {2, 1, 5, 3}, {28, 31, 33, 30, 24}},
        {"asf", {2, 1, 3}, {28, 31, 33, 30, 24}},
        {"flv", {2}, {33, 21, 30}},
        {"mkv", {2, 1}, {33}},
        {"wav", {}, {28, 30}},
        {"ps", {2, 1, 5, 6}, {33, 38}},
        {"ovps", {2, 1, 5, 3, 6}, {33, 38}},
        {"gaysps", {2, 1, 5}, {28, 32, 22}},
        {"gdps", {2, 1}, {28, 31}},
        {"ts", {2, 1, 5, 6}, {28, 31, 33, 38}},
        {"fmp4", {2, 5, 1, 3, 6}, {33, 38, 28, 31, 30, 21}},
        {"hmp4", {2, 5, 1, 3, 6}, {33, 38, 28, 31, 30, 21}},
        {"xflv", {2, 5}, {33, 38, 28, 31, 21, 30}},
        {"xmkv", {2, 5, 1, 3}, {33, 38, 28, 31, 21, 30}},
        {"xts", {2, 5, 1, 6}, {33, 38}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(Codecs(row.key, CAPACITY_VIDEO), row.video) << row.key;
        EXPECT_EQ(Codecs(row.key, CAPACITY_AUDIO), row.audio) << row.key;
    }
}

}  // namespace
