// Matroska files in the hands of ffmpeg, GStreamer, mkvtoolnix and mediainfo. Where a program complains of bytes that
// the files have to have, the test says which and why, and that it complains of nothing else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "support/clip.h"
#include "support/decoded.h"
#include "support/pack.h"
#include "support/process.h"

namespace {

using test::ClipSpec;
using test::Decoded;
using test::MediaFrame;
using testing::HasSubstr;
using testing::Not;

// A clip, its Matroska file, and the elementary streams of the frames that are in the file.
struct Recording {
    std::vector<MediaFrame> frames;
    std::string file;
    std::string video;
    std::string audio;
    size_t pictures = 0;
    size_t sounds = 0;
};

Recording Record(const ClipSpec& spec, const std::string& name) {
    Recording recording;
    recording.frames = test::ClipFrames(spec);
    recording.file = test::WorkPath(name + ".mkv");
    EXPECT_TRUE(test::PackFile(MX_FORMAT_MKV, recording.frames, recording.file).Ok());

    std::vector<uint8_t> video;
    std::vector<uint8_t> audio;
    for (const MediaFrame& frame : recording.frames) {
        // The file begins with the first key frame; sound ahead of it is left out.
        if (!frame.IsVideo() && recording.pictures == 0) continue;
        (frame.IsVideo() ? recording.pictures : recording.sounds) += 1;
        std::vector<uint8_t>& stream = frame.IsVideo() ? video : audio;
        stream.insert(stream.end(), frame.bytes.begin(),
                      frame.bytes.begin() + static_cast<std::ptrdiff_t>(frame.Size()));
    }
    recording.video = test::WorkPath(name + (spec.video == "h264" ? ".h264" : ".m4v"));
    recording.audio = test::WorkPath(name + ".aac");
    test::WriteFile(recording.video, video);
    test::WriteFile(recording.audio, audio);
    return recording;
}

ClipSpec Spec(const std::string& video, double seconds) {
    ClipSpec spec;
    spec.video = video;
    spec.channels = 2;
    spec.seconds = seconds;
    return spec;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

size_t CountLines(const std::string& text, const std::string& part) {
    const auto lines = Lines(text);
    return static_cast<size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

class MkvPlayers : public testing::TestWithParam<const char*> {
  protected:
    std::string Codec() const { return GetParam(); }
    bool IsH264() const { return Codec() == "h264"; }
};

TEST_P(MkvPlayers, FfmpegDecodesEveryFrameAsInTheElementaryStream) {
    const Recording recording = Record(Spec(Codec(), 5), Codec());
    ASSERT_EQ(recording.pictures, 125u);

    const Decoded video = test::DecodeVideo(recording.file);
    EXPECT_TRUE(video.ok);
    EXPECT_EQ(video.errors, "");
    EXPECT_EQ(video.frames.size(), recording.pictures);
    EXPECT_EQ(video.Hashes(), test::DecodeVideo(recording.video).Hashes());
    for (size_t i = 0; i < video.frames.size(); ++i)
        ASSERT_EQ(video.frames[i].pts * 25 * video.time_base_num / video.time_base_den, static_cast<int64_t>(i));

    const Decoded audio = test::DecodeAudio(recording.file);
    EXPECT_TRUE(audio.ok);
    EXPECT_EQ(audio.errors, "");
    EXPECT_EQ(audio.frames.size(), recording.sounds);
    EXPECT_EQ(audio.Hashes(), test::DecodeAudio(recording.audio).Hashes());

    EXPECT_EQ(test::Probe(recording.file, "v:0", "stream=codec_name,width,height,r_frame_rate"),
              Codec() + "\n320\n240\n25/1");
    // The object type of the AudioSpecificConfig is the ADTS profile as it stands, so that LC reads as Main.
    EXPECT_EQ(test::Probe(recording.file, "a:0", "stream=codec_name,profile,sample_rate,channels"),
              "aac\nMain\n48000\n2");
}

TEST_P(MkvPlayers, BPicturesDecodeToo) {
    ClipSpec spec = Spec(Codec(), 3);
    spec.b_frames = 2;
    const Recording recording = Record(spec, Codec() + "_b");
    EXPECT_EQ(test::DecodeVideo(recording.file).Hashes(), test::DecodeVideo(recording.video).Hashes());
}

TEST_P(MkvPlayers, GstreamerDecodesTheSamePictures) {
    const Recording recording = Record(Spec(Codec(), 3), Codec() + "_gst");
    const std::string raw = test::WorkPath(Codec() + ".yuv");
    const auto play = test::Run({"gst-launch-1.0",
                                 "-q",
                                 "filesrc",
                                 "location=" + recording.file,
                                 "!",
                                 "matroskademux",
                                 "name=d",
                                 "d.video_0",
                                 "!",
                                 "queue",
                                 "!",
                                 IsH264() ? "avdec_h264" : "avdec_mpeg4",
                                 "!",
                                 "video/x-raw,format=I420",
                                 "!",
                                 "filesink",
                                 "location=" + raw,
                                 "d.audio_0",
                                 "!",
                                 "queue",
                                 "!",
                                 "avdec_aac",
                                 "!",
                                 "fakesink"});
    EXPECT_TRUE(play.Ok()) << play.err;
    const auto decoded = test::Run({"ffmpeg", "-v", "error", "-i", recording.video, "-f", "rawvideo", "-pix_fmt",
                                    "yuv420p", "-fps_mode", "passthrough", "-"});
    const std::vector<uint8_t> pictures = test::ReadFile(raw);
    EXPECT_EQ(pictures.size(), 75u * 320 * 240 * 3 / 2);
    EXPECT_TRUE(std::equal(pictures.begin(), pictures.end(), decoded.out.begin(), decoded.out.end(),
                           [](uint8_t a, char b) { return a == static_cast<uint8_t>(b); }));
}

TEST_P(MkvPlayers, MkvinfoListsEveryElement) {
    const Recording recording = Record(Spec(Codec(), 5), Codec());
    const auto info = test::Run({"mkvinfo", "--ui-language", "en_US", "--all", recording.file});
    EXPECT_TRUE(info.Ok());
    EXPECT_EQ(info.err, "");
    EXPECT_EQ(CountLines(info.out, "+ Cluster timestamp:"), 5u);
    EXPECT_EQ(CountLines(info.out, "track number 1, 1 frame(s)"), recording.pictures);
    EXPECT_EQ(CountLines(info.out, "Simple block: key, track number 1, "), 5u);
    EXPECT_EQ(CountLines(info.out, "Simple block: key, track number 2, "), recording.sounds);
    for (const char* line :
         {"| + Timestamp scale: 1000000", "| + Multiplexing application: Lavf55.33.100", "|  + Track type: video",
          "|  + Default duration: 00:00:00.040000000 (25.000 frames/fields per second for a video track)",
          "|   + Pixel width: 320", "|   + Pixel height: 240", "|  + Track type: audio", "|  + Codec ID: A_AAC",
          "|   + Sampling frequency: 48000", "|   + Channels: 2", "|   + Bit depth: 16",
          "| + Cluster timestamp: 00:00:04.000000000",
          IsH264() ? "|  + Codec ID: V_MPEG4/ISO/AVC" : "|  + Codec ID: V_MPEG4/ISO/ASP"})
        EXPECT_THAT(Lines(info.out), testing::Contains(line));
    // Seconds since 1970 stand where nanoseconds since 2001 belong.
    EXPECT_THAT(Lines(info.out), testing::Contains("| + Date: 2001-01-01 00:00:01 UTC"));

    // The size of a CuePoint is one too large, so that the first one swallows the ID of the next and the bytes behind
    // it read as other elements. Nothing is said of any other element.
    const size_t cues = info.out.find("|+ Cues");
    ASSERT_NE(cues, std::string::npos);
    EXPECT_EQ(CountLines(info.out.substr(cues), "|   + Cue cluster position: 1059"), 1u);
    EXPECT_GT(CountLines(info.out.substr(cues), "(Known element, but invalid at this position: Cue "), 0u);
    EXPECT_EQ(CountLines(info.out.substr(cues), "nvalid"),
              CountLines(info.out.substr(cues), "(Known element, but invalid at this position: Cue "));
    for (const char* complaint : {"invalid", "nknown", "rror", "arning"})
        EXPECT_THAT(info.out.substr(0, cues), Not(HasSubstr(complaint)));
}

TEST_P(MkvPlayers, MediainfoListsBothTracks) {
    const Recording recording = Record(Spec(Codec(), 5), Codec());
    const auto inform = [&](const std::string& what) {
        return test::Run({"mediainfo", "--Inform=" + what, recording.file}).out;
    };
    EXPECT_EQ(inform("General;%Format%,%Format_Version%,%VideoCount%,%AudioCount%"), "Matroska,Version 4,1,1\n");
    EXPECT_EQ(inform("Video;%Format%,%Width%,%Height%,%FrameRate%"),
              IsH264() ? "AVC,320,240,25.000\n" : "MPEG-4 Visual,320,240,25.000\n");
    EXPECT_EQ(inform("Audio;%Format%,%Format_AdditionalFeatures%,%Channel(s)%,%SamplingRate%"), "AAC,Main,2,48000\n");
}

TEST_P(MkvPlayers, MkvmergeRemuxesWithoutAWord) {
    const Recording recording = Record(Spec(Codec(), 5), Codec());
    const std::string remuxed = test::WorkPath(Codec() + "_remuxed.mkv");
    const auto merge = test::Run({"mkvmerge", "--ui-language", "en_US", "--quiet", "-o", remuxed, recording.file});
    EXPECT_EQ(merge.exit_code, 0);
    EXPECT_EQ(merge.out + merge.err, "");
    const Decoded video = test::DecodeVideo(remuxed);
    EXPECT_EQ(video.errors, "");
    EXPECT_EQ(video.Hashes(), test::DecodeVideo(recording.video).Hashes());
    const Decoded audio = test::DecodeAudio(remuxed);
    EXPECT_EQ(audio.frames.size(), recording.sounds);
    EXPECT_EQ(audio.Hashes(), test::DecodeAudio(recording.audio).Hashes());
}

TEST_P(MkvPlayers, SeekingLandsOnKeyFrames) {
    ClipSpec spec = Spec(Codec(), 8);
    spec.gop = 50;  // every other cluster begins with a key frame
    const Recording recording = Record(spec, Codec() + "_seek");
    const struct {
        const char* to;
        const char* lands_on;
    } seeks[] = {{"0", "0.000000"},    {"1.9", "0.000000"}, {"2.0", "2.000000"}, {"3.3", "2.000000"},
                 {"4.04", "4.000000"}, {"7.9", "6.000000"}, {"1.0", "0.000000"}};
    for (const auto& seek : seeks) {
        const auto probe = test::Run({"ffprobe", "-v", "warning", "-select_streams", "v", "-read_intervals",
                                      std::string(seek.to) + "%+#1", "-show_entries", "packet=pts_time,flags", "-of",
                                      "csv=p=0", recording.file});
        EXPECT_EQ(probe.out, std::string(seek.lands_on) + ",K_\n") << seek.to;
        // It complains of the Cues, so it has read them: the last CuePoint is a byte too long, see above.
        EXPECT_EQ(CountLines(probe.err, "exceeds containing master element"), 1u) << probe.err;
        EXPECT_EQ(Lines(probe.err).size(), 1u) << probe.err;
    }

    // What is decoded from there on is what stands there in the elementary stream.
    const std::vector<std::string> all = test::DecodeVideo(recording.video).Hashes();
    ASSERT_EQ(all.size(), 200u);
    const auto from_4 = test::DecodeVideo(recording.file, {"-ss", "4"}).Hashes();
    EXPECT_EQ(from_4, std::vector<std::string>(all.begin() + 100, all.end()));
}

INSTANTIATE_TEST_SUITE_P(Codecs, MkvPlayers, testing::Values("h264", "mpeg4"),
                         [](const auto& codec) { return std::string(codec.param); });

TEST(MkvPlayersLong, TimesWrapAfter65SecondsAndEveryFrameDecodes) {
    ClipSpec spec = Spec("h264", 68);
    spec.width = 64;
    spec.height = 48;
    spec.channels = 1;
    const Recording recording = Record(spec, "long");
    const Decoded video = test::DecodeVideo(recording.file);
    EXPECT_TRUE(video.ok);
    EXPECT_EQ(video.frames.size(), 68u * 25);
    EXPECT_EQ(video.Hashes(), test::DecodeVideo(recording.video).Hashes());
    // The timecode of a cluster has 16 bits: the one of second 66 reads 464 ms.
    const auto info = test::Run({"mkvinfo", "--ui-language", "en_US", "--all", recording.file});
    EXPECT_THAT(Lines(info.out), testing::Contains("| + Cluster timestamp: 00:01:05.000000000"));
    EXPECT_THAT(Lines(info.out), testing::Contains("| + Cluster timestamp: 00:00:00.464000000"));
}

}  // namespace
