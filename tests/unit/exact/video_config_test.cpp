#include "exact/video_config.h"

#include <gtest/gtest.h>

#include "support/frames.h"
#include "support/parameter_sets.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

struct VideoConfig : testing::Test {
    CVideoConfig config;

    std::optional<FrameNals> Take(ByteVector bytes, uint32_t codec) {
        return config.Take(test::VideoFrame(bytes, codec, MX_SUB_I));
    }
    ByteVector Sets() const {
        ByteVector out(config.Sets().UnitsSize());
        ByteCursor cursor(out.data(), static_cast<uint32_t>(out.size()));
        config.Sets().WriteAnnexB(cursor);
        return out;
    }
    ByteVector Headers() const { return {config.Mpeg4Headers().begin(), config.Mpeg4Headers().end()}; }

    const ByteVector high = test::Units({test::HighSps(), test::HighPps()});
    const ByteVector baseline = test::Units({test::BaselineSps(), test::BaselinePps()});
    const ByteVector slice = test::Units({Bytes("65 88 84")});
    const ByteVector hevc = test::HevcSets() + Bytes("00 00 00 01 26 01 AF 10");
    const ByteVector headers = Bytes("00 00 01 00 00 00 01 20 00 C4 88");
    const ByteVector others = Bytes("00 00 01 00 00 00 01 20 00 C4 89");
    const ByteVector vop = Bytes("00 00 01 B6 10 60 11");
};

TEST_F(VideoConfig, TellsOnceWhatIsNew) {
    ASSERT_TRUE(Take(high + slice, MX_VIDEO_H264));
    EXPECT_TRUE(config.Complete());
    EXPECT_TRUE(config.Changed());
    EXPECT_EQ(config.ReorderDepth(), 2u);
    config.Told();
    // Its other number is no other codec.
    ASSERT_TRUE(Take(high + slice, MX_VIDEO_H264_ALT));
    EXPECT_FALSE(config.Changed());
    ASSERT_TRUE(Take(baseline + slice, MX_VIDEO_H264));
    EXPECT_TRUE(config.Changed());
    EXPECT_EQ(config.ReorderDepth(), 0u);
}

TEST_F(VideoConfig, UndoForgetsOtherSets) {
    Take(high + slice, MX_VIDEO_H264);
    config.Told();
    Take(baseline + slice, MX_VIDEO_H264);
    config.Told();
    config.Undo();
    EXPECT_EQ(Sets(), high);
    EXPECT_FALSE(config.Changed());
    EXPECT_EQ(config.ReorderDepth(), 2u);
}

TEST_F(VideoConfig, UndoForgetsAnotherCodec) {
    Take(high + slice, MX_VIDEO_H264);
    config.Told();
    Take(hevc, MX_VIDEO_H265);
    EXPECT_EQ(Sets(), test::HevcSets());
    config.Undo();
    EXPECT_EQ(Sets(), high);
    EXPECT_FALSE(config.Changed());
    // What goes on behind it needs no sets of its own.
    const auto found = Take(slice, MX_VIDEO_H264);
    EXPECT_TRUE(found && found->has_picture && config.Complete());
    EXPECT_FALSE(config.Changed());
    Take(headers + vop, MX_VIDEO_MPEG4);
    config.Undo();
    EXPECT_EQ(Sets(), high);
}

TEST_F(VideoConfig, UndoForgetsOtherHeaders) {
    Take(vop, MX_VIDEO_MPEG4);
    EXPECT_FALSE(config.Complete());
    Take(headers + vop, MX_VIDEO_MPEG4);
    EXPECT_TRUE(config.Complete());
    config.Told();
    Take(others + vop, MX_VIDEO_MPEG4);
    EXPECT_EQ(Headers(), others);
    EXPECT_TRUE(config.Changed());
    config.Undo();
    EXPECT_EQ(Headers(), headers);
    EXPECT_FALSE(config.Changed());
}

TEST_F(VideoConfig, AFrameWithoutAStartCodeChangesNothing) {
    Take(high + slice, MX_VIDEO_H264);
    config.Told();
    EXPECT_FALSE(Take(ByteVector(50, 7), MX_VIDEO_H265));
    EXPECT_EQ(Sets(), high);
    EXPECT_FALSE(config.Changed());
}

TEST_F(VideoConfig, UndoOfAFrameThatBroughtNothing) {
    Take(headers + vop, MX_VIDEO_MPEG4);
    Take(vop, MX_VIDEO_MPEG4);
    config.Told();
    config.Undo();
    EXPECT_TRUE(config.Changed());
    EXPECT_EQ(Headers(), headers);
}

TEST_F(VideoConfig, WithoutAnSpsTheRecordTellsTheSize) {
    ByteVector bytes = slice;
    const MXFrameInfo frame = test::VideoFrame(bytes, MX_VIDEO_H264, MX_SUB_I);
    ASSERT_TRUE(config.Take(frame));
    EXPECT_EQ(config.Details(frame).width, 1920u);
    EXPECT_EQ(config.Details(frame).height, 1080u);
}

}  // namespace
}  // namespace Orvane::Muxora
