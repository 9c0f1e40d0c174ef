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

// A record has one time. With B pictures it stands for the order of decoding, and ffmpeg remarks on the times then.
enum class Order { kAsShown, kAsDecoded };

void ExpectSameMedia(const Recording& recording, Order order = Order::kAsShown) {
    const Decoded video = test::DecodeVideo(recording.file);
    EXPECT_TRUE(video.ok);
    if (order == Order::kAsShown) {
        EXPECT_EQ(video.errors, "");
    }
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
                                         Codecs{"hevc", "mp2"}, Codecs{"mpeg2video", "aac"},
                                         Codecs{"mpeg2video", "mp2"}, Codecs{"mpeg4", "aac"}, Codecs{"mpeg4", "mp2"}),
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

// What tshark finds in a transport stream: the state of each table's CRC and its own remarks.
struct TsharkFindings {
    size_t packets = 0;
    size_t good_crcs = 0;
    std::vector<std::string> faults;
};

TsharkFindings AskTshark(const std::string& file) {
    const auto run = test::Run({"tshark", "-r", file, "-o", "mpeg_sect.verify_crc:TRUE", "-T", "fields", "-E",
                                "separator=|", "-e", "mpeg_sect.crc.status", "-e", "_ws.expert.message"});
    EXPECT_TRUE(run.Ok()) << run.err;
    TsharkFindings findings;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line); ++findings.packets) {
        if (line == "1|") {
            ++findings.good_crcs;
        } else if (line != "|") {
            findings.faults.push_back(line);
        }
    }
    return findings;
}

TEST_P(TsPlayers, TsharkFindsNoGapAndNoBadCrc) {
    const Recording recording = Record(MX_FORMAT_TS, Spec(GetParam()), NameOf(GetParam()) + "_tshark.ts");
    ByteVector bytes = test::ReadFile(recording.file);
    size_t tables = 0;
    for (size_t at = 0; at < bytes.size(); at += 188)
        tables += bytes[at + 2] == 0x00 || bytes[at + 2] == 0x10;
    const TsharkFindings findings = AskTshark(recording.file);
    EXPECT_EQ(findings.packets, bytes.size() / 188);
    EXPECT_EQ(findings.good_crcs, tables);
    EXPECT_GT(tables, 10u);
    EXPECT_EQ(findings.faults, std::vector<std::string>{});

    // It would find them: a wrong byte in the first table, and a packet that is missing.
    bytes[17] ^= 1;
    bytes.erase(bytes.begin() + 188 * 20, bytes.begin() + 188 * 21);
    const std::string broken = recording.file + "_broken.ts";
    test::WriteFile(broken, bytes);
    EXPECT_GE(AskTshark(broken).faults.size(), 2u);
}

TEST_P(TsPlayers, EachFrameIsAPesPacketOfItsOwn) {
    const Recording recording = Record(MX_FORMAT_TS, Spec(GetParam()), NameOf(GetParam()) + "_parsed.ts");
    const std::vector<test::TsPacket> packets = test::ReadTs(test::ReadFile(recording.file));
    const ByteVector delimiter = test::Bytes("00 00 00 01 09 F0");
    const bool delimited = std::string(GetParam().video) == "h264";
    for (const bool video : {true, false}) {
        const std::vector<ByteVector> frames = FrameBytes(recording.frames, video);
        const std::vector<int64_t> ticks = Ticks(recording.frames, video, 0);
        const std::vector<test::PesPacket> pes = test::ReadTsPes(packets, video ? 18 : 19);
        ASSERT_EQ(pes.size(), frames.size());
        for (size_t i = 0; i < pes.size(); ++i) {
            using test::operator+;
            ASSERT_EQ(pes[i].payload, video && delimited ? delimiter + frames[i] : frames[i]) << i;
            ASSERT_EQ(pes[i].pts, static_cast<uint64_t>(ticks[i])) << i;
        }
    }
}

TEST(TsPlayersMore, BPicturesInSlices) {
    ClipSpec spec = Spec(Codecs{"h264", "aac"});
    spec.b_frames = 2;
    spec.slices = 4;
    ExpectSameMedia(Record(MX_FORMAT_TS, spec, "b.ts"), Order::kAsDecoded);
    ExpectSameMedia(Record(MX_FORMAT_PS, spec, "b.mpg"), Order::kAsDecoded);
}

TEST(TsPlayersMore, PicturesBeyondTheLengthField) {
    ClipSpec spec = Spec(Codecs{"mpeg2video", "mp2"});
    spec.width = 1920;
    spec.height = 1080;
    const Recording ts = Record(MX_FORMAT_TS, spec, "large.ts");
    EXPECT_GT(FrameBytes(ts.frames, true).front().size(), 65536u);
    ExpectSameMedia(ts);
    ExpectSameMedia(Record(MX_FORMAT_PS, spec, "large.mpg"));
}

TEST(TsPlayersMore, AnAnnouncedStreamStandsInTheFirstTable) {
    const ClipSpec spec = Spec(Codecs{"h264", "aac"});
    const std::string path = test::WorkPath("announced.ts");
    test::PackOptions options;
    options.describe = true;
    ASSERT_TRUE(test::PackFile(MX_FORMAT_TS, test::ClipFrames(spec), path, options).Ok());
    const std::vector<test::TsPacket> packets = test::ReadTs(test::ReadFile(path));
    const ByteVector first = test::ReadSection(packets.at(1));
    EXPECT_EQ(first.size(), 26u);
    for (const test::TsPacket& packet : packets) {
        if (packet.pid == 16) {
            ASSERT_EQ(test::ReadSection(packet), first);
        }
    }
}

// ------------------------------------------------------------------------- program streams, block by block

struct PsShape {
    uint32_t format;
    const char* video;
    const char* audio;
    bool system_header;
    bool crc_in_map_length;
    size_t info_size;  // of descriptors behind each stream of a map
    int64_t pts_offset;
    bool evenly_timed;
};

const auto kShapeName = [](const auto& test) {
    return "Format" + std::to_string(test.param.format) + "_" + test.param.video + "_" + test.param.audio;
};

class PsBlocks : public testing::TestWithParam<PsShape> {};

INSTANTIATE_TEST_SUITE_P(All, PsBlocks,
                         testing::Values(PsShape{MX_FORMAT_PS, "h264", "aac", true, false, 0, 90000, false},
                                         PsShape{MX_FORMAT_PS, "hevc", "mp2", true, false, 0, 90000, false},
                                         PsShape{MX_FORMAT_PS, "mpeg2video", "mp2", true, false, 0, 90000, false},
                                         PsShape{MX_FORMAT_PS, "mpeg4", "aac", true, false, 0, 90000, false},
                                         PsShape{MX_FORMAT_PS_OV, "h264", "aac", true, false, 20, 90000, false},
                                         PsShape{MX_FORMAT_PS_OV, "hevc", "mp2", true, false, 20, 90000, false},
                                         PsShape{MX_FORMAT_PS_OV, "mjpeg", "aac", true, false, 20, 90000, false},
                                         PsShape{MX_FORMAT_PS_OV, "mpeg2video", "aac", true, false, 20, 90000, false},
                                         PsShape{MX_FORMAT_PS_GAYS, "h264", "alaw", true, false, 0, 90000, false},
                                         PsShape{MX_FORMAT_PS_GAYS, "mpeg4", "alaw", true, false, 0, 90000, false},
                                         PsShape{MX_FORMAT_PS_GD, "h264", "mulaw", false, true, 0, 0, true},
                                         PsShape{MX_FORMAT_PS_GD, "mpeg4", "alaw", false, true, 0, 0, true}),
                         kShapeName);

ClipSpec Spec(const PsShape& shape) {
    ClipSpec spec = Spec(Codecs{shape.video, shape.audio});
    if (std::string(shape.audio).find("law") != std::string::npos) {
        spec.sample_rate = 0;
        spec.channels = 1;
    }
    return spec;
}

TEST_P(PsBlocks, EachFrameIsAPackWithItsPackets) {
    const PsShape& shape = GetParam();
    const std::string path = test::WorkPath("blocks.mpg");
    const std::vector<MediaFrame> frames = test::ClipFrames(Spec(shape));
    const test::PackResult packed = test::PackFile(shape.format, frames, path);
    ASSERT_TRUE(packed.Ok());
    ASSERT_EQ(packed.block_sizes.size(), frames.size());
    const ByteVector file = test::ReadFile(path);
    size_t offset = 0;
    uint64_t number[2] = {0, 0};
    for (size_t i = 0; i < frames.size(); ++i) {
        const MediaFrame& frame = frames[i];
        const auto units = test::ReadPs(test::Slice(file, offset, packed.block_sizes[i]));
        offset += packed.block_sizes[i];
        ASSERT_EQ(units.at(0).id, test::kPsPack);
        const uint8_t stream = frame.IsVideo() ? test::kPsVideo : test::kPsAudio;
        size_t at = 1;
        if (frame.IsKey() && shape.system_header) {
            ASSERT_EQ(units.at(at++).id, test::kPsSystemHeader);
        } else if (units.at(at).id == test::kPsSystemHeader) {
            ASSERT_EQ(shape.format, uint32_t{MX_FORMAT_PS_OV});  // as the second changes
            ++at;
        }
        if (frame.IsKey() || (!frame.IsVideo() && number[1] % 25 == 0)) {
            ASSERT_EQ(units.at(at).id, test::kPsMap);
        }
        if (units.at(at).id == test::kPsMap) {
            for (const test::PsMapEntry& entry : test::ReadPsMap(units.at(at).bytes, shape.crc_in_map_length)) {
                if (!shape.crc_in_map_length) {
                    ASSERT_EQ(entry.info.size(), shape.info_size);
                }
            }
            ++at;
        }
        uint64_t& count = number[frame.IsVideo() ? 0 : 1];
        ++count;
        const uint64_t step = frame.IsVideo() ? 3600 : 3240;
        const uint64_t expected =
            shape.evenly_timed ? count * step : static_cast<uint64_t>(frame.time_ms * 90 + shape.pts_offset);
        ASSERT_EQ(units.at(at).pes.pts, expected) << i;
        ASSERT_LE(units.at(0).scr, expected);
        ByteVector payload;
        for (bool first = true; at < units.size(); ++at, first = false) {
            ASSERT_EQ(units[at].id, stream);
            ASSERT_EQ(units[at].pes.pts.has_value(), first);
            ASSERT_LE(units[at].pes.payload.size(), 61440u);
            if (shape.format == MX_FORMAT_PS_GD) {
                ASSERT_EQ(units[at].bytes.size() % 4, 0u);
            }
            payload.insert(payload.end(), units[at].pes.payload.begin(), units[at].pes.payload.end());
        }
        ASSERT_EQ(payload, Bytes(frame)) << i;
    }
    EXPECT_EQ(offset, file.size());
}

// ffmpeg does not know the sound of the last two dialects, and the last one names every picture H.264.
class PsDialectPlayers : public testing::TestWithParam<PsShape> {};

INSTANTIATE_TEST_SUITE_P(All, PsDialectPlayers,
                         testing::Values(PsShape{MX_FORMAT_PS_OV, "h264", "aac", true, false, 20, 90000, false},
                                         PsShape{MX_FORMAT_PS_OV, "hevc", "mp2", true, false, 20, 90000, false},
                                         PsShape{MX_FORMAT_PS_OV, "mpeg2video", "aac", true, false, 20, 90000, false},
                                         PsShape{MX_FORMAT_PS_GAYS, "h264", "alaw", true, false, 0, 90000, false},
                                         PsShape{MX_FORMAT_PS_GAYS, "mpeg4", "alaw", true, false, 0, 90000, false},
                                         PsShape{MX_FORMAT_PS_GD, "h264", "mulaw", false, true, 0, 0, true}),
                         kShapeName);

TEST_P(PsDialectPlayers, FfmpegDecodesWhatItKnows) {
    const PsShape& shape = GetParam();
    const Recording recording = Record(shape.format, Spec(shape), "dialect.mpg");
    if (shape.format == MX_FORMAT_PS_OV) {
        ExpectSameMedia(recording);
        EXPECT_EQ(ProbedPts(recording.file, "v:0"), Ticks(recording.frames, true, 90000));
        return;
    }
    const Decoded decoded = test::DecodeVideo(recording.file);
    EXPECT_EQ(decoded.frames.size(), 75u);
    EXPECT_EQ(decoded.Hashes(), test::DecodeVideo(recording.video).Hashes());
}

}  // namespace
