// MP4, MOV, 3GP and their kin in the hands of ffmpeg and mediainfo.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "Muxora.h"
#include "support/clip.h"
#include "support/decoded.h"
#include "support/iso_file.h"
#include "support/pack.h"
#include "support/process.h"

namespace {

using test::ClipSpec;
using test::Decoded;
using test::MediaFrame;

struct Form {
    const char* name;
    uint32_t format;
    const char* extension;
    const char* component_key;  // null: through the C interface
};
constexpr Form kForms[] = {
    {"Mp4", MX_FORMAT_MP4, "mp4", nullptr},         {"Mov", MX_FORMAT_MOV, "mov", nullptr},
    {"ThreeGp", MX_FORMAT_3GP, "3gp", "3gp"},       {"NoSeek", MX_FORMAT_MP4_NOSEEK, "mp4", nullptr},
    {"Mp4Large", MX_FORMAT_MP4_64, "mp4", nullptr}, {"MovLarge", MX_FORMAT_MOV_64, "mov", nullptr},
};

struct Media {
    const char* name;
    ClipSpec spec;
    // How ffmpeg reads the elementary streams. An MP4 calls all layers of MPEG audio alike, so layer II goes through
    // the decoder for layer III there.
    const char* video_demuxer;
    std::vector<std::string> audio_words;
    const char* probed_video;  // codec_name,codec_tag_string,width,height
    const char* probed_audio;  // codec_name,sample_rate,channels
    const char* info;          // mediainfo's formats
};

ClipSpec Spec(const char* video, const char* audio, int fps, int rate, int channels, int slices = 1) {
    ClipSpec spec;
    spec.video = video;
    spec.audio = audio;
    spec.fps = fps;
    spec.gop = fps;
    spec.sample_rate = rate;
    spec.channels = channels;
    spec.slices = slices;
    return spec;
}

const std::vector<Media>& AllMedia() {
    static const std::vector<Media> media = {
        {"H264Aac",
         Spec("h264", "aac", 25, 48000, 2),
         "h264",
         {"-f", "aac"},
         "h264\navc1\n320\n240",
         "aac\n48000\n2",
         "AVC,AAC LC"},
        {"H264SlicesAac",
         Spec("h264", "aac", 30, 44100, 1, 4),
         "h264",
         {"-f", "aac"},
         "h264\navc1\n320\n240",
         "aac\n44100\n1",
         "AVC,AAC LC"},
        {"H265Aac",
         Spec("hevc", "aac", 50, 32000, 2),
         "hevc",
         {"-f", "aac"},
         "hevc\nhev1\n320\n240",
         "aac\n32000\n2",
         "HEVC,AAC LC"},
        {"Mpeg4Mp3",
         Spec("mpeg4", "mp3", 25, 44100, 2),
         "m4v",
         {"-f", "mp3"},
         "mpeg4\nmp4v\n320\n240",
         "mp3\n44100\n2",
         "MPEG-4 Visual,MPEG Audio"},
        {"MjpegMp2",
         Spec("mjpeg", "mp2", 15, 48000, 1),
         "mjpeg",
         {"-f", "mp3", "-c:a", "mp3float"},
         "mjpeg\njpeg\n320\n240",
         "mp3\n48000\n1",
         "JPEG,MPEG Audio"},
    };
    return media;
}

// Packs through the file component, which alone makes 3GP.
bool PackWithComponent(const char* key, const std::vector<MediaFrame>& frames, const std::string& path) {
    const std::map<uint32_t, long long> video{
        {MX_VIDEO_MPEG4, 1}, {MX_VIDEO_H264, 2}, {MX_VIDEO_MJPEG, 3}, {MX_VIDEO_H265, 5}};
    Orvane::Muxora::CFilePackage file(key);
    if (!file.open(path.c_str())) return false;
    for (const MediaFrame& frame : frames) {
        const Orvane::Muxora::AttributeMap attributes{
            {"frametype", frame.IsVideo() ? 86 : 65},
            {"framesubtype", frame.sub_type + 1},
            {"encodetype", frame.IsVideo()               ? video.at(frame.codec)
                           : frame.codec == MX_AUDIO_AAC ? 33
                                                         : 38},
            {"timestamp", frame.time_ms},
            {"width", frame.width},
            {"height", frame.height},
            {"rate", frame.frame_rate},
            {"samplespersec", frame.samples_per_sec},
            {"channels", frame.channels},
            {"bitspersample", frame.bits_per_sample},
        };
        if (!file.inputFrame(frame.bytes.data(), static_cast<unsigned>(frame.Size()), attributes)) return false;
    }
    return file.close();
}

// The elementary stream: the frames of one kind, one behind the other.
std::string Elementary(const std::vector<MediaFrame>& frames, bool video, const std::string& name) {
    std::vector<uint8_t> bytes;
    for (const MediaFrame& frame : frames) {
        if (frame.IsVideo() == video)
            bytes.insert(bytes.end(), frame.bytes.begin(), frame.bytes.end() - MediaFrame::kSpare);
    }
    const std::string path = test::WorkPath(name);
    test::WriteFile(path, bytes);
    return path;
}

class IsoPlayers : public testing::TestWithParam<std::tuple<size_t, size_t>> {
  protected:
    const Form& form = kForms[std::get<0>(GetParam())];
    const Media& media = AllMedia()[std::get<1>(GetParam())];
};

TEST_P(IsoPlayers, EveryFrameDecodesAsFromTheElementaryStream) {
    const auto frames = test::ClipFrames(media.spec);
    // Audio begins behind the first key frame; what comes before is not in the file.
    std::vector<MediaFrame> kept;
    for (const MediaFrame& frame : frames) {
        if (frame.IsVideo() || !kept.empty()) kept.push_back(frame);
    }
    const std::string name = std::string(media.name) + form.name;
    const Decoded video = test::DecodeVideo(Elementary(kept, true, name + ".v"), {"-f", media.video_demuxer});
    const Decoded audio = test::DecodeAudio(Elementary(kept, false, name + ".a"), media.audio_words);
    ASSERT_FALSE(video.frames.empty());
    ASSERT_FALSE(audio.frames.empty());

    for (const uint32_t gap : {0U, 20000U}) {
        const std::string path = test::WorkPath(name + std::to_string(gap) + "." + form.extension);
        if (form.component_key != nullptr) {
            if (gap != 0) continue;  // the component reserves none
            ASSERT_TRUE(PackWithComponent(form.component_key, frames, path));
        } else {
            test::PackOptions options;
            options.header.reserved_gap = gap;
            ASSERT_TRUE(test::PackFile(form.format, frames, path, options).Ok());
        }
        const test::IsoFile file(test::ReadFile(path));
        EXPECT_EQ(file.Layout().substr(0, 14), gap == 0 ? "ftyp free mdat" : "ftyp free moov");

        EXPECT_EQ(test::Probe(path, "v:0", "stream=codec_name,codec_tag_string,width,height"), media.probed_video);
        EXPECT_EQ(test::Probe(path, "a:0", "stream=codec_name,sample_rate,channels"), media.probed_audio);
        const auto info = test::Run({"mediainfo", "--Inform=General;%Video_Format_List%,%Audio_Format_List%", path});
        EXPECT_EQ(info.out, std::string(media.info) + "\n");
        EXPECT_EQ(info.err, "");

        const Decoded packed_video = test::DecodeVideo(path);
        EXPECT_TRUE(packed_video.ok);
        EXPECT_EQ(packed_video.errors, "");
        EXPECT_EQ(packed_video.Hashes(), video.Hashes());
        const Decoded packed_audio = test::DecodeAudio(path);
        EXPECT_TRUE(packed_audio.ok);
        EXPECT_EQ(packed_audio.errors, "");
        EXPECT_EQ(packed_audio.Hashes(), audio.Hashes());
    }
}

INSTANTIATE_TEST_SUITE_P(All, IsoPlayers,
                         testing::Combine(testing::Range(size_t{0}, std::size(kForms)),
                                          testing::Range(size_t{0}, AllMedia().size())),
                         [](const auto& p) {
                             return std::string(AllMedia()[std::get<1>(p.param)].name) +
                                    kForms[std::get<0>(p.param)].name;
                         });

// What ffmpeg said, line by line, without its "[name @ address] " and the file's path.
std::vector<std::string> Complaints(const Decoded& decoded, const std::string& path) {
    std::vector<std::string> out;
    std::istringstream lines(decoded.errors);
    for (std::string line; std::getline(lines, line);) {
        if (const size_t end = line.find("] "); !line.empty() && line[0] == '[' && end != std::string::npos) {
            line.erase(0, end + 2);
        }
        if (line.rfind(path + ": ", 0) == 0) line.erase(0, path.size() + 2);
        out.push_back(line);
    }
    return out;
}

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// Pictures that are coded out of order: there is no table of presentation times, so they come with those of decoding.
// Nothing is lost all the same.
TEST(IsoReaders, PicturesOutOfOrderKeepTheirContent) {
    ClipSpec spec;
    spec.b_frames = 2;
    const auto frames = test::ClipFrames(spec);
    const std::string path = test::WorkPath("bframes.mp4");
    ASSERT_TRUE(test::PackFile(MX_FORMAT_MP4, frames, path).Ok());
    const Decoded packed = test::DecodeVideo(path);
    EXPECT_TRUE(packed.ok);
    EXPECT_EQ(packed.Hashes(), test::DecodeVideo(Elementary(frames, true, "bframes.h264"), {"-f", "h264"}).Hashes());
    // From the writer of the hashes, not from the reader of the file.
    EXPECT_THAT(Complaints(packed, path), Each(StartsWith("Non-monotonous DTS in output stream 0:0")));
}

// A gap that the index fills to the last byte: free claims the index as well, so readers don't find it.
TEST(IsoReaders, AnIndexThatFillsItsGapIsNotFound) {
    const auto frames = test::ClipFrames({});
    const std::string path = test::WorkPath("exact.mp4");
    ASSERT_TRUE(test::PackFile(MX_FORMAT_MP4, frames, path).Ok());
    test::PackOptions options;
    options.header.reserved_gap = static_cast<uint32_t>(test::IsoFile(test::ReadFile(path)).Size("moov"));
    ASSERT_TRUE(test::PackFile(MX_FORMAT_MP4, frames, path, options).Ok());
    const Decoded packed = test::DecodeVideo(path);
    EXPECT_FALSE(packed.ok);
    EXPECT_THAT(Complaints(packed, path),
                ElementsAre("moov atom not found", "Invalid data found when processing input"));

    // One byte more, and all is well.
    options.header.reserved_gap += 1;
    ASSERT_TRUE(test::PackFile(MX_FORMAT_MP4, frames, path, options).Ok());
    EXPECT_EQ(test::DecodeVideo(path).errors, "");
}

// An MPEG-4 configuration so long that its descriptors outgrow the boxes around them.
TEST(IsoReaders, ALongMpeg4ConfigurationCannotBeRead) {
    ClipSpec spec;
    spec.video = "mpeg4";
    spec.audio = "";
    auto frames = test::ClipFrames(spec);
    for (MediaFrame& frame : frames) {
        if (!frame.IsKey()) continue;
        // 120 bytes of user_data in front of the picture (ISO/IEC 14496-2 6.2.2).
        std::vector<uint8_t> bytes(frame.bytes.begin(), frame.bytes.end() - MediaFrame::kSpare);
        std::vector<uint8_t> user{0, 0, 1, 0xB2};
        user.resize(120, 'u');
        const std::vector<uint8_t> vop{0, 0, 1, 0xB6};
        bytes.insert(std::search(bytes.begin(), bytes.end(), vop.begin(), vop.end()), user.begin(), user.end());
        frame.SetBytes(bytes.data(), bytes.size());
    }
    const std::string path = test::WorkPath("long_config.mp4");
    ASSERT_TRUE(test::PackFile(MX_FORMAT_MP4, frames, path).Ok());
    EXPECT_THAT(
        Complaints(test::DecodeVideo(path), path),
        ElementsAre(HasSubstr("Could not find codec parameters for stream 0"), StartsWith("Consider increasing"),
                    "Cannot determine format of input stream 0:0 after EOF", "Error marking filters as finished"));
}

// Private data of 4.25 GiB between two runs of a clip. Its zeros are left as a hole in the file.
TEST(IsoReaders, SixtyFourBitFormsReachBehind4GiB) {
    const auto frames = test::ClipFrames({});
    auto twice = frames;
    twice.insert(twice.end(), frames.begin(), frames.end());
    const Decoded video = test::DecodeVideo(Elementary(twice, true, "twice.h264"), {"-f", "h264"});
    constexpr uint32_t kHole = 64 << 20;
    std::vector<uint8_t> zeros(kHole);
    for (const uint32_t format : {MX_FORMAT_MP4_64, MX_FORMAT_MOV_64}) {
        const std::string path = test::WorkPath("large.mp4");
        int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(file, 0);
        MXCreateParam param{};
        param.user = &file;
        param.output = [](const MXOutputBlock* block, void* user) -> int32_t {
            if (block->length == kHole) return 0;
            return pwrite(*static_cast<int*>(user), block->data, block->length, block->offset) < 0;
        };
        const MXHandle handle = MX_CreateHandle(format, &param);
        EXPECT_EQ(MX_CreateHeader(handle, nullptr), 0u);
        const auto give = [&] {
            for (MediaFrame frame : frames) {
                MXFrameInfo info = frame.Record();
                EXPECT_EQ(MX_InputFrame(handle, &info), 0u);
            }
        };
        give();
        for (int i = 0; i < 68; ++i) {
            MXFrameInfo info{};
            info.size = sizeof info;
            info.frame_pointer = zeros.data();
            info.frame_size = kHole;
            info.frame_type = MX_FRAME_PRIVATE;
            EXPECT_EQ(MX_InputFrame(handle, &info), 0u);
        }
        give();
        EXPECT_EQ(MX_CreateTailer(handle, nullptr), 0u);
        MX_DestroyHandle(handle);
        close(file);
        EXPECT_GT(std::stoll(test::Probe(path, "", "format=size")), 68LL << 26);
        const Decoded packed = test::DecodeVideo(path);
        EXPECT_EQ(packed.errors, "");
        EXPECT_EQ(packed.Hashes(), video.Hashes());
    }
}

}  // namespace
