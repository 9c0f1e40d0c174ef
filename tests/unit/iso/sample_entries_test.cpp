#include "iso/sample_entries.h"

#include <gtest/gtest.h>

#include "box_bytes.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

// `count` bytes behind a start code: a NAL unit that begins with `head` and goes on with FFs.
ByteVector Nal(const char* head, size_t count) {
    ByteVector nal = Bytes(head);
    nal.resize(count, 0xFF);
    return Bytes("00 00 00 01") + nal;
}

TrackInfo Video(const ByteVector& frame, uint32_t encode_type) {
    VideoTrackInfo info;
    info.data = frame.data();
    info.length = static_cast<uint32_t>(frame.size());
    info.width = 1920;
    info.height = 1080;
    info.frame_rate = 25;
    info.encode_type = encode_type;
    return info;
}

TrackInfo Audio(uint32_t encode_type, uint32_t rate, uint32_t channels) {
    return AudioTrackInfo{encode_type, channels, 16, rate};
}

// The 78 bytes that all visual entries share.
ByteVector VisualFields(const char* size = "07 80 04 38") {
    return ByteVector(6) + Bytes("00 01") + ByteVector(16) + Bytes(size) + Bytes("00 48 00 00 00 48 00 00") +
           ByteVector(4) + Bytes("00 01") + ByteVector(32) + Bytes("00 18 FF FF");
}

// stsd with one entry: everything behind the entry's header.
ByteVector EntryOf(uint32_t trackType, const TrackInfo& info, BoxVariant variant = BoxVariant::kMp4) {
    CBox_stsd stsd(variant);
    stsd.Init(trackType, &info);
    const ByteVector bytes = Written(stsd);
    EXPECT_EQ(test::Slice(bytes, 8, 8), Bytes("00 00 00 00 00 00 00 01"));
    return test::Slice(bytes, 16, bytes.size() - 16);
}

// --- H.264

TEST(AvcC, SpsOf20AndPpsOf5MakeAPayloadOf36Bytes) {
    const ByteVector frame = Nal("67 64 00 28", 20) + Nal("68 EE 3C", 5) + Nal("65 88", 100);
    const ByteVector entry = EntryOf(1, Video(frame, 2));
    ByteVector sps = Bytes("67 64 00 28");
    sps.resize(20, 0xFF);
    EXPECT_EQ(entry, Bytes("00 00 00 82") + test::Text("avc1") + VisualFields() + Bytes("00 00 00 2C") +
                         test::Text("avcC") + Bytes("01 64 00 28 FF E1 00 14") + sps + Bytes("01 00 05") +
                         Bytes("68 EE 3C FF FF"));
}

TEST(AvcC, TheSecondNumberOfH264TakesTheSameEntry) {
    const ByteVector frame = Nal("67 64 00 28", 20) + Nal("68 EE 3C", 5) + Nal("65 88", 100);
    EXPECT_EQ(EntryOf(1, Video(frame, 4)), EntryOf(1, Video(frame, 2)));
}

TEST(AvcC, WithoutParameterSetsItHasItsDefaults) {
    const ByteVector frame = Nal("65 88", 100);
    const ByteVector entry = EntryOf(1, Video(frame, 2));
    EXPECT_EQ(test::Slice(entry, 86, 19), Bytes("00 00 00 13 61 76 63 43  01 4D 40 1E FF E0 00 00 00 00 00"));
}

TEST(AvcC, AnSpsOfMoreThan256BytesIsLeftOut) {
    const ByteVector fits = Nal("67 64 00 28", 256) + Nal("68 EE", 4);
    EXPECT_EQ(test::Slice(EntryOf(1, Video(fits, 2)), 94, 8), Bytes("01 64 00 28 FF E1 01 00"));
    const ByteVector frame = Nal("67 64 00 28", 257) + Nal("68 EE", 4);
    EXPECT_EQ(test::Slice(EntryOf(1, Video(frame, 2)), 86, 23),
              Bytes("00 00 00 17 61 76 63 43  01 4D 40 1E FF E0 00 00 01 00 04 68 EE FF FF"));
}

TEST(AvcC, AnSpsOfOneByteReadsNothingBehindIt) {
    const ByteVector frame = Nal("67", 1) + Nal("68 EE", 4);
    EXPECT_EQ(test::Slice(EntryOf(1, Video(frame, 2)), 94, 9), Bytes("01 00 00 00 FF E1 00 01 67"));
}

// --- H.265

TEST(HvcC, ParameterSetsOf24And40And8BytesMakeAPayloadOf110) {
    // profile_tier_level: Main, level 4.0; 4:2:0, 8 bits.
    const ByteVector sps_head = Bytes("42 01 01 01 60 00 00 03 00 90 00 00 03 00 00 03 00 78 A0 03 C0 80 10 E5 96");
    ByteVector sps = sps_head;
    sps.resize(40, 0xAA);
    const ByteVector frame = Nal("40 01", 24) + Bytes("00 00 00 01") + sps + Nal("44 01", 8) + Nal("26 01", 100);
    const ByteVector entry = EntryOf(1, Video(frame, 12));
    ByteVector vps = Bytes("40 01");
    vps.resize(24, 0xFF);
    ByteVector pps = Bytes("44 01");
    pps.resize(8, 0xFF);
    ASSERT_EQ(entry.size(), 86u + 118);
    EXPECT_EQ(test::Slice(entry, 0, 94),
              Bytes("00 00 00 CC") + test::Text("hev1") + VisualFields() + Bytes("00 00 00 76") + test::Text("hvcC"));
    EXPECT_EQ(test::Slice(entry, 94, 110),
              Bytes("01  01  60 00 00 00  90 00 00 00 00 00  78  F0 00  FC  FD  F8  F8  00 00  0F  03"
                    "20 00 01 00 18") +
                  vps + Bytes("21 00 01 00 28") + sps + Bytes("22 00 01 00 08") + pps);
}

TEST(HvcC, WithoutParameterSetsItHasItsDefaults) {
    const ByteVector frame = Nal("26 01", 100);
    const ByteVector entry = EntryOf(1, Video(frame, 12));
    EXPECT_EQ(test::Slice(entry, 86, 31), Bytes("00 00 00 1F 68 76 63 43  01  00  00 00 00 00  00 00 00 00 00 00  00"
                                                "F0 00  FC  FD  F8  F8  00 00  0F  00"));
}

TEST(HvcC, SetsThatAreMissingAreLeftOut) {
    const ByteVector frame = Nal("44 01", 8) + Nal("26 01", 100);
    const ByteVector entry = EntryOf(1, Video(frame, 12));
    EXPECT_EQ(test::Slice(entry, 86 + 8 + 22, 14), Bytes("01  22 00 01 00 08  44 01 FF FF FF FF FF FF"));
    EXPECT_EQ(entry.size(), 86u + 8 + 36);
}

TEST(HvcC, ASetOf254BytesFitsAndOneOf255IsLeftOut) {
    const ByteVector frame = Nal("40 01", 255) + Nal("42 01", 254) + Nal("44 01", 8);
    const ByteVector entry = EntryOf(1, Video(frame, 12));
    ASSERT_EQ(entry.size(), 86u + 8 + 23 + 3 + 256 + 3 + 10);
    EXPECT_EQ(test::Slice(entry, 86 + 8 + 22, 6), Bytes("02  21 00 01 00 FE"));
}

// --- MPEG-4 part 2 and motion JPEG

// esds for MPEG-4 video with `specific` as its configuration.
ByteVector Mpeg4Esds(const ByteVector& specific) {
    const auto u8 = [](size_t value) { return ByteVector{static_cast<uint8_t>(value)}; };
    const size_t config = 13 + 5 + specific.size();
    return Bytes("00 00 00") + u8(8 + 9 + config + 14) + test::Text("esds") + ByteVector(4) + Bytes("03 80 80 80") +
           u8(config + 14) + Bytes("00 01 10  04 80 80 80") + u8(config) + Bytes("20 11") + ByteVector(11) +
           Bytes("05 80 80 80") + u8(specific.size()) + specific + Bytes("06 80 80 80 01 02");
}

const char* const kEmptyMpeg4Esds =
    "00 00 00 2C 65 73 64 73  00 00 00 00  03 80 80 80 1B 00 01 10  04 80 80 80 0D 20 11 00 00 00 00 00 00 00 00 00 00 "
    "00  06 80 80 80 01 02";

SampleInfo Sample(const ByteVector& frame, uint32_t sub_type = 0) {
    return {frame.data(), static_cast<uint32_t>(frame.size()), sub_type, 25, 0};
}

TEST(Mp4v, TakesItsConfigurationFromTheIntraFramesAndTheLastOneCounts) {
    const ByteVector config = Bytes("00 00 01 B0 01 00 00 01 B5 09");
    const ByteVector frame = config + Bytes("00 00 01 B6 10 11 12 13 14");
    const TrackInfo info = Video(frame, 1);
    CBox_stsd stsd(BoxVariant::kMp4);
    stsd.Init(1, &info);
    // The frame that opens the track is not looked at before it passes as a sample.
    EXPECT_EQ(Written(stsd), Bytes("00 00 00 92") + test::Text("stsd") + Bytes("00 00 00 00 00 00 00 01 00 00 00 82") +
                                 test::Text("mp4v") + VisualFields() + Bytes(kEmptyMpeg4Esds));
    stsd.Update(Sample(frame));
    EXPECT_EQ(test::Slice(Written(stsd), 102, 59), Mpeg4Esds(config));

    const ByteVector longer = Bytes("00 00 01 20 00 C8 88") + frame;
    for (const uint32_t other : {1U, 2U, 8U, 18U, 20U}) {
        stsd.Update(Sample(longer, other));
        EXPECT_EQ(test::Slice(Written(stsd), 102, 59), Mpeg4Esds(config)) << other;
    }
    stsd.Update(Sample(longer));
    EXPECT_EQ(test::Slice(Written(stsd), 102, 66), Mpeg4Esds(Bytes("00 00 01 20 00 C8 88") + config));
}

TEST(Mp4v, AFrameWithoutAConfigurationKeepsTheOneBeforeAndOneWithoutAPictureDropsIt) {
    const ByteVector config = Bytes("00 00 01 B0 01");
    const ByteVector frame = config + Bytes("00 00 01 B6 10 11 12 13 14");
    const TrackInfo info = Video(frame, 1);
    CBox_stsd stsd(BoxVariant::kMp4);
    stsd.Init(1, &info);
    stsd.Update(Sample(frame));
    stsd.Update(Sample(Bytes("00 00 01 B6 10 11 12 13 14")));
    EXPECT_EQ(test::Slice(Written(stsd), 102, 54), Mpeg4Esds(config));
    stsd.Update(Sample(Bytes("00 00 01 B0 01 02 03 04 05")));
    EXPECT_EQ(test::Slice(Written(stsd), 102, 44), Bytes(kEmptyMpeg4Esds));
}

TEST(Mp4v, AConfigurationOfMoreThan256BytesIsNotTaken) {
    ByteVector frame = Bytes("00 00 01 B0 01") + Bytes("00 00 01 B6 10 11 12 13 14");
    const TrackInfo info = Video(frame, 1);
    CBox_stsd stsd(BoxVariant::kMp4);
    stsd.Init(1, &info);
    stsd.Update(Sample(frame));
    const ByteVector before = Written(stsd);
    ByteVector huge = Bytes("00 00 01 B0");
    huge.resize(257, 0x55);
    huge = huge + Bytes("00 00 01 B6 10 11 12 13 14");
    stsd.Update(Sample(huge));
    EXPECT_EQ(Written(stsd), before);
}

TEST(Mp4v, AConfigurationOf256BytesIsWrittenWhole) {
    ByteVector config = Bytes("00 00 01 B0");
    config.resize(256, 0x55);
    const ByteVector frame = config + Bytes("00 00 01 B6 10 11 12 13 14");
    const TrackInfo info = Video(frame, 1);
    CBox_stsd stsd(BoxVariant::kMp4);
    stsd.Init(1, &info);
    stsd.Update(Sample(frame));
    testing::internal::CaptureStdout();
    CGrowBuffer buffer;
    stsd.Write(&buffer);
    testing::internal::GetCapturedStdout();
    const ByteVector bytes(buffer.Data(), buffer.Data() + buffer.Size());
    // Lengths in groups of seven bits: 288, 274 and 256.
    EXPECT_EQ(test::Slice(bytes, 102, bytes.size() - 102),
              Bytes("00 00 01 31 65 73 64 73  00 00 00 00  03 80 80 80 82 20  00 01 10  04 80 80 80 82 12  20 11") +
                  ByteVector(11) + Bytes("05 80 80 80 82 00") + config + Bytes("06 80 80 80 01 02"));
}

TEST(Mp4v, ADescriptorOf128BytesAndMoreOutgrowsItsBoxAndThatIsSaid) {
    ByteVector frame = Bytes("00 00 01 B0");
    frame.resize(128, 0x55);
    frame = frame + Bytes("00 00 01 B6 10 11 12 13 14");
    const TrackInfo info = Video(frame, 1);
    CBox_stsd stsd(BoxVariant::kMp4);
    stsd.Init(1, &info);
    stsd.Update(Sample(frame));
    EXPECT_EQ(Complaints(stsd),
              "CBox_esds::WriteData error!\nCBox_mp4v:WriteData error!\nCBox_stsd:WriteData error!\n");
    CGrowBuffer buffer;
    // Three lengths take two bytes each, and no size knows of it.
    EXPECT_EQ(stsd.Write(&buffer), stsd.GetSize() + 3);
    EXPECT_EQ(stsd.GetSize(), 16u + 86 + 44 + 5 + 128);
    const ByteVector bytes(buffer.Data(), buffer.Data() + buffer.Size());
    EXPECT_EQ(test::Slice(bytes, 102, 8), Bytes("00 00 00 B1 65 73 64 73"));
    EXPECT_EQ(test::Slice(bytes, 114, 6), Bytes("03 80 80 80 81 20"));
}

TEST(Jpeg, HasNoChild) {
    const ByteVector frame = Bytes("FF D8 FF D9");
    EXPECT_EQ(EntryOf(1, Video(frame, 3)), Bytes("00 00 00 56") + test::Text("jpeg") + VisualFields());
}

TEST(VisualEntry, TakesTheLow16BitsOfThePictureSize) {
    const ByteVector frame = Bytes("FF D8 FF D9");
    VideoTrackInfo wide = std::get<VideoTrackInfo>(Video(frame, 3));
    wide.width = 0x12345;
    wide.height = 0x10001;
    EXPECT_EQ(EntryOf(1, wide), Bytes("00 00 00 56") + test::Text("jpeg") + VisualFields("23 45 00 01"));
}

// --- audio

// esds for audio; `specific` as hex, empty for none.
ByteVector AudioEsds(const char* object_type, const char* specific) {
    const ByteVector bytes = Bytes(specific);
    const auto u8 = [](size_t value) { return ByteVector{static_cast<uint8_t>(value)}; };
    const size_t config = 13 + (bytes.empty() ? 0 : 5 + bytes.size());
    ByteVector out = Bytes("00 00 00") + u8(config + 31) + test::Text("esds") + ByteVector(4) + Bytes("03 80 80 80") +
                     u8(config + 14) + Bytes("00 02 10 04 80 80 80") + u8(config) + Bytes(object_type) + Bytes("15") +
                     ByteVector(11);
    if (!bytes.empty()) out = out + Bytes("05 80 80 80") + u8(bytes.size()) + bytes;
    return out + Bytes("06 80 80 80 01 02");
}

const char* const kMp4aStereo48k =
    "00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00 02 00 10 00 00 00 00 BB 80 00 00";

TEST(Mp4a, AacAt48000HzStereo) {
    EXPECT_EQ(EntryOf(2, Audio(26, 48000, 2)),
              Bytes("00 00 00 57") + test::Text("mp4a") + Bytes(kMp4aStereo48k) + AudioEsds("40", "11 90"));
}

TEST(Mp4a, AacAt44100HzMono) {
    const ByteVector entry = EntryOf(2, Audio(26, 44100, 1));
    EXPECT_EQ(test::Slice(entry, 24, 12), Bytes("00 01 00 10 00 00 00 00 AC 44 00 00"));
    EXPECT_EQ(test::Slice(entry, 36, 51), AudioEsds("40", "12 08"));
}

TEST(Mp4a, EveryListedRateHasItsIndex) {
    const uint32_t rates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};
    const char* const configs[] = {"10 10", "10 90", "11 10", "11 90", "12 10", "12 90", "13 10",
                                   "13 90", "14 10", "14 90", "15 10", "15 90", "16 10"};
    for (size_t i = 0; i < std::size(rates); ++i)
        EXPECT_EQ(test::Slice(EntryOf(2, Audio(26, rates[i], 2)), 36, 51), AudioEsds("40", configs[i])) << rates[i];
    // A rate of 0 finds the first of the unused rows, 13.
    EXPECT_EQ(test::Slice(EntryOf(2, Audio(26, 0, 2)), 36, 51), AudioEsds("40", "16 90"));
    // Only four bits of the channel count have room.
    EXPECT_EQ(test::Slice(EntryOf(2, Audio(26, 48000, 9)), 36, 51), AudioEsds("40", "11 C8"));
    EXPECT_EQ(test::Slice(EntryOf(2, Audio(26, 48000, 17)), 36, 51), AudioEsds("40", "11 88"));
}

TEST(Mp4a, AacAtAnUnlistedRateHasNoDecoderSpecificInfo) {
    const ByteVector entry = EntryOf(2, Audio(26, 12345, 2));
    EXPECT_EQ(test::Slice(entry, 36, entry.size() - 36), AudioEsds("40", ""));
    EXPECT_EQ(entry.size() - 36, 8u + 36);
}

TEST(Mp4a, MpegAudioHasNoneEither) {
    const ByteVector entry = EntryOf(2, Audio(31, 44100, 2));
    EXPECT_EQ(test::Slice(entry, 36, entry.size() - 36), AudioEsds("69", ""));
}

TEST(Mp4a, ARateAbove65535LosesItsHighBits) {
    EXPECT_EQ(test::Slice(EntryOf(2, Audio(26, 96000, 2)), 32, 4), Bytes("77 00 00 00"));
}

TEST(Mp4a, QuickTimeTakesTheLongFormWithAWave) {
    const ByteVector esds = AudioEsds("40", "11 90");
    const ByteVector entry = Bytes(
        "00 00 00 00 00 00 00 01 00 01 00 00 00 00 00 00 00 02 00 10 FF FE 00 00 BB 80 00 00"
        "00 00 04 00  00 00 00 00  00 00 00 00  00 00 00 02");
    const ByteVector wave = Bytes("00 00 00 53") + test::Text("wave") + Bytes("00 00 00 0C") + test::Text("frmamp4a") +
                            Bytes("00 00 00 0C") + test::Text("mp4a") + ByteVector(4) + esds;
    const ByteVector expected = Bytes("00 00 00 87") + test::Text("mp4a") + entry + wave;
    EXPECT_EQ(expected.size(), 52 + wave.size());
    EXPECT_EQ(EntryOf(2, Audio(26, 48000, 2), BoxVariant::kMov), expected);
    EXPECT_EQ(EntryOf(2, Audio(26, 48000, 2), BoxVariant::kMovLarge), expected);
    EXPECT_EQ(EntryOf(2, Audio(26, 48000, 2), BoxVariant::kMovNoSeek), expected);
}

TEST(Mp4a, TheOtherFormsTakeTheShortOne) {
    const ByteVector expected = EntryOf(2, Audio(26, 48000, 2), BoxVariant::kMp4);
    EXPECT_EQ(EntryOf(2, Audio(26, 48000, 2), BoxVariant::kMp4Large), expected);
    EXPECT_EQ(EntryOf(2, Audio(26, 48000, 2), BoxVariant::kMp4NoSeek), expected);
}

// --- stsd

TEST(Orvx, IsAVisualEntryOneByteShort) {
    ByteVector expected = Bytes("00 00 00 55") + test::Text("ORVX") + VisualFields("00 00 00 00");
    expected.pop_back();
    EXPECT_EQ(EntryOf(3, Audio(26, 48000, 2)), expected);
}

TEST(Stsd, IsEmptyUntilATrackOpens) {
    CBox_stsd stsd(BoxVariant::kMp4);
    EXPECT_EQ(Written(stsd), Bytes("00 00 00 10 73 74 73 64  00 00 00 00  00 00 00 00"));
    stsd.Init(1, nullptr);
    const ByteVector frame = Bytes("00 00 01 65");
    const TrackInfo unknown = Video(frame, 9);
    stsd.Init(1, &unknown);
    EXPECT_EQ(stsd.GetSize(), 16u);
    // A codec that it doesn't know leaves it open for the next.
    const TrackInfo jpeg = Video(frame, 3);
    stsd.Init(1, &jpeg);
    EXPECT_EQ(stsd.GetSize(), 16u + 86);
}

TEST(Stsd, TakesOneEntryOnly) {
    CBox_stsd stsd(BoxVariant::kMp4);
    const ByteVector frame = Bytes("FF D8");
    const TrackInfo jpeg = Video(frame, 3);
    stsd.Init(1, &jpeg);
    const ByteVector before = Written(stsd);
    const TrackInfo avc = Video(frame, 2);
    stsd.Init(1, &avc);
    EXPECT_EQ(Written(stsd), before);
}

}  // namespace
}  // namespace Orvane::Muxora
