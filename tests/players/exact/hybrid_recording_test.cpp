// A hybrid MP4 recording that is killed plays as it is; one that is closed is a plain MP4.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "exact/exact_clip.h"
#include "exact/killed_recording.h"
#include "support/clip.h"
#include "support/decoded.h"
#include "support/iso_file.h"
#include "support/process.h"

namespace {

using test::ByteVector;
using test::RecordAndKill;
using test::WholePictures;

uint32_t BE32(const ByteVector& bytes, size_t at) {
    return static_cast<uint32_t>(bytes.at(at)) << 24 | static_cast<uint32_t>(bytes.at(at + 1)) << 16 |
           static_cast<uint32_t>(bytes.at(at + 2)) << 8 | bytes.at(at + 3);
}

// A write that was cut off, by a kill or by a full disk: in the guard, anywhere in the index of the fragment, in its
// media. Players refuse a whole file for one torn moof, if they see it.
TEST(HybridRecording, TornInAnyWriteItPlaysUpToItsLastWholeFragment) {
    const auto writes = test::HybridWrites(test::ReadExact(test::MakeEncode(test::EncodeNamed("stereo_22050"))));
    // The head; then guard, fragment, release, three times.
    ASSERT_GE(writes.size(), 7u);
    const std::string path = test::WorkPath("torn_write.mp4");
    ByteVector file;
    const auto put = [&file](const test::Written& write, size_t size) {
        const auto at = static_cast<size_t>(write.offset);
        file.resize(std::max(file.size(), at + size));
        std::copy_n(write.bytes.begin(), size, file.begin() + write.offset);
    };
    for (size_t i = 0; i < 4; ++i)
        put(writes[i], writes[i].bytes.size());
    const uint64_t whole = WholePictures(file);
    ASSERT_GT(whole, 0u);
    const ByteVector before = file;
    put(writes[4], writes[4].bytes.size());
    const ByteVector guarded = file;
    const size_t index = BE32(writes[5].bytes, 0);
    for (const size_t size : {size_t{1}, size_t{4}, size_t{7}}) {
        file = before;
        put(writes[4], size);
        test::WriteFile(path, file);
        EXPECT_EQ(test::ListPackets(path, "v:0").packets.size(), whole) << size;
    }
    for (const size_t size : {size_t{4}, size_t{8}, index / 4, index / 2, index * 3 / 4, index - 1, index, index + 8,
                              index + 500, writes[5].bytes.size()}) {
        file = guarded;
        put(writes[5], size);
        test::WriteFile(path, file);
        EXPECT_EQ(test::ListPackets(path, "v:0").packets.size(), whole) << size;
    }
    put(writes[6], writes[6].bytes.size());
    test::WriteFile(path, file);
    EXPECT_GT(test::ListPackets(path, "v:0").packets.size(), whole);
}

TEST(HybridRecording, KilledAtAnyMomentItPlaysUpToItsLastWholeFragment) {
    const auto frames = test::ReadExact(test::MakeEncode(test::EncodeNamed("stereo_22050")));
    std::mt19937 random(20);
    for (int i = 0; i < 20; ++i) {
        const auto count = static_cast<uint32_t>(120 + random() % 400);
        const std::string path = test::WorkPath("killed.mp4");
        RecordAndKill(frames, path, count);
        const uint64_t whole = WholePictures(test::ReadFile(path));
        ASSERT_GT(whole, 0u) << count;
        const auto listed = test::ListPackets(path, "v:0");
        ASSERT_GE(listed.packets.size(), whole) << count;
        if (i % 4 != 0) continue;
        EXPECT_GE(test::DecodeVideo(path).frames.size(), whole) << count;
    }
}

// The packets that the whole fragments of a killed file hold, as ffprobe lists them of the file cut there.
void ExpectRepaired(const std::string& path) {
    const ByteVector killed = test::ReadFile(path);
    const uint64_t whole = WholePictures(killed);
    const auto before = test::ListPackets(path, "v:0").packets;
    const auto sound = test::ListPackets(path, "a:0").packets;
    const auto run = test::Run({MUXORA_TOOL, "repair", path});
    ASSERT_TRUE(run.Ok()) << run.err;
    EXPECT_NE(run.out.find("completed"), std::string::npos) << run.out;
    const test::IsoFile file(test::ReadFile(path));
    EXPECT_EQ(file.Layout(), "ftyp mdat moov");
    EXPECT_FALSE(file.Has("moov/mvex"));
    const auto after = test::ListPackets(path, "v:0").packets;
    const auto sound_after = test::ListPackets(path, "a:0").packets;
    ASSERT_EQ(after.size(), whole);
    ASSERT_LE(after.size(), before.size());
    for (size_t i = 0; i < after.size(); ++i) {
        EXPECT_EQ(after[i].dts, before[i].dts) << i;
        EXPECT_EQ(after[i].pts, before[i].pts) << i;
        EXPECT_EQ(after[i].size, before[i].size) << i;
        EXPECT_EQ(after[i].key, before[i].key) << i;
    }
    ASSERT_LE(sound_after.size(), sound.size());
    for (size_t i = 0; i < sound_after.size(); ++i) {
        EXPECT_EQ(sound_after[i].dts, sound[i].dts) << i;
        EXPECT_EQ(sound_after[i].size, sound[i].size) << i;
    }
    const test::Decoded decoded = test::DecodeVideo(path);
    EXPECT_TRUE(decoded.ok) << decoded.errors;
    EXPECT_EQ(decoded.frames.size(), whole);
    // Once more does no harm.
    const ByteVector repaired = test::ReadFile(path);
    EXPECT_TRUE(test::Run({MUXORA_TOOL, "repair", path}).Ok());
    EXPECT_EQ(test::ReadFile(path), repaired);
}

TEST(HybridRecording, RepairedItIsAPlainFileOfItsWholeFragments) {
    const auto frames = test::ReadExact(test::MakeEncode(test::EncodeNamed("stereo_22050")));
    for (const uint32_t count : {150u, 333u, 520u}) {
        const std::string path = test::WorkPath("repaired.mp4");
        RecordAndKill(frames, path, count);
        ExpectRepaired(path);
    }
    // In the middle of its last fragment.
    const std::string path = test::WorkPath("torn.mp4");
    RecordAndKill(frames, path, 400);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 1);
    ExpectRepaired(path);
}

TEST(HybridRecording, ADamagedOneIsRefusedAndStaysAsItWas) {
    const auto frames = test::ReadExact(test::MakeEncode(test::EncodeNamed("stereo_22050")));
    const std::string path = test::WorkPath("damaged.mp4");
    RecordAndKill(frames, path, 400);
    ByteVector bytes = test::ReadFile(path);
    const std::string run = "trun";
    const auto place = std::search(bytes.begin(), bytes.end(), run.begin(), run.end());
    ASSERT_NE(place, bytes.end());
    place[8] = 0x7F;  // two billion samples
    test::WriteFile(path, bytes);
    const auto repair = test::Run({MUXORA_TOOL, "repair", path});
    EXPECT_EQ(repair.exit_code, 1);
    EXPECT_NE(repair.err.find("the fragment does not hold together"), std::string::npos) << repair.err;
    EXPECT_EQ(test::ReadFile(path), bytes);
}

TEST(HybridRecording, ClosedItIsAPlainFile) {
    const auto frames = test::ReadExact(test::MakeEncode(test::EncodeNamed("ntsc_2997")));
    const std::string path = test::WorkPath("closed.mp4");
    ASSERT_EQ(test::PackExact(MX_FORMAT_HMP4, frames, path).refused, 0u);
    const test::IsoFile file(test::ReadFile(path));
    EXPECT_EQ(file.Layout(), "ftyp mdat moov");
    EXPECT_FALSE(file.Has("moov/mvex"));
    const test::Decoded decoded = test::DecodeVideo(path);
    EXPECT_TRUE(decoded.ok) << decoded.errors;
    EXPECT_EQ(decoded.Hashes(), test::DecodeVideo(test::MakeEncode(test::EncodeNamed("ntsc_2997"))).Hashes());
    EXPECT_EQ(test::SoundHash(path), test::SoundHash(test::MakeEncode(test::EncodeNamed("ntsc_2997"))));
    const auto run =
        test::Run({"mediainfo", "--Inform=Video;%CodecID% %FrameRate% %FrameCount% %FrameRate_Mode%", path});
    EXPECT_EQ(run.out.substr(0, run.out.find('\n')), "avc1 29.970 120 CFR");
}

// By its sample tables: ffmpeg would find its way without them.
TEST(HybridRecording, ClosedGStreamerDecodesEveryPicture) {
    const std::string source = test::MakeEncode(test::EncodeNamed("stereo_22050"));
    const std::string path = test::WorkPath("gstreamer.mp4");
    ASSERT_EQ(test::PackExact(MX_FORMAT_HMP4, test::ReadExact(source), path).refused, 0u);
    const std::string played = test::WorkPath("gstreamer.yuv");
    const auto run = test::Run({"gst-launch-1.0",
                                "-q",
                                "filesrc",
                                "location=" + path,
                                "!",
                                "qtdemux",
                                "name=d",
                                "d.video_0",
                                "!",
                                "queue",
                                "!",
                                "h264parse",
                                "!",
                                "avdec_h264",
                                "!",
                                "filesink",
                                "location=" + played,
                                "d.audio_0",
                                "!",
                                "queue",
                                "!",
                                "fakesink"});
    ASSERT_TRUE(run.Ok()) << run.err;
    const std::string sent = test::WorkPath("source.yuv");
    const auto decoded = test::Run({"ffmpeg", "-nostdin", "-v", "error", "-y", "-i", source, "-map", "0:v", "-fps_mode",
                                    "passthrough", "-f", "rawvideo", sent});
    ASSERT_TRUE(decoded.Ok()) << decoded.err;
    const ByteVector expected = test::ReadFile(sent);
    EXPECT_GE(expected.size(), size_t{36} * 320 * 180);
    EXPECT_TRUE(test::ReadFile(played) == expected);
}

}  // namespace
