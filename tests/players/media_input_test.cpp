// The reader of the tools: any file in, frames as the library takes them out.
#include "media_input/media_input.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "media_input/elementary.h"
#include "media_input/nal_units.h"
#include "support/clip.h"
#include "support/decoded.h"
#include "support/hex.h"
#include "support/process.h"

namespace Orvane::Muxora::Tools {
namespace {

using test::Bytes;
using test::ByteVector;
using test::ClipSpec;
using test::operator+;

// Numbers of the H.264 units in a frame, by start codes of three bytes.
std::vector<int> UnitTypes(const MediaFrame& frame) {
    std::vector<int> types;
    for (size_t i = 0; i + 3 < frame.Size(); ++i) {
        if (frame.bytes[i] == 0 && frame.bytes[i + 1] == 0 && frame.bytes[i + 2] == 1) {
            types.push_back(frame.bytes[i + 3] & 0x1F);
        }
    }
    return types;
}

bool Has(const std::vector<int>& types, int type) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

std::vector<MediaFrame> Only(std::vector<MediaFrame> frames, uint32_t type) {
    std::erase_if(frames, [type](const MediaFrame& frame) { return frame.type != type; });
    return frames;
}

TEST(MediaInput, Mp4BecomesAnnexBWithParameterSetsAndAdts) {
    ClipSpec spec;
    spec.container = "mp4";
    const auto frames = test::ClipFrames(spec);
    const auto video = Only(frames, MX_FRAME_VIDEO);
    const auto audio = Only(frames, MX_FRAME_AUDIO);
    ASSERT_EQ(video.size(), 50u);
    EXPECT_GE(audio.size(), 93u);
    for (size_t i = 0; i < video.size(); ++i) {
        EXPECT_EQ(video[i].codec, 2u);
        EXPECT_EQ(video[i].width, 320u);
        EXPECT_EQ(video[i].height, 240u);
        EXPECT_EQ(video[i].frame_rate, 25u);
        EXPECT_EQ(video[i].sub_type, i % 25 == 0 ? 0u : 1u) << i;
        EXPECT_EQ(video[i].time_ms - video[0].time_ms, static_cast<int64_t>(i) * 40);
        const auto types = UnitTypes(video[i]);
        EXPECT_EQ(Has(types, 7) && Has(types, 8), i % 25 == 0) << i;
        EXPECT_TRUE(Has(types, i % 25 == 0 ? 5 : 1));
    }
    for (const MediaFrame& frame : audio) {
        EXPECT_EQ(frame.codec, 26u);
        EXPECT_EQ(frame.samples_per_sec, 48000u);
        EXPECT_EQ(frame.channels, 1u);
        ASSERT_GE(frame.Size(), 7u);
        EXPECT_EQ(frame.bytes[0], 0xFF);
        EXPECT_EQ(frame.bytes[1], 0xF1);
        const size_t length = static_cast<size_t>(frame.bytes[3] & 3) << 11 | static_cast<size_t>(frame.bytes[4]) << 3 |
                              static_cast<size_t>(frame.bytes[5] >> 5);
        EXPECT_EQ(length, frame.Size());
    }
    EXPECT_TRUE(std::is_sorted(frames.begin(), frames.end(),
                               [](const auto& a, const auto& b) { return a.time_ms < b.time_ms; }));
    EXPECT_EQ(frames.front().time_ms, 1000);
}

TEST(MediaInput, SpareZerosStandBehindEachFrame) {
    for (MediaFrame& frame : test::ClipFrames({})) {
        const MXFrameInfo record = frame.Record();
        ASSERT_EQ(record.size, 264u);
        const auto* end = static_cast<const uint8_t*>(record.frame_pointer) + record.frame_size;
        EXPECT_TRUE(std::all_of(end, end + 64, [](uint8_t byte) { return byte == 0; }));
    }
}

TEST(MediaInput, PictureTypesOfBFrames) {
    ClipSpec spec;
    spec.b_frames = 2;
    spec.container = "mp4";
    const auto video = Only(test::ClipFrames(spec), MX_FRAME_VIDEO);
    ASSERT_EQ(video.size(), 50u);
    // In the order of decoding: I P B B P B B ...
    const uint32_t expected[] = {0, 1, 2, 2, 1, 2, 2};
    for (size_t i = 0; i < std::size(expected); ++i)
        EXPECT_EQ(video[i].sub_type, expected[i]) << i;
    // Times for the library rise, presentation times do not.
    for (size_t i = 1; i < video.size(); ++i)
        EXPECT_EQ(video[i].time_ms - video[i - 1].time_ms, 40);
    EXPECT_EQ(video[1].pts_ms - video[0].pts_ms, 120);
    EXPECT_EQ(video[2].pts_ms - video[0].pts_ms, 40);
}

struct CodecCase {
    const char* codec;
    uint32_t number;
};

class VideoCodecs : public testing::TestWithParam<CodecCase> {};

TEST_P(VideoCodecs, EachKeyFrameDecodesFromTheElementaryStream) {
    ClipSpec spec;
    spec.video = GetParam().codec;
    spec.audio = "";
    spec.gop = 10;
    spec.seconds = 1;
    const auto frames = test::ClipFrames(spec);
    ASSERT_EQ(frames.size(), 25u);
    ByteVector stream;
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i].codec, GetParam().number);
        const bool key = spec.video == "mjpeg" || i % 10 == 0;
        EXPECT_EQ(frames[i].IsKey(), key) << i;
        // The stream from the second key frame on: it must bring its own configuration.
        if (i >= 10) stream.insert(stream.end(), frames[i].bytes.begin(), frames[i].bytes.end() - 64);
    }
    const std::string path = test::WorkPath(spec.video + ".es");
    test::WriteFile(path, stream);
    const std::string demuxer = spec.video == "mpeg4" ? "m4v" : spec.video == "mpeg2video" ? "mpegvideo" : spec.video;
    const auto expected = test::DecodeVideo(test::MakeClip(spec)).Hashes();
    const auto got = test::DecodeVideo(path, {"-f", demuxer});
    EXPECT_EQ(got.errors, "");
    ASSERT_EQ(expected.size(), 25u);
    EXPECT_EQ(got.Hashes(), std::vector<std::string>(expected.begin() + 10, expected.end()));
}

INSTANTIATE_TEST_SUITE_P(All, VideoCodecs,
                         testing::Values(CodecCase{"h264", 2}, CodecCase{"hevc", 12}, CodecCase{"mpeg4", 1},
                                         CodecCase{"mpeg2video", 9}, CodecCase{"mjpeg", 3}),
                         [](const auto& param) { return std::string(param.param.codec); });

TEST(MediaInput, G711ComesInBlocksOfFortyMilliseconds) {
    for (const auto& [codec, number] : std::map<std::string, uint32_t>{{"alaw", 14}, {"mulaw", 22}}) {
        ClipSpec spec;
        spec.video = "";
        spec.audio = codec;
        spec.sample_rate = 8000;
        spec.container = "wav";
        const auto frames = test::ClipFrames(spec);
        ASSERT_EQ(frames.size(), 50u);
        for (size_t i = 0; i < frames.size(); ++i) {
            EXPECT_EQ(frames[i].codec, number);
            EXPECT_EQ(frames[i].Size(), 320u);
            EXPECT_EQ(frames[i].samples_per_sec, 8000u);
            EXPECT_EQ(frames[i].bits_per_sample, 8u);
            EXPECT_EQ(frames[i].time_ms, 1000 + static_cast<int64_t>(i) * 40);
        }
    }
}

TEST(MediaInput, StereoPcmAtAnOddRateKeepsAllItsBytes) {
    ClipSpec spec;
    spec.video = "";
    spec.audio = "pcm";
    spec.sample_rate = 11025;
    spec.channels = 2;
    spec.container = "wav";
    const auto frames = test::ClipFrames(spec);
    size_t total = 0;
    for (const MediaFrame& frame : frames) {
        EXPECT_EQ(frame.codec, 16u);
        EXPECT_EQ(frame.bits_per_sample, 16u);
        EXPECT_EQ(frame.channels, 2u);
        total += frame.Size();
    }
    EXPECT_EQ(frames.front().Size(), 441u * 4);
    EXPECT_EQ(total, 22050u * 4);
}

TEST(MediaInput, TransportStreamsAndRawStreams) {
    ClipSpec spec;
    spec.container = "ts";
    const auto from_ts = test::ClipFrames(spec);
    EXPECT_EQ(Only(from_ts, MX_FRAME_VIDEO).size(), 50u);
    for (const MediaFrame& frame : Only(from_ts, MX_FRAME_AUDIO))
        EXPECT_EQ(frame.bytes[1], 0xF1);
    ClipSpec raw;
    raw.audio = "";
    raw.container = "h264";
    const auto from_raw = test::ClipFrames(raw);
    ASSERT_EQ(from_raw.size(), 50u);
    EXPECT_EQ(from_raw[49].time_ms, 1000 + 49 * 40);
    InputOptions options;
    options.frame_rate = 50;
    const auto faster = ReadAllFrames({test::MakeClip(raw)}, options);
    ASSERT_EQ(faster.size(), 50u);
    EXPECT_EQ(faster[49].time_ms, 1000 + 49 * 20);
    ClipSpec sound;
    sound.video = "";
    sound.container = "aac";
    sound.sample_rate = 44100;
    const auto aac = test::ClipFrames(sound);
    EXPECT_GE(aac.size(), 86u);
    EXPECT_EQ(aac[0].samples_per_sec, 44100u);
}

TEST(MediaInput, TwoFilesAreInterleaved) {
    ClipSpec video;
    video.audio = "";
    video.container = "h264";
    ClipSpec sound;
    sound.video = "";
    sound.container = "aac";
    MediaInput input({test::MakeClip(video), test::MakeClip(sound)});
    ASSERT_NE(input.Video(), nullptr);
    ASSERT_NE(input.Audio(), nullptr);
    EXPECT_EQ(input.Audio()->number, 1);
    MediaFrame frame;
    int64_t last = 0;
    int kinds[4] = {};
    while (input.Next(frame)) {
        EXPECT_GE(frame.time_ms, last);
        last = frame.time_ms;
        ++kinds[frame.type];
    }
    EXPECT_EQ(kinds[1], 50);
    EXPECT_GE(kinds[2], 93);
}

TEST(MediaInput, StreamsMayBeChosenOrLeftOut) {
    const std::string clip = test::MakeClip({});
    InputOptions options;
    options.audio = StreamChoice::kNone;
    EXPECT_TRUE(Only(ReadAllFrames({clip}, options), MX_FRAME_AUDIO).empty());
    options = {};
    options.video = StreamChoice::kNone;
    options.audio = 1;
    EXPECT_TRUE(Only(ReadAllFrames({clip}, options), MX_FRAME_VIDEO).empty());
    options.audio = 0;
    EXPECT_THROW(MediaInput({clip}, options), InputError);
    options.audio = 7;
    EXPECT_THROW(MediaInput({clip}, options), InputError);
    options = {};
    options.duration_ms = 1000;
    EXPECT_EQ(Only(ReadAllFrames({clip}, options), MX_FRAME_VIDEO).size(), 25u);
}

TEST(MediaInput, SaysWhatIsWrongWithAnInput) {
    const auto message = [](const std::string& path) {
        try {
            const MediaInput input({path});
        } catch (const InputError& error) {
            return std::string(error.what());
        }
        return std::string("nothing");
    };
    const std::string text = test::WorkPath("text");
    test::WriteFile(text, test::Text(std::string(2000, 'a')));
    const std::string empty = test::WorkPath("empty.mp4");
    test::WriteFile(empty, {});
    EXPECT_EQ(message("/nowhere/at/all.mp4"), "/nowhere/at/all.mp4: there is no such file");
    EXPECT_EQ(message(test::WorkDirectory()), test::WorkDirectory() + ": is a directory; name a media file in it");
    EXPECT_EQ(message(empty), empty + ": is empty");
    EXPECT_EQ(message(text), text + ": is no media file that can be read");
}

TEST(NalUnits, ParameterSetsGoBehindTheDelimiter) {
    struct Case {
        uint32_t codec;
        const char* frame;
        bool has_sets;
        size_t place;
    };
    for (const Case& known : {
             Case{MX_VIDEO_H264, "00 00 00 01 09 10 00 00 00 01 65 88", false, 1},
             Case{MX_VIDEO_H264, "00 00 01 09 10 00 00 01 65 88", false, 1},
             Case{MX_VIDEO_H264, "00 00 01 65 88", false, 0},
             Case{MX_VIDEO_H264, "00 00 01 67 42 00 00 01 65 88", true, 0},
             Case{MX_VIDEO_H265, "00 00 01 46 01 50 00 00 01 26 01", false, 1},
             Case{MX_VIDEO_H265, "00 00 01 42 01 00 00 01 26 01", true, 0},
             Case{MX_VIDEO_MPEG4, "00 00 01 B6 10", false, 0},
             Case{MX_VIDEO_MPEG4, "00 00 01 20 08 00 00 01 B6 10", true, 0},
             Case{MX_VIDEO_MPEG2, "00 00 01 B3 14 00 00 01 00 10", true, 0},
             Case{MX_VIDEO_H264, "", false, 0},
         }) {
        const ByteVector frame = Bytes(known.frame);
        const NalUnits units = AnnexBUnits(frame);
        EXPECT_EQ(HasParameterSets(known.codec, frame, units), known.has_sets) << known.frame;
        EXPECT_EQ(ParameterSetPlace(known.codec, frame, units), known.place) << known.frame;
    }
    const ByteVector frame = Bytes("00 00 01 09 10 00 00 00 01 65 88");
    const FrameBytes joined = WithLongStartCodes(frame, AnnexBUnits(frame), Bytes("00 00 00 01 67 42"), 1, 2);
    EXPECT_EQ(ByteVector(joined.begin(), joined.end()),
              Bytes("00 00 00 01 09 10 00 00 00 01 67 42 00 00 00 01 65 88 00 00"));
}

TEST(NalUnits, LongStartCodes) {
    const auto convert = [](const char* hex) {
        const ByteVector in = Bytes(hex);
        const NalUnits units = AnnexBUnits(in);
        const FrameBytes out = WithLongStartCodes(in, units, {}, 0, 0);
        ByteVector bytes(out.begin(), out.end());
        EXPECT_EQ(HaveLongCodes(in, units), bytes == in) << hex;
        return bytes;
    };
    EXPECT_EQ(convert("00 00 01 67 42 00 00 01 68 CE 00 00 00 01 65 88 80"),
              Bytes("00 00 00 01 67 42 00 00 00 01 68 CE 00 00 00 01 65 88 80"));
    EXPECT_EQ(convert("00 00 00 00 01 65 88 00 00 00 00 01 41 9A"), Bytes("00 00 00 01 65 88 00 00 00 01 41 9A"));
    EXPECT_EQ(convert("00 00 01 65 88 00 00 01"), Bytes("00 00 00 01 65 88"));
    EXPECT_EQ(convert("00 00 00 01 65 01 01 00 01 88"), Bytes("00 00 00 01 65 01 01 00 01 88"));
    EXPECT_EQ(convert("65 88 00 00"), ByteVector{});
}

TEST(NalUnits, BehindLengths) {
    const auto convert = [](const char* hex, size_t length_size) {
        ByteVector frame = Bytes(hex);
        const auto units = LengthUnits(frame, length_size);
        if (!units) return Bytes("EE");
        if (!HaveLongCodes(frame, *units)) {
            const FrameBytes out = WithLongStartCodes(frame, *units, {}, 0, 0);
            return ByteVector(out.begin(), out.end());
        }
        WriteStartCodes(frame, *units);
        return frame;
    };
    EXPECT_EQ(convert("00 00 00 02 67 42 00 00 00 03 65 88 80", 4), Bytes("00 00 00 01 67 42 00 00 00 01 65 88 80"));
    EXPECT_EQ(convert("00 02 67 42 00 01 65", 2), Bytes("00 00 00 01 67 42 00 00 00 01 65"));
    EXPECT_EQ(convert("02 67 42 00 01 65", 1), Bytes("00 00 00 01 67 42 00 00 00 01 65")) << "an empty one between";
    EXPECT_EQ(convert("00 00 00 03 67 42", 4), Bytes("EE")) << "over the end";
    EXPECT_EQ(convert("FF FF FF FF 67 42", 4), Bytes("EE"));
    EXPECT_EQ(convert("00 00 00", 4), Bytes("EE"));
}

TEST(NalUnits, TheHeadOfAFrameEndsBehindItsFirstSliceHeader) {
    ByteVector room;
    const auto head = [&room](uint32_t codec, const ByteVector& frame, size_t length_size) {
        const ByteSpan found = FrameHead(codec, frame, length_size, room);
        return ByteVector(found.begin(), found.end());
    };
    const auto joined = [](ByteVector bytes, size_t filling, const ByteVector& behind = {}) {
        bytes.insert(bytes.end(), filling, 0xAB);
        bytes.insert(bytes.end(), behind.begin(), behind.end());
        return bytes;
    };
    const ByteVector sets = Bytes("00 00 00 01 67 42 00 00 00 01 68 CE 00 00 00 01 65");
    // 4096 bytes from the slice's first on; a second slice is of no interest.
    EXPECT_EQ(head(MX_VIDEO_H264, joined(sets, 9000, Bytes("00 00 00 01 65")), 0), joined(sets, 4095));
    EXPECT_EQ(head(MX_VIDEO_H264, joined(sets, 100), 0), joined(sets, 100));
    const ByteVector lengths = Bytes("00 02 67 42 00 00 00 02 68 CE 23 29 65");
    EXPECT_EQ(head(MX_VIDEO_H264, joined(lengths, 9000, Bytes("00 01 65")), 2), joined(sets, 4095));
    EXPECT_EQ(head(MX_VIDEO_H264, joined(lengths, 100), 2), joined(sets, 100)) << "a length over the end";
    EXPECT_EQ(head(MX_VIDEO_H264, Bytes("00 02 67 42"), 2), Bytes("00 00 00 01 67 42")) << "no slice";
    const ByteVector hevc = Bytes("00 00 00 01 42 01 00 00 00 01 26 01");  // SPS, IDR_W_RADL
    EXPECT_EQ(head(MX_VIDEO_H265, joined(hevc, 9000), 0), joined(hevc, 4094));
    const ByteVector mpeg4 = joined(Bytes("00 00 01 B6"), 9000);
    EXPECT_EQ(head(MX_VIDEO_MPEG4, mpeg4, 0), mpeg4);
}

TEST(MediaInput, KeyFramesThatAFileDoesNotListAreFound) {
    const std::string film = test::WorkPath("open_gop.mp4");
    ASSERT_TRUE(test::Run({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=s=96x64:r=25:d=3", "-c:v",
                           "libx264", "-x264-params", "keyint=25:bframes=2:open-gop=1:scenecut=0", film})
                    .Ok());
    std::vector<size_t> listed;
    std::istringstream flags(test::Probe(film, "v:0", "packet=flags"));
    size_t count = 0;
    for (std::string line; std::getline(flags, line); ++count) {
        if (line[0] == 'K') listed.push_back(count);
    }
    ASSERT_EQ(count, 75u);
    ByteVector bytes = test::ReadFile(film);
    const ByteVector name = test::Text("stss");
    const auto table = std::search(bytes.begin(), bytes.end(), name.begin(), name.end());
    ASSERT_LT(table - bytes.begin() + 12, static_cast<std::ptrdiff_t>(bytes.size()));
    EXPECT_EQ(*(table + 11), 3) << "key frames listed";
    *(table + 11) = 1;
    test::WriteFile(film, bytes);
    std::vector<size_t> keys;
    const auto frames = ReadAllFrames({film});
    for (size_t i = 0; i < frames.size(); ++i) {
        if (frames[i].IsKey()) keys.push_back(i);
        // SPS and PPS, which the file states once for all.
        EXPECT_EQ(Has(UnitTypes(frames[i]), 7), frames[i].IsKey()) << i;
    }
    EXPECT_EQ(keys, listed);
}

TEST(MediaInput, StartCodesHaveFourBytes) {
    for (const std::string container : {"mp4", "ts", "h264"}) {
        ClipSpec spec;
        spec.container = container;
        spec.slices = 4;
        if (container == "h264") spec.audio = "";
        const auto frames = Only(test::ClipFrames(spec), MX_FRAME_VIDEO);
        ASSERT_EQ(frames.size(), 50u) << container;
        for (const MediaFrame& frame : frames) {
            const NalUnits units = AnnexBUnits({frame.bytes.data(), frame.Size()});
            EXPECT_GE(units.size(), 4u) << container;
            EXPECT_TRUE(HaveLongCodes({frame.bytes.data(), frame.Size()}, units)) << container;
        }
    }
}

TEST(MediaInput, RawStreamsAreShownInThePicturesOwnOrder) {
    for (const std::string codec : {"h264", "hevc"}) {
        for (const int b_frames : {0, 2}) {
            ClipSpec spec;
            spec.audio = "";
            spec.video = codec;
            spec.b_frames = b_frames;
            spec.container = "mp4";
            const auto expected = test::ClipFrames(spec);
            const std::string raw = test::WorkPath("order." + codec);
            ASSERT_TRUE(test::Run({"ffmpeg", "-v", "error", "-y", "-i", test::MakeClip(spec), "-c", "copy", raw}).Ok());
            const auto found = ReadAllFrames({raw});
            ASSERT_EQ(found.size(), expected.size()) << codec;
            // The file's times are those of the encoder; a stream that has none begins at 0.
            const auto seconds = [](const MediaFrame& frame, int64_t ticks) {
                return static_cast<double>(ticks) / frame.time_scale;
            };
            for (size_t i = 0; i < found.size(); ++i) {
                EXPECT_NEAR(seconds(found[i], found[i].pts - found[0].pts),
                            seconds(expected[i], expected[i].pts - expected[0].pts), 1e-4)
                    << codec << b_frames << " picture " << i;
                EXPECT_NEAR(seconds(found[i], found[i].dts - found[0].dts),
                            seconds(expected[i], expected[i].dts - expected[0].dts), 1e-4);
                EXPECT_LE(found[i].dts, found[i].pts);
                EXPECT_EQ(found[i].sub_type, expected[i].sub_type) << codec << " picture " << i;
            }
        }
    }
}

// A Matroska file of 16-bit sound whose second cluster states this time, in milliseconds (RFC 9559).
ByteVector MatroskaWithATimeOf(uint64_t time) {
    const auto cluster = [](uint64_t at) {
        ByteVector block = Bytes("E7 88");
        for (int shift = 56; shift >= 0; shift -= 8)
            block.push_back(static_cast<uint8_t>(at >> shift));
        return Bytes("1F 43 B6 75 01 00 00 00 00 00 01 51") + block + Bytes("A3 41 44 81 00 00 80") +
               ByteVector(320, 0x11);
    };
    return Bytes("1A 45 DF A3 8B 42 82 88 6D 61 74 72 6F 73 6B 61  18 53 80 67 01 FF FF FF FF FF FF FF") +
           Bytes("15 49 A9 66 87 2A D7 B1 83 0F 42 40  16 54 AE 6B AA AE A8 D7 81 01 73 C5 81 01 83 81 02") +
           Bytes("86 8D 41 5F 50 43 4D 2F 49 4E 54 2F 4C 49 54  E1 8D B5 84 45 FA 00 00 9F 81 01 62 64 81 10") +
           cluster(0) + cluster(time);
}

TEST(MediaInput, TimesThatNoClockHoldsDoNoHarm) {
    const std::string path = test::WorkPath("far_times.mkv");
    // One and a half seconds later is read as it stands, which shows that the file is good.
    test::WriteFile(path, MatroskaWithATimeOf(1500));
    auto frames = ReadAllFrames({path});
    ASSERT_GE(frames.size(), 2u);
    EXPECT_EQ(frames.back().time_ms - frames.front().time_ms, 1500);
    for (const int bits : {31, 40, 53, 59, 60, 62, 63}) {
        SCOPED_TRACE(bits);
        test::WriteFile(path, MatroskaWithATimeOf(uint64_t{1} << bits));
        try {
            frames = ReadAllFrames({path});
        } catch (const InputError&) {
            continue;
        }
        ASSERT_FALSE(frames.empty());
        for (size_t i = 1; i < frames.size(); ++i)
            EXPECT_GT(frames[i].time_ms, frames[i - 1].time_ms);
    }
}

// H.264 by hand: one macroblock, an I picture of samples as they are, P pictures that skip it.
class SmallH264 {
  public:
    ByteVector stream;
    std::vector<size_t> begins;  // of the pictures

    SmallH264() {
        // Main profile, 8 bits of picture order count, two reference frames; one picture is reordered.
        Bits().U(8, 77).U(8, 0).U(8, 10).Ue(0).Ue(0).Ue(0).Ue(4).Ue(2).U(1, 0).Ue(0).Ue(0).U(1, 1).U(1, 1).U(1, 0);
        U(1, 1).U(7, 0).U(1, 0);                                          // VUI without its first parts
        U(1, 1).U(1, 1).Ue(0).Ue(0).Ue(10).Ue(10).Ue(1).Ue(2).End(0x67);  // bitstream restriction
        Bits().Ue(0).Ue(0).U(2, 0).Ue(0).Ue(0).Ue(0).U(3, 0).Ue(0).Ue(0).Ue(0).U(3, 4).End(0x68);
    }

    void Key() {
        begins.push_back(begins.empty() ? 0 : stream.size());
        Bits().Ue(0).Ue(7).Ue(0).U(4, 0).Ue(0).U(8, 0).U(2, 0).Ue(0).Ue(1).Ue(25);
        while (count_ % 8 != 0)
            U(1, 0);
        for (int i = 0; i < 384; ++i)
            U(8, 0x80);
        End(0x65);
        frame_number_ = 0;
    }
    void Inter(unsigned order, bool reference, bool sets_back = false) {
        begins.push_back(stream.size());
        frame_number_ += last_was_reference_ ? 1u : 0u;
        Bits().Ue(0).Ue(5).Ue(0).U(4, frame_number_ % 16).U(8, order).U(1, 0).U(1, 0);
        if (reference) U(1, sets_back ? 1 : 0);
        if (sets_back) Ue(5).Ue(0);
        Ue(0).Ue(1).Ue(1).End(reference ? 0x61 : 0x01);
        if (sets_back) frame_number_ = 0;
        last_was_reference_ = reference;
    }

  private:
    SmallH264& Bits() {
        bits_.clear();
        count_ = 0;
        return *this;
    }
    SmallH264& U(int width, unsigned value) {
        for (int bit = width; bit-- > 0; ++count_) {
            if (count_ % 8 == 0) bits_.push_back(0);
            bits_.back() = static_cast<uint8_t>(bits_.back() | ((value >> bit & 1) << (7 - count_ % 8)));
        }
        return *this;
    }
    SmallH264& Ue(unsigned value) {
        int width = 0;
        while ((value + 1) >> (width + 1) != 0)
            ++width;
        return U(width, 0).U(width + 1, value + 1);
    }
    void End(uint8_t head) {
        U(1, 1);
        stream.insert(stream.end(), {0, 0, 0, 1, head});
        int zeros = 0;
        for (const uint8_t byte : bits_) {
            if (zeros == 2 && byte <= 3) stream.push_back(3), zeros = 0;
            stream.push_back(byte);
            zeros = byte == 0 ? zeros + 1 : 0;
        }
    }

    ByteVector bits_;
    int count_ = 0;
    unsigned frame_number_ = 0;
    bool last_was_reference_ = true;
};

// memory_management_control_operation 5 (H.264 8.2.1) sets the picture order counts back in the middle of a sequence.
TEST(MediaInput, PictureOrderCountsMayBeginAnewWithoutAnIdr) {
    for (const unsigned pairs : {2u, 25u}) {
        SmallH264 made;
        made.Key();
        for (const bool again : {false, true}) {
            for (unsigned i = 0; i < pairs; ++i) {
                made.Inter(4 * i + 4, true);
                made.Inter(4 * i + 2, false);
            }
            if (!again) made.Inter(4 * pairs + 2, true, true);
        }
        const std::string raw = test::WorkPath("anew.h264");
        test::WriteFile(raw, made.stream);
        // The decoder says in which order it shows them, by where each begins.
        const auto probed =
            test::Run({"ffprobe", "-v", "error", "-show_entries", "frame=pkt_pos", "-of", "csv=p=0", raw});
        std::vector<size_t> expected;
        std::istringstream lines(probed.out);
        for (std::string line; std::getline(lines, line);)
            expected.push_back(std::stoul(line));
        ASSERT_EQ(expected.size(), made.begins.size()) << probed.err;
        const auto frames = ReadAllFrames({raw});
        ASSERT_EQ(frames.size(), made.begins.size());
        std::map<int64_t, size_t> shown;
        for (size_t i = 0; i < frames.size(); ++i)
            shown[frames[i].pts] = made.begins[i];
        std::vector<size_t> found;
        for (const auto& [time, begin] : shown)
            found.push_back(begin);
        EXPECT_EQ(found, expected) << pairs;
    }
}

TEST(Elementary, Adts) {
    std::string why;
    // AAC LC, 44100 Hz, stereo.
    const auto config = AdtsFromSpecificConfig(Bytes("12 10"), why);
    ASSERT_TRUE(config);
    const auto header = config->Header(100);
    EXPECT_EQ(ByteVector(header.begin(), header.end()), Bytes("FF F1 50 80 0D 7F FC"));
    // SBR over AAC LC at 24000 Hz: the header tells the core.
    const auto sbr = AdtsFromSpecificConfig(Bytes("2B 09 88 00"), why);
    ASSERT_TRUE(sbr);
    EXPECT_EQ(sbr->Rate(), 24000u);
    EXPECT_EQ(sbr->object_type, 2);
    EXPECT_FALSE(AdtsFromSpecificConfig(Bytes("12"), why));
    EXPECT_EQ(why, "its AudioSpecificConfig is cut short");
    // A header with a CRC is 9 bytes.
    AdtsConfig parsed;
    const ByteVector with_crc = Bytes("FF F0 50 80 01 7F FC AA BB 11 22");
    const auto payload = AdtsPayload(with_crc, parsed);
    ASSERT_TRUE(payload);
    EXPECT_EQ(ByteVector(payload->begin(), payload->end()), Bytes("11 22"));
    EXPECT_EQ(parsed.Rate(), 44100u);
    EXPECT_FALSE(AdtsPayload(Bytes("FF F1 50 80 1F FF FC 11"), parsed));
}

TEST(Elementary, SamplesBecomeSixteenBits) {
    const auto convert = [](PcmForm form, const ByteVector& in) {
        ByteVector out;
        AppendAsS16Le(form, in, out);
        return out;
    };
    EXPECT_EQ(convert(PcmForm::kS16Le, Bytes("34 12")), Bytes("34 12"));
    EXPECT_EQ(convert(PcmForm::kS16Be, Bytes("12 34")), Bytes("34 12"));
    EXPECT_EQ(convert(PcmForm::kS24Le, Bytes("56 34 12 FF FF FF")), Bytes("34 12 FF FF"));
    EXPECT_EQ(convert(PcmForm::kS32Le, Bytes("00 00 34 12")), Bytes("34 12"));
    // 0.5, 2.0 (too loud), not a number.
    EXPECT_EQ(convert(PcmForm::kF32Le, Bytes("00 00 00 3F 00 00 00 40 00 00 C0 7F")), Bytes("00 40 FF 7F 00 00"));
}

}  // namespace
}  // namespace Orvane::Muxora::Tools
