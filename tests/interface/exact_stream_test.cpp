// The formats with exact times through the stream component.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Muxora.h"
#include "MuxoraExt.h"
#include "support/iso_frames.h"

namespace {

using Orvane::Muxora::AttributeMap;
using Orvane::Muxora::CMuxora;
using Orvane::Muxora::IMuxoraData;
using test::Bytes;
using test::ByteVector;
using test::operator+;

// The bytes of a packet last until the next frame: also those of an initialisation segment.
TEST(ExactStream, AnInitialisationSegmentLastsUntilTheNextFrame) {
    CMuxora stream("fmp4");
    const ByteVector adts = test::AdtsFrame(60);
    AttributeMap sound = {{"frametype", 65},     {"encodetype", 33}, {"samplespersec", 48000},
                          {"bitspersample", 16}, {"channels", 2},    {"timestamp", 1000}};
    Basalt::TSharedPtr<IMuxoraData> packet;
    // A second of sound without a picture: there will be one track.
    for (int i = 0; i < 100 && packet == nullptr; ++i) {
        ASSERT_TRUE(stream.inputFrame(adts.data(), static_cast<unsigned>(adts.size()), sound));
        stream.getPacket(packet);
        sound["timestamp"] += 21;
    }
    ASSERT_NE(packet, nullptr);
    // Whatever the library gave back of its memory is taken, and written over.
    std::vector<ByteVector> others(200, ByteVector(packet->getLen(), 0xEE));
    const auto* const bytes = reinterpret_cast<const uint8_t*>(packet->getBuffer());
    const ByteVector data(bytes, bytes + packet->getLen());
    ASSERT_GT(data.size(), 400u);
    EXPECT_EQ(test::Slice(data, 0, 32),
              Bytes("00 00 00 20") + test::Text("ftypiso6") + ByteVector(4) + test::Text("iso6mp41dashcmfc"));
    EXPECT_EQ(test::Slice(data, 36, 4), test::Text("moov"));
    const size_t moov = size_t{data[32]} << 24 | size_t{data[33]} << 16 | size_t{data[34]} << 8 | data[35];
    EXPECT_EQ(32 + moov, data.size());
}

// The picture that ends a segment does not get into the segment's bytes.
TEST(ExactStream, ASegmentLastsUntilTheNextFrame) {
    CMuxora stream("fmp4");
    Basalt::TSharedPtr<IMuxoraData> packet;
    for (uint8_t i = 0; i < 60; ++i) {
        ByteVector picture = i % 30 == 0 ? test::KeyFrameOfAnEncoder() : test::PFrame(i);
        picture.resize(3000, static_cast<uint8_t>(0x40 + i));
        const AttributeMap video = {{"frametype", 86},
                                    {"framesubtype", i % 30 == 0 ? 1 : 2},
                                    {"encodetype", 2},
                                    {"width", 1920},
                                    {"height", 1080},
                                    {"rate", 25},
                                    {"timestamp", 1000 + 40 * i}};
        ASSERT_TRUE(stream.inputFrame(picture.data(), static_cast<unsigned>(picture.size()), video));
        Basalt::TSharedPtr<IMuxoraData> next;
        if (stream.getPacket(next)) packet = next;
        if (i == 30) break;
    }
    ASSERT_NE(packet, nullptr);
    const auto* const bytes = reinterpret_cast<const uint8_t*>(packet->getBuffer());
    const ByteVector data(bytes, bytes + packet->getLen());
    ASSERT_GT(data.size(), 29u * 2900);
    const auto holds = [&](uint8_t byte) {
        const ByteVector run(2000, byte);
        return std::search(data.begin(), data.end(), run.begin(), run.end()) != data.end();
    };
    EXPECT_TRUE(holds(0x40));
    EXPECT_TRUE(holds(0x40 + 29));
    EXPECT_FALSE(holds(0x40 + 30));
}

}  // namespace
