#include "iso/file_boxes.h"

#include <gtest/gtest.h>

#include "box_bytes.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

TEST(Ftyp, Mp4Is32BytesAndMov20) {
    const ByteVector mp4 =
        Bytes("00 00 00 20 66 74 79 70") + test::Text("isom") + Bytes("00 00 02 00") + test::Text("isomiso2avc1mp41");
    const ByteVector mov =
        Bytes("00 00 00 14 66 74 79 70") + test::Text("qt  ") + Bytes("00 00 02 00") + test::Text("qt  ");
    EXPECT_EQ(Written(CBox_ftyp(BoxVariant::kMp4)), mp4);
    EXPECT_EQ(Written(CBox_ftyp(BoxVariant::kMp4Large)), mp4);
    EXPECT_EQ(Written(CBox_ftyp(BoxVariant::kMp4NoSeek)), mp4);
    EXPECT_EQ(Written(CBox_ftyp(BoxVariant::kMov)), mov);
    EXPECT_EQ(Written(CBox_ftyp(BoxVariant::kMovLarge)), mov);
}

TEST(Free, Is8BytesAndItsGap) {
    CBox_free box;
    EXPECT_EQ(Written(box), Bytes("00 00 00 08 66 72 65 65"));
    box.Init(5);
    EXPECT_EQ(Written(box), Bytes("00 00 00 0D 66 72 65 65 00 00 00 00 00"));
}

TEST(Free, ShrunkToNothingItKeepsTheSizeInItsHeader) {
    CBox_free box;
    box.Init(5);
    box.Init(0);
    EXPECT_EQ(box.GetSize(), 13u);
    CGrowBuffer buffer;
    EXPECT_EQ(box.Write(&buffer), 8u);
    EXPECT_EQ(ByteVector(buffer.Data(), buffer.Data() + buffer.Size()), Bytes("00 00 00 0D 66 72 65 65"));
}

TEST(Mdat, CountsItsSamples) {
    CBox_mdat mdat(BoxVariant::kMp4);
    EXPECT_EQ(Written(mdat), Bytes("00 00 00 08 6D 64 61 74"));
    mdat.Update(100);
    mdat.Update(200);
    CGrowBuffer buffer;
    EXPECT_EQ(mdat.Write(&buffer), 8u);
    EXPECT_EQ(ByteVector(buffer.Data(), buffer.Data() + buffer.Size()), Bytes("00 00 01 34 6D 64 61 74"));
}

TEST(Mdat, WrapsAt4GiB) {
    CBox_mdat mdat(BoxVariant::kMov);
    mdat.Update(0xFFFFFFFF);
    mdat.Update(0x101);
    EXPECT_EQ(mdat.GetSize(), 0x108u);
}

TEST(Mdat, LargeSizeCountsThe16BytesOfTheHeader) {
    CBox_mdat mdat(BoxVariant::kMp4Large);
    const auto header = [&] {
        CGrowBuffer buffer;
        EXPECT_EQ(mdat.Write(&buffer), 16u);
        return ByteVector(buffer.Data(), buffer.Data() + buffer.Size());
    };
    EXPECT_EQ(header(), Bytes("00 00 00 01 6D 64 61 74  00 00 00 00 00 00 00 10"));
    mdat.Update(0xFFFFFFFF);
    mdat.Update(0x11);
    EXPECT_EQ(header(), Bytes("00 00 00 01 6D 64 61 74  00 00 00 01 00 00 00 20"));
}

TEST(Mdat, WithoutSeekingItIsThatOfTheLastSample) {
    CBox_mdat mdat(BoxVariant::kMp4NoSeek);
    mdat.Update(100);
    mdat.Update(20);
    EXPECT_EQ(mdat.GetSize(), 28u);
}

TEST(Box, ANullBufferTakesNothing) {
    EXPECT_EQ(CBox_ftyp(BoxVariant::kMp4).Write(nullptr), 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
