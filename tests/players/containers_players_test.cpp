// FLV, AVI and ASF in the hands of ffmpeg, mediainfo and flvmeta. Where the bytes that we must write make a reader
// complain, the test says what it complains of, and that it says no more.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>

#include "support/clip.h"
#include "support/decoded.h"
#include "support/pack.h"
#include "support/process.h"

namespace {

using test::ClipSpec;
using test::MediaFrame;

using Lines = std::vector<std::string>;

// The different lines of a program's messages, without the addresses in them. ffmpeg guesses the channel layout of
// every raw sound, whoever wrote the file.
Lines Complaints(const std::string& text) {
    Lines lines;
    std::istringstream in(std::regex_replace(text, std::regex(" @ 0x[0-9a-f]+|\r"), ""));
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line.starts_with("Guessed Channel Layout")) continue;
        if (std::find(lines.begin(), lines.end(), line) == lines.end()) lines.push_back(line);
    }
    return lines;
}

struct Case {
    const char* name;
    uint32_t format;
    ClipSpec clip;
    uint32_t video_codec;  // the number that the library gets
    uint32_t audio_codec;  // the same
    uint32_t audio_rate;   // the rate that the library gets; the clip's if 0
    Lines mediainfo;       // what it reads
    Lines complaints;      // of ffmpeg
    bool sound = true;     // the announced sound is the one that is there
};

void PrintTo(const Case& c, std::ostream* out) {
    *out << c.name;
}

ClipSpec Clip(const char* video, const char* audio, int rate, int channels, int b_frames = 0) {
    ClipSpec spec;
    spec.video = video;
    spec.audio = audio;
    spec.sample_rate = rate;
    spec.channels = channels;
    spec.b_frames = b_frames;
    spec.seconds = 3;
    return spec;
}

// The clip as the case wants it: from its first picture on, for sound ahead of that is left out of all five formats;
// with the case's numbers, and 8-bit samples made of those of 16 bits.
std::vector<MediaFrame> Frames(const Case& c) {
    std::vector<MediaFrame> frames = test::ClipFrames(c.clip);
    frames.erase(frames.begin(), std::find_if(frames.begin(), frames.end(), [](const auto& f) { return f.IsVideo(); }));
    for (MediaFrame& frame : frames) {
        frame.codec = frame.IsVideo() ? c.video_codec : c.audio_codec;
        if (frame.IsVideo()) continue;
        if (c.audio_rate != 0) frame.samples_per_sec = c.audio_rate;
        if (c.audio_codec != MX_AUDIO_PCM8) continue;
        std::vector<uint8_t> samples;
        for (size_t i = 1; i < frame.Size(); i += 2)
            samples.push_back(static_cast<uint8_t>(frame.bytes[i] + 128));
        frame.SetBytes(samples.data(), samples.size());
        frame.bits_per_sample = 8;
    }
    return frames;
}

std::string WriteElementary(const std::vector<MediaFrame>& frames, uint32_t type, const char* name) {
    std::vector<uint8_t> stream;
    for (const MediaFrame& frame : frames) {
        if (frame.type == type)
            stream.insert(stream.end(), frame.bytes.begin(), frame.bytes.end() - MediaFrame::kSpare);
    }
    const std::string path = test::WorkPath(name);
    test::WriteFile(path, stream);
    return path;
}

// How ffmpeg reads the elementary streams.
Lines VideoWords(const Case& c) {
    if (c.clip.video == "mpeg4" && c.format == MX_FORMAT_AVI) {
        // The name XVID makes ffmpeg take another inverse transform.
        return {"-idct", "xvid", "-f", "m4v"};
    }
    return {"-f", c.clip.video == "mpeg4" ? "m4v" : c.clip.video};
}

Lines AudioWords(const Case& c) {
    if (c.clip.audio == "aac") return {"-f", "aac"};
    const std::string form = c.audio_codec == MX_AUDIO_PCM8 ? "u8" : c.clip.audio == "pcm" ? "s16le" : c.clip.audio;
    return {"-f", form, "-ar", std::to_string(c.clip.sample_rate), "-ac", std::to_string(c.clip.channels)};
}

std::string Extension(uint32_t format) {
    if (format == MX_FORMAT_AVI) return ".avi";
    return format == MX_FORMAT_FLV || format == MX_FORMAT_FLV_STREAM ? ".flv" : ".asf";
}

std::string MediaInfo(const std::string& path, const std::string& inform) {
    std::string text = test::Run({"mediainfo", "--Inform=" + inform, path}).out;
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

// The size of an AVI's RIFF is 8 too many, so mediainfo misses the end of the file.
std::string MediaInfoGeneral(uint32_t format) {
    if (format == MX_FORMAT_AVI) return "AVI Yes";
    return format == MX_FORMAT_FLV || format == MX_FORMAT_FLV_STREAM ? "Flash Video " : "Windows Media ";
}

class ContainerPlayers : public testing::TestWithParam<Case> {};

TEST_P(ContainerPlayers, EveryFrameIsThatOfTheElementaryStream) {
    const Case& c = GetParam();
    const auto frames = Frames(c);
    const std::string path = test::WorkPath(c.name + Extension(c.format));
    ASSERT_TRUE(test::PackFile(c.format, frames, path).Ok());

    const auto wanted = test::DecodeVideo(WriteElementary(frames, MX_FRAME_VIDEO, "video"), VideoWords(c));
    const auto video = test::DecodeVideo(path);
    EXPECT_TRUE(video.ok);
    ASSERT_EQ(wanted.frames.size(), 75u);
    EXPECT_EQ(video.Hashes(), wanted.Hashes());

    const auto audio = test::DecodeAudio(path);
    EXPECT_TRUE(audio.ok);
    if (c.sound) {
        EXPECT_EQ(test::SoundHash(path),
                  test::SoundHash(WriteElementary(frames, MX_FRAME_AUDIO, "audio"), AudioWords(c)));
    }
    EXPECT_EQ(Complaints(video.errors + audio.errors), c.complaints);

    EXPECT_EQ(MediaInfo(path, "General;%Format% %IsTruncated%"), MediaInfoGeneral(c.format));
    EXPECT_EQ((Lines{MediaInfo(path, "Video;%Format% %CodecID% %Width%x%Height% %FrameCount%"),
                     MediaInfo(path, "Audio;%Format% %CodecID% %SamplingRate% %Channel(s)%")}),
              c.mediainfo);
}

// FLV times are counted in the order in which the frames come, so B pictures have no times of their own.
const char kDecodingOrder[] =
    "[framemd5] Non-monotonous DTS in output stream 0:0; previous: 74, current: 72; changing to 74. This may result in "
    "incorrect timestamps in the output file.";
// Of the value without a key in the metadata. Where it is not 0, ffmpeg takes its bytes for a key and says nothing.
const char kKeylessValue[] = "[flv] Missing AMF_END_OF_OBJECT in AMF_DATA_TYPE_MIXEDARRAY, found 0";
// The stream form announces 16-bit PCM, whatever comes.
const Lines kAacTakenForPcm = {"[pcm_s16le] Multiple frames in a packet.",
                               "[pcm_s16le] Invalid PCM packet, data has size 1 but at least a size of 2 was expected",
                               "Error while decoding stream #0:1: Invalid data found when processing input"};

// mediainfo counts the end of the sequence as a picture in FLV files, takes the time of the last picture for the end of
// ASF files, and the sound byte's stereo for the channels of AAC.
INSTANTIATE_TEST_SUITE_P(
    All, ContainerPlayers,
    testing::Values(
        Case{"flv_h264_aac", 4, Clip("h264", "aac", 48000, 2), 2, 26, 0, {"AVC 7 320x240 76", "AAC 10-1 48000 2"}, {}},
        Case{"flv_h264_b_aac",
             4,
             Clip("h264", "aac", 48000, 1, 2),
             2,
             26,
             0,
             {"AVC 7 320x240 76", "AAC 10-1 48000 2"},
             {kDecodingOrder}},
        Case{"flv_h264alt_pcm44",
             4,
             Clip("h264", "pcm", 44100, 2),
             4,
             16,
             44000,
             {"AVC 7 320x240 76", "PCM 3 44100 2"},
             {}},
        Case{"flv_h264_pcm22",
             4,
             Clip("h264", "pcm", 22050, 1),
             2,
             16,
             22000,
             {"AVC 7 320x240 76", "PCM 3 22050 1"},
             {}},
        Case{"flv_h264_pcm8_11",
             4,
             Clip("h264", "pcm", 11025, 1),
             2,
             7,
             11000,
             {"AVC 7 320x240 76", "PCM 3 11025 1"},
             {}},
        Case{"flvstream_h264_aac",
             8,
             Clip("h264", "aac", 48000, 2),
             2,
             26,
             0,
             {"AVC 7 320x240 75", "AAC 10-1 48000 2"},
             {kKeylessValue}},
        Case{"flvstream_h264alt_pcm44",
             8,
             Clip("h264", "pcm", 44100, 2),
             4,
             16,
             44000,
             {"AVC 7 320x240 75", "PCM 3 44100 2"},
             {kKeylessValue}},
        Case{"flvstream_h264_pcm8_11",
             8,
             Clip("h264", "pcm", 11025, 1),
             2,
             7,
             11000,
             {"AVC 7 320x240 75", "PCM 3 11025 1"},
             {kKeylessValue}},
        Case{"avi_h264_aac",
             2,
             Clip("h264", "aac", 48000, 2),
             2,
             26,
             0,
             {"AVC H264 320x240 75", "AAC FF-1 48000 2"},
             {}},
        Case{"avi_h264_b_aac",
             2,
             Clip("h264", "aac", 48000, 1, 2),
             2,
             26,
             0,
             {"AVC H264 320x240 75", "AAC FF-1 48000 1"},
             {}},
        Case{"avi_h264alt_alaw",
             2,
             Clip("h264", "alaw", 8000, 1),
             4,
             14,
             0,
             {"AVC H264 320x240 75", "ADPCM 6 8000 1"},
             {"[avi] sample size (2) != block align (1)"}},
        Case{"avi_mpeg4_mulaw",
             2,
             Clip("mpeg4", "mulaw", 8000, 1),
             1,
             22,
             0,
             {"MPEG-4 Visual XVID 320x240 75", "ADPCM 7 8000 1"},
             {"[avi] sample size (2) != block align (1)"}},
        Case{"avi_hevc_pcm",
             2,
             Clip("hevc", "pcm", 48000, 2),
             12,
             16,
             0,
             {"hev1 hev1 320x240 75", "PCM 1 48000 2"},
             {"[avi] mov tag found in avi (fourcc hev1)", "[avi] sample size (2) != block align (4)"}},
        Case{"avi_mjpeg_mulawalt",
             2,
             Clip("mjpeg", "mulaw", 8000, 1),
             3,
             10,
             0,
             {"JPEG MJPG 320x240 75", "ADPCM 7 8000 1"},
             {"[avi] sample size (2) != block align (1)"}},
        Case{"asf_h264_aac", 1, Clip("h264", "aac", 48000, 2), 2, 26, 0, {"AVC H264 320x240 74", "AAC FF 48000 2"}, {}},
        Case{"asf_h264_b_aac",
             1,
             Clip("h264", "aac", 48000, 1, 2),
             2,
             26,
             0,
             {"AVC H264 320x240 74", "AAC FF 48000 1"},
             {}},
        Case{"asf_h264alt_alaw",
             1,
             Clip("h264", "alaw", 8000, 1),
             4,
             14,
             0,
             {"AVC H264 320x240 74", "ADPCM 6 8000 1"},
             {}},
        Case{"asf_mpeg4_mulaw",
             1,
             Clip("mpeg4", "mulaw", 8000, 1),
             1,
             22,
             0,
             {"MPEG-4 Visual M4S2 320x240 74", "ADPCM 7 8000 1"},
             {}},
        Case{"asf_mjpeg_pcm",
             1,
             Clip("mjpeg", "pcm", 48000, 2),
             3,
             16,
             0,
             {"JPEG MJPG 320x240 74", "PCM 1 48000 2"},
             {}},
        Case{"asf_h264_mulawalt",
             1,
             Clip("h264", "mulaw", 8000, 1),
             2,
             10,
             0,
             {"AVC H264 320x240 74", "ADPCM 7 8000 1"},
             {}},
        Case{"asfstream_h264_pcm",
             5,
             Clip("h264", "pcm", 16000, 1),
             2,
             16,
             0,
             {"AVC H264 320x240 ", "PCM 1 16000 1"},
             {}},
        Case{"asfstream_h264alt_aac",
             5,
             Clip("h264", "aac", 48000, 2),
             4,
             26,
             0,
             {"AVC H264 320x240 ", "PCM 1 16000 1"},
             kAacTakenForPcm,
             false},
        Case{"asfstream_mpeg4_alaw",
             5,
             Clip("mpeg4", "alaw", 8000, 1),
             1,
             14,
             0,
             {"MPEG-4 Visual M4S2 320x240 ", "PCM 1 16000 1"},
             {"[asf] Estimating duration from bitrate, this may be inaccurate"},
             false},
        Case{"asfstream_mjpeg_mulaw",
             5,
             Clip("mjpeg", "mulaw", 8000, 1),
             3,
             22,
             0,
             {"JPEG MJPG 320x240 ", "PCM 1 16000 1"},
             {},
             false},
        Case{"asfstream_h264_mulawalt",
             5,
             Clip("h264", "mulaw", 8000, 1),
             2,
             10,
             0,
             {"AVC H264 320x240 ", "PCM 1 16000 1"},
             {},
             false}),
    [](const auto& param) { return std::string(param.param.name); });

// Packs three seconds of H.264 and AAC with a key frame each second.
std::string PackPlain(uint32_t format, const char* name, int channels = 2) {
    Case c{name, format, Clip("h264", "aac", 48000, channels), 2, 26, 0, {}, {}};
    const std::string path = test::WorkPath(name);
    EXPECT_TRUE(test::PackFile(format, Frames(c), path).Ok());
    return path;
}

// The words of flvmeta without the places in the file.
Lines FlvMetaCheck(const std::string& path) {
    const auto run = test::Run({"flvmeta", "--check", path});
    EXPECT_EQ(run.exit_code, 0);
    return Complaints(std::regex_replace(run.out, std::regex("0x[0-9a-f]+: |got [0-9.]+|should be [0-9.]+, "), ""));
}

TEST(FlvPlayers, FlvMetaFindsNoErrorInTheFileForm) {
    const std::string path = PackPlain(MX_FORMAT_FLV, "meta.flv");
    // Of the value without a key, of the rates that nothing measures, and of a rate that FLV has no name for.
    EXPECT_EQ(FlvMetaCheck(path), (Lines{"warning W70043: 195 bytes not read in tag body after metadata end",
                                         "warning W80062: videodatarate ", "warning W80062: audiodatarate ",
                                         "warning W80062: audiosamplerate ", "0 error(s), 4 warning(s)"}));
    // The array ends for it where the key is missing.
    EXPECT_EQ(test::Run({"flvmeta", "--dump", "--json", path}).out,
              "{\"duration\":3,\"width\":320,\"height\":240,\"videodatarate\":0,\"framerate\":25,\"videocodecid\":7,"
              "\"audiodatarate\":0,\"audiosamplerate\":48000,\"0\":true}\n");
}

TEST(FlvPlayers, FlvMetaFindsNoErrorInTheStreamForm) {
    const std::string path = PackPlain(MX_FORMAT_FLV_STREAM, "metastream.flv");
    EXPECT_EQ(FlvMetaCheck(path),
              (Lines{"warning W70043: 190 bytes not read in tag body after metadata end", "warning W80062: duration ",
                     "warning W80062: videodatarate ", "warning W80062: audiodatarate ",
                     "warning W80062: audiosamplerate ", "0 error(s), 5 warning(s)"}));
}

TEST(FlvPlayers, FlvMetaListsEveryTag) {
    const auto dump = test::Run({"flvmeta", "--full-dump", PackPlain(MX_FORMAT_FLV, "tags.flv")});
    EXPECT_TRUE(dump.Ok());
    const auto count = [&](const char* what) {
        size_t found = 0;
        for (size_t at = dump.out.find(what); at != std::string::npos; at = dump.out.find(what, at + 1))
            ++found;
        return found;
    };
    EXPECT_EQ(count("<tag type=\"scriptData\""), 1u);
    EXPECT_EQ(count("<tag type=\"video\""), 77u);   // head, 75 pictures, end
    EXPECT_EQ(count("<tag type=\"audio\""), 142u);  // configuration, 141 frames
    // Head, three key frames, end.
    EXPECT_EQ(count("frameType=\"seekable frame\""), 5u);
}

// The first picture behind a seek to a second.
std::string PictureAt(const std::string& path, const char* second) {
    return test::DecodeVideo(path, {"-ss", second}).frames.at(0).hash;
}

TEST(AviPlayers, TheIndexLeadsToKeyFrames) {
    const std::string path = PackPlain(MX_FORMAT_AVI, "seek.avi");
    const auto all = test::DecodeVideo(path).Hashes();
    ASSERT_EQ(all.size(), 75u);
    EXPECT_EQ(PictureAt(path, "1"), all[25]);
    EXPECT_EQ(PictureAt(path, "2"), all[50]);
}

TEST(AsfPlayers, TheIndexLeadsToKeyFrames) {
    const std::string path = PackPlain(MX_FORMAT_ASF, "seek.asf");
    const auto all = test::DecodeVideo(path).Hashes();
    ASSERT_EQ(all.size(), 75u);
    EXPECT_EQ(PictureAt(path, "1"), all[25]);
    EXPECT_EQ(PictureAt(path, "2"), all[50]);
}

}  // namespace
