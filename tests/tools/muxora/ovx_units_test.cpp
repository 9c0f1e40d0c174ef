// OVX files that no packer of ours wrote, unit by unit: what inspect says of them, and what pack and unpack take.
#include <gtest/gtest.h>

#include <numeric>

#include "support/hex.h"
#include "tool.h"

namespace {

namespace fs = std::filesystem;
using test::Bytes;
using test::ByteVector;
using test::Contains;
using test::Muxora;
using test::WorkPath;
using test::operator+;

// 320 by 240, progressive; 25 pictures a second, H.264.
const ByteVector kPicture = Bytes("80 02 28 1E  81 00 02 19");
// One channel, PCM of 16 bits, 8000 Hz.
const ByteVector kSound = Bytes("83 01 10 02");
const ByteVector kSlice = Bytes("00 00 00 01 65 88 84 00");

struct Head {
    uint8_t kind = 253;
    uint8_t sub_kind = 0;
    uint32_t sequence = 1;
    uint16_t ms = 0;
};

// A unit without a data check: its head's sum is right.
ByteVector Unit(const Head& head, const ByteVector& extension, const ByteVector& frame) {
    const auto length = static_cast<uint32_t>(24 + extension.size() + frame.size() + 8);
    ByteVector unit = Bytes("4F 52 56 58  00 00 01 00  00 00 00 00  00 00 00 00  F2 1B 52 06  00 00 00 00");
    ByteVector tail = Bytes("6F 72 76 78  00 00 00 00");
    unit[4] = head.kind;
    unit[5] = head.sub_kind;
    unit[20] = static_cast<uint8_t>(head.ms & 0xFF);
    unit[21] = static_cast<uint8_t>(head.ms >> 8);
    for (size_t i = 0; i < 4; ++i) {
        unit[8 + i] = static_cast<uint8_t>(head.sequence >> (8 * i) & 0xFF);
        unit[12 + i] = tail[4 + i] = static_cast<uint8_t>(length >> (8 * i) & 0xFF);
    }
    unit[22] = static_cast<uint8_t>(extension.size());
    unit[23] = static_cast<uint8_t>(std::accumulate(unit.begin(), unit.begin() + 23, 0) & 0xFF);
    return unit + extension + frame + tail;
}

std::string Write(const std::string& name, const ByteVector& bytes) {
    test::WriteFile(WorkPath(name), bytes);
    return WorkPath(name);
}

TEST(OvxUnits, InspectNamesEachKind) {
    const std::string path =
        Write("kinds.ovx", Unit({253, 0, 1, 0}, kPicture, kSlice) + Unit({252, 2, 2, 40}, {}, kSlice) +
                               Unit({254, 0, 3, 80}, {}, kSlice) + Unit({0, 0, 4, 120}, {}, kSlice) +
                               Unit({251, 0, 9, 160}, {}, kSlice) + Unit({7, 0, 10, 200}, {}, kSlice) +
                               Unit({240, 0, 1, 0}, kSound, ByteVector(320)));
    const auto table = Muxora({"inspect", path});
    EXPECT_EQ(table.exit_code, 0) << table.err;
    EXPECT_TRUE(Contains(table.out, "I                1  2001-09-09 01:47:50     0 ms")) << table.out;
    EXPECT_TRUE(Contains(table.out, "P/2              2  ")) << table.out;
    EXPECT_TRUE(Contains(table.out, "B                3  ")) << table.out;
    EXPECT_TRUE(Contains(table.out, "other            4  ")) << table.out;
    EXPECT_TRUE(Contains(table.out, "jpeg             9  ")) << table.out;
    EXPECT_TRUE(Contains(table.out, "kind7           10  ")) << table.out;
    EXPECT_TRUE(Contains(table.out, "audio            1  ")) << table.out;
    EXPECT_TRUE(Contains(table.out, "video: 6 units, sequence 1 to 10 with 1 jumps\n")) << table.out;
    EXPECT_TRUE(Contains(table.out, "audio: 1 units, sequence 1 to 1\n")) << table.out;
    const auto json = Muxora({"inspect", path, "--json"});
    EXPECT_EQ(json.exit_code, 0) << json.err;
    EXPECT_TRUE(Contains(json.out, "\"data_check\":\"missing\"")) << json.out;
    EXPECT_TRUE(Contains(json.out, "\"kind\":\"P/2\"")) << json.out;
    EXPECT_TRUE(Contains(json.out, "\"jumps\":1")) << json.out;
    // Only what is wrong.
    EXPECT_TRUE(Contains(Muxora({"inspect", path, "--json", "--summary"}).out, "\"pieces\":[],")) << json.out;
    const auto piped = test::Run({"sh", "-c", "cat " + path + " | " MUXORA_TOOL " inspect - --summary"});
    EXPECT_EQ(piped.exit_code, 0) << piped.err;
    EXPECT_TRUE(Contains(piped.out, "all of them in intact units")) << piped.out;
    const auto full = test::Run({"sh", "-c", MUXORA_TOOL " inspect " + path + " > /dev/full"});
    EXPECT_EQ(full.exit_code, 1);
    EXPECT_EQ(full.err, "muxora: cannot write to the standard output\n");
}

TEST(OvxUnits, InspectRefusesWhatIsNoOvx) {
    const auto empty = Muxora({"inspect", Write("empty.ovx", {})});
    EXPECT_EQ(empty.exit_code, 1);
    EXPECT_TRUE(Contains(empty.err, "empty.ovx is empty")) << empty.err;
    const auto letter = Muxora({"inspect", Write("letter.ovx", test::Text("A letter, and no film at all."))});
    EXPECT_EQ(letter.exit_code, 1);
    EXPECT_TRUE(Contains(letter.err, "has no OVX unit in it")) << letter.err;
    const auto film = Muxora({"inspect", test::MakeClip({})});
    EXPECT_EQ(film.exit_code, 1);
    EXPECT_TRUE(Contains(film.err, ", and inspect shows OVX; ffprobe and mediainfo show the others")) << film.err;
    const auto apart = Muxora({"unpack", test::MakeClip({}), "-o", WorkPath("apart")});
    EXPECT_EQ(apart.exit_code, 1);
    EXPECT_TRUE(Contains(apart.err, ", and unpack takes OVX apart; 'ffmpeg -i IN -c copy OUT'")) << apart.err;
    const auto none = Muxora({"unpack", Write("letter.ovx", test::Text("A letter.")), "-o", WorkPath("apart")});
    EXPECT_EQ(none.exit_code, 1);
    EXPECT_TRUE(Contains(none.err, "has no intact OVX unit in it")) << none.err;
}

// A second channel, and codecs that name themselves; each stream in a file of its own.
TEST(OvxUnits, UnpackNamesStreamsByCodecAndChannel) {
    const std::string path =
        Write("streams.ovx", Unit({252, 0, 1, 0}, {}, Bytes("01")) + Unit({253, 0, 2, 0}, kPicture, Bytes("02")) +
                                 Unit({253, 0, 3, 40}, Bytes("81 00 05 19"), Bytes("03")) +
                                 Unit({240, 0, 1, 0}, kSound, Bytes("04 05")) +
                                 Unit({240, 0, 2, 40}, Bytes("83 01 0E 02 96 02 02 00"), Bytes("06")) +
                                 Unit({240, 0, 3, 40}, Bytes("83 01 63 02"), Bytes("07")));
    const std::string folder = test::FreshDirectory("streams");
    const auto run = Muxora({"unpack", path, "-o", folder + "/x"});
    EXPECT_EQ(run.exit_code, 0) << run.err;
    // What comes ahead of the first key frame is of that one's codec.
    EXPECT_EQ(test::ReadFile(folder + "/x.h264"), Bytes("01 02"));
    EXPECT_EQ(test::ReadFile(folder + "/x.mjpeg"), Bytes("03"));
    EXPECT_EQ(test::ReadFile(folder + "/x.s16le"), Bytes("04 05"));
    EXPECT_EQ(test::ReadFile(folder + "/x.2.alaw"), Bytes("06"));
    EXPECT_EQ(test::ReadFile(folder + "/x.audio"), Bytes("07"));
    EXPECT_TRUE(Contains(run.out, "x.h264: 2 frames, 2 bytes\n")) << run.out;
    const auto full = test::Run({MUXORA_TOOL, "unpack", path, "-o", folder + "/no/x"});
    EXPECT_EQ(full.exit_code, 1);
    EXPECT_TRUE(test::IsOneLine(full.err)) << full.err;
}

ByteVector KeyFrames(const ByteVector& extension, const ByteVector& frame, uint32_t count) {
    ByteVector all;
    for (uint32_t i = 0; i < count; ++i)
        all = all + Unit({253, 0, i + 1, static_cast<uint16_t>(40 * i)}, extension, frame);
    return all;
}

TEST(OvxUnits, PackTellsWhatItCannotTake) {
    struct Case {
        const char* says;
        ByteVector bytes;
        std::vector<std::string> options;
    };
    const ByteVector sound = Unit({240, 0, 1, 0}, kSound, ByteVector(320));
    const std::vector<Case> cases{
        {"holds video codec 11, which no format takes", KeyFrames(Bytes("81 00 0B 19"), kSlice, 3), {}},
        {"holds unknown audio codec, which no format takes", Unit({240, 0, 1, 0}, Bytes("83 01 63 02"), kSlice), {}},
        {"does not say the sample rate of its sound", Unit({240, 0, 1, 0}, Bytes("83 01 10 00"), kSlice), {}},
        {"has no intact OVX unit in it", test::Text("ORVX and nothing behind it"), {}},
        {"neither a video nor an audio stream to take", KeyFrames({}, kSlice, 3), {}},
        {"stream 0 is no audio stream", KeyFrames(kPicture, kSlice, 3) + sound, {"--audio", "0"}},
        {"stream 1 is no video stream", KeyFrames(kPicture, kSlice, 3) + sound, {"--video", "1"}},
        {"there is no stream 4 in the inputs; they have stream 0 alone",
         KeyFrames(kPicture, kSlice, 3),
         {"--video", "4"}},
    };
    for (const Case& one : cases) {
        const std::string path = Write("not.ovx", one.bytes);
        std::vector<std::string> words{"pack", path, "-o", WorkPath("not.ts")};
        words.insert(words.end(), one.options.begin(), one.options.end());
        const auto run = Muxora(words);
        EXPECT_EQ(run.exit_code, 1) << one.says;
        EXPECT_TRUE(test::IsOneLine(run.err)) << run.err;
        EXPECT_TRUE(Contains(run.err, one.says)) << run.err;
        EXPECT_FALSE(fs::exists(WorkPath("not.ts")));
    }
}

// Sizes in either record, start codes of three bytes, pictures ahead of the first key frame, a second channel.
TEST(OvxUnits, PackBringsOldFilesIntoForm) {
    test::ClipSpec spec;
    spec.container = "h264";
    spec.audio = "";
    spec.seconds = 1;
    const auto stream = test::ReadFile(test::MakeClip(spec));
    const std::string small = Write(
        "small.ovx", Unit({252, 0, 1, 0}, {}, Bytes("00 00 00 01 41 00")) + Unit({253, 0, 2, 40}, kPicture, stream) +
                         Unit({240, 0, 1, 60}, Bytes("83 01 0E 02 96 02 02 00"), ByteVector(320)));
    const auto run = Muxora({"pack", small, "-o", WorkPath("small.mp4")});
    ASSERT_EQ(run.exit_code, 0) << run.err;
    EXPECT_TRUE(Contains(run.out, "320x240")) << run.out;
    EXPECT_TRUE(Contains(run.out, "1 pictures ahead of the first key frame were left out")) << run.out;
    EXPECT_TRUE(Contains(run.out, ": 1 frames of further channels")) << run.out;
    // 640 by 480 in the long record, 0 pictures a second: 25 then.
    const std::string large =
        Write("large.ovx", Unit({253, 0, 1, 0}, Bytes("82 02 00 00 80 02 E0 01  81 00 08 00"), stream));
    const auto described = Muxora({"pack", large, "-o", WorkPath("large.mp4")});
    ASSERT_EQ(described.exit_code, 0) << described.err;
    EXPECT_TRUE(Contains(described.out, "640x480, 25/s")) << described.out;
    const auto stated = Muxora({"pack", large, "-o", WorkPath("large.mp4"), "--fps", "12"});
    EXPECT_TRUE(Contains(stated.out, "640x480, 12/s")) << stated.out << stated.err;
}

// Every codec of the format that another one takes, out of a file of ours and back.
TEST(OvxUnits, EveryCodecComesBack) {
    struct Codec {
        const char* video;
        const char* audio;
        const char* key;
    };
    for (const Codec& codec : {Codec{"mpeg4", "alaw", "xmkv"}, Codec{"mpeg2video", "mulaw", "ts"},
                               Codec{"mjpeg", "pcm", "avi"}, Codec{"hevc", "mp2", "hmp4"}}) {
        test::ClipSpec spec;
        spec.video = codec.video;
        spec.audio = codec.audio;
        const std::string clip = test::MakeClip(spec);
        const std::string ovx = WorkPath("codec.ovx");
        const auto in = Muxora({"pack", clip, "-o", ovx});
        ASSERT_EQ(in.exit_code, 0) << in.err;
        const std::string out = WorkPath(std::string("codec.") + codec.key);
        const auto back = Muxora({"pack", ovx, "-o", out, "-f", codec.key});
        ASSERT_EQ(back.exit_code, 0) << back.err;
        EXPECT_EQ(test::Pictures(out), test::Pictures(clip)) << codec.video;
    }
}

}  // namespace
