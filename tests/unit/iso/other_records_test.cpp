// Boxes that are given a record of the other kind, none at all, or a track that there is not: what they write still
// agrees with the size that they state, and nothing of the record is in it.
#include <gtest/gtest.h>

#include "box_bytes.h"
#include "iso/codec_config.h"
#include "iso/header_boxes.h"
#include "iso/sample_entries.h"
#include "iso/sample_tables.h"
#include "iso/track_boxes.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

constexpr uint32_t kNoTrack = 9;

const ByteVector kFrame = Bytes("00 00 00 01 67 64 00 28 AA BB 00 00 00 01 68 EE CC 00 00 00 01 65 88 84 00");

TrackInfo Video() {
    return VideoTrackInfo{kFrame.data(), static_cast<uint32_t>(kFrame.size()), 1280, 720, 25, 2};
}
TrackInfo Audio(uint32_t encode_type = 26) {
    return AudioTrackInfo{encode_type, 2, 16, 48000};
}

template <typename Box, typename... Arguments>
void ExpectUntouched(uint32_t track, const TrackInfo* info, Arguments... arguments) {
    Box box(arguments...);
    const ByteVector before = Written(box);
    box.Init(track, info);
    EXPECT_EQ(Written(box), before);
}

TEST(OtherRecords, LeaveABoxAsItWas) {
    const TrackInfo video = Video();
    const TrackInfo audio = Audio();
    ExpectUntouched<CBox_esds>(kVideoTrack, nullptr);
    ExpectUntouched<CBox_esds>(kVideoTrack, &audio);
    ExpectUntouched<CBox_esds>(kAudioTrack, &video);
    ExpectUntouched<CBox_esds>(kExtTrack, &video);
    ExpectUntouched<CBox_esds>(kExtTrack, &audio);
    const TrackInfo speech = Audio(14);
    ExpectUntouched<CBox_esds>(kAudioTrack, &speech);
    ExpectUntouched<CBox_mdhd>(kAudioTrack, &video);
    ExpectUntouched<CBox_mdhd>(kExtTrack, &audio);
    ExpectUntouched<CBox_stsd>(kVideoTrack, nullptr, BoxVariant::kMp4);
    ExpectUntouched<CBox_stsd>(kVideoTrack, &audio, BoxVariant::kMp4);
    ExpectUntouched<CBox_stsd>(kNoTrack, &video, BoxVariant::kMp4);
    ExpectUntouched<CBox_moov>(kVideoTrack, nullptr, BoxVariant::kMp4);
}

TEST(OtherRecords, ATrackThatThereIsNotHasNoSamples) {
    CBox_moov moov(BoxVariant::kMp4);
    const TrackInfo video = Video();
    moov.Init(kVideoTrack, &video);
    moov.Init(kNoTrack, &video);
    const ByteVector before = Written(moov);
    SampleInfo sample{kFrame.data(), static_cast<uint32_t>(kFrame.size()), 1, 25, 1000};
    EXPECT_TRUE(moov.Update(kNoTrack, sample));
    EXPECT_EQ(Written(moov), before);
    // And a description without a codec takes none.
    CBox_stsd empty(BoxVariant::kMp4);
    const ByteVector nothing = Written(empty);
    empty.Update(sample);
    EXPECT_EQ(Written(empty), nothing);
}

TEST(OtherRecords, AConfigurationWithoutAFrameIsThatOfNoSets) {
    const VideoTrackInfo none{};
    CBox_avcC avc;
    CBox_hvcC hevc;
    const ByteVector avc_before = Written(avc);
    const ByteVector hevc_before = Written(hevc);
    avc.Init(none);
    hevc.Init(none);
    EXPECT_EQ(Written(avc), avc_before);
    EXPECT_EQ(Written(hevc), hevc_before);
}

// ISO/IEC 14496-12 8.4.3 and 12.1.3: a handler without a type, and a picture of no size.
TEST(OtherRecords, HandlersAndPictures) {
    const TrackInfo video = Video();
    const TrackInfo audio = Audio();
    CBox_hdlr handler;
    handler.Init(kVideoTrack, nullptr);
    EXPECT_EQ(handler.GetSize(), 8u) << "as it was made";
    handler.Init(kNoTrack, &video);
    EXPECT_EQ(test::Slice(Written(handler), 16, 4), ByteVector(4));
    CBox_avc1 avc;
    avc.Init(kVideoTrack, &audio);
    EXPECT_EQ(test::Slice(Written(avc), 32, 4), ByteVector(4));
    CBox_hev1 hevc;
    hevc.Init(kVideoTrack, &audio);
    EXPECT_EQ(test::Slice(Written(hevc), 32, 4), ByteVector(4));
}

// ISO/IEC 14496-12 8.3.2: 92 bytes; the fields that a track without a kind of its own leaves at 0.
TEST(OtherRecords, TrackHeaders) {
    const TrackInfo video = Video();
    const TrackInfo audio = Audio();
    const auto header = [](uint32_t track, const TrackInfo* info) {
        CBox_tkhd box;
        box.Init(track, info);
        return Written(box);
    };
    EXPECT_EQ(test::Slice(header(kVideoTrack, &video), 84, 8), Bytes("05000000 02D00000"));
    EXPECT_EQ(test::Slice(header(kVideoTrack, &audio), 84, 8), ByteVector(8));
    EXPECT_EQ(test::Slice(header(kNoTrack, &video), 44, 2), Bytes("00 00"));
    EXPECT_EQ(test::Slice(header(kAudioTrack, &audio), 44, 2), Bytes("01 00"));
}

}  // namespace
}  // namespace Orvane::Muxora
