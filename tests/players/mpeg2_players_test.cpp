// Transport and program streams in the hands of ffmpeg and tshark, and of the small readers of tests/support.
#include <gtest/gtest.h>

#include <sstream>

#include "support/clip.h"
#include "support/decoded.h"
#include "support/pack.h"
#include "support/process.h"
#include "support/ps_reader.h"
#include "support/ts_reader.h"

namespace {

using test::ByteVector;
using test::ClipSpec;
using test::Decoded;
using test::MediaFrame;

// A clip in a file of the library's making, and its elementary streams beside it.
struct Recording {
    std::vector<MediaFrame> frames;
    std::string file;
    std::string video;
    std::string audio;
};

std::string ElementaryName(const std::string& codec) {
    if (codec == "hevc") return ".h265";
    if (codec == "mpeg4") return ".m4v";
    if (codec == "mpeg2video") return ".m2v";
    return "." + codec;
}

ByteVector Bytes(const MediaFrame& frame) {
    return {frame.bytes.begin(), frame.bytes.begin() + static_cast<std::ptrdiff_t>(frame.Size())};
}

std::vector<ByteVector> FrameBytes(const std::vector<MediaFrame>& frames, bool video) {
    std::vector<ByteVector> out;
    for (const MediaFrame& frame : frames) {
        if (frame.IsVideo() == video) out.push_back(Bytes(frame));
    }
    return out;
}

ByteVector Joined(const std::vector<ByteVector>& pieces) {
    ByteVector out;
    for (const ByteVector& piece : pieces)
        out.insert(out.end(), piece.begin(), piece.end());
    return out;
}

Recording Record(uint32_t format, const ClipSpec& spec, const std::string& name) {
    Recording recording;
    recording.frames = test::ClipFrames(spec);
    recording.file = test::WorkPath(name);
    EXPECT_TRUE(test::PackFile(format, recording.frames, recording.file).Ok()) << name;
    recording.video = test::WorkPath(name + ElementaryName(spec.video));
    recording.audio = test::WorkPath(name + ElementaryName(spec.audio));
    test::WriteFile(recording.video, Joined(FrameBytes(recording.frames, true)));
    test::WriteFile(recording.audio, Joined(FrameBytes(recording.frames, false)));
    return recording;
}

// Times of a stream's frames in ticks: milliseconds by 90, and an offset.
std::vector<int64_t> Ticks(const std::vector<MediaFrame>& frames, bool video, int64_t offset) {
    std::vector<int64_t> out;
    for (const MediaFrame& frame : frames) {
        if (frame.IsVideo() == video) out.push_back(frame.time_ms * 90 + offset);
    }
    return out;
}

std::vector<int64_t> ProbedPts(const std::string& file, const std::string& stream) {
    std::vector<int64_t> out;
    std::istringstream lines(test::Probe(file, stream, "packet=pts"));
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) out.push_back(line == "N/A" ? -1 : std::stoll(line));
    }
    return out;
}

struct Codecs {
    const char* video;
    const char* audio;
};

std::string NameOf(const Codecs& codecs) {
    return std::string(codecs.video) + "_" + codecs.audio;
}

ClipSpec Spec(const Codecs& codecs) {
    ClipSpec spec;
    spec.video = codecs.video;
    spec.audio = codecs.audio;
    spec.seconds = 3;
    spec.channels = 2;
    return spec;
}

void ExpectSameMedia(const Recording& recording) {
    const Decoded video = test::DecodeVideo(recording.file);
    EXPECT_TRUE(video.ok);
    EXPECT_EQ(video.errors, "");
    EXPECT_EQ(video.frames.size(), 75u);
    EXPECT_EQ(video.Hashes(), test::DecodeVideo(recording.video).Hashes());
    const Decoded audio = test::DecodeAudio(recording.file);
    EXPECT_TRUE(audio.ok);
    EXPECT_EQ(audio.errors, "");
    EXPECT_GT(audio.frames.size(), 100u);
    EXPECT_EQ(audio.Hashes(), test::DecodeAudio(recording.audio).Hashes());
}

class TsPlayers : public testing::TestWithParam<Codecs> {};
class PsPlayers : public testing::TestWithParam<Codecs> {};

const auto kName = [](const auto& test) { return NameOf(test.param); };

INSTANTIATE_TEST_SUITE_P(All, TsPlayers,
                         testing::Values(Codecs{"h264", "aac"}, Codecs{"h264", "mp2"}, Codecs{"hevc", "aac"},
                                         Codecs{"hevc", "mp2"}, Codecs{"mpeg2video", "aac"}, Codecs{"mpeg2video", "mp2"},
                                         Codecs{"mpeg4", "aac"}, Codecs{"mpeg4", "mp2"}),
                         kName);
INSTANTIATE_TEST_SUITE_P(All, PsPlayers,
                         testing::Values(Codecs{"h264", "aac"}, Codecs{"h264", "mp2"}, Codecs{"hevc", "aac"},
                                         Codecs{"hevc", "mp2"}, Codecs{"mpeg2video", "aac"},
                                         Codecs{"mpeg2video", "mp2"}),
                         kName);

TEST_P(TsPlayers, FfmpegDecodesEveryFrameAsInTheElementaryStream) {
    ExpectSameMedia(Record(MX_FORMAT_TS, Spec(GetParam()), NameOf(GetParam()) + ".ts"));
}

TEST_P(TsPlayers, FfprobeShowsTheTimesThatWentIn) {
    const Recording recording = Record(MX_FORMAT_TS, Spec(GetParam()), NameOf(GetParam()) + "_times.ts");
    EXPECT_EQ(ProbedPts(recording.file, "v:0"), Ticks(recording.frames, true, 0));
    EXPECT_EQ(ProbedPts(recording.file, "a:0"), Ticks(recording.frames, false, 0));
}

TEST_P(PsPlayers, FfmpegDecodesEveryFrameAsInTheElementaryStream) {
    ExpectSameMedia(Record(MX_FORMAT_PS, Spec(GetParam()), NameOf(GetParam()) + ".mpg"));
}

TEST_P(PsPlayers, FfprobeShowsTheTimesThatWentIn) {
    const Recording recording = Record(MX_FORMAT_PS, Spec(GetParam()), NameOf(GetParam()) + "_times.mpg");
    EXPECT_EQ(ProbedPts(recording.file, "v:0"), Ticks(recording.frames, true, 90000));
    EXPECT_EQ(ProbedPts(recording.file, "a:0"), Ticks(recording.frames, false, 90000));
}

}  // namespace
