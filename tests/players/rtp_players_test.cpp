// RTP in the hands of receivers that we did not write: ffmpeg and GStreamer take the stream from the loopback interface
// through an SDP file, and tshark takes the packets apart.
//
// Four departures from the standards stop a receiver; the streams here keep clear of them, and the last tests show them
// on real pictures: a second fragmented slice of an H.264 picture (RFC 6184 5.8), an H.264 picture of another kind than
// I or P that needs more than one packet (the same), an AAC frame beyond one packet (RFC 3640 3.1), and H.265 start
// codes of both lengths in one frame (the packets' NAL headers are then wrong, RFC 7798 4.4).
#include <gtest/gtest.h>

#include <ostream>
#include <sstream>

#include "rtp_loopback.h"
#include "support/clip.h"
#include "support/decoded.h"
#include "support/process.h"

namespace {

using Orvane::Muxora::Tools::MediaFrame;
using test::Datagram;
using test::RtpFormat;
using test::RtpLoopback;
using test::RunResult;
using Bytes = std::vector<uint8_t>;
using Words = std::vector<std::string>;

// One kind of stream, with what each program has to be told about it.
struct StreamCase {
    const char* name;
    RtpFormat format;
    uint32_t clock_khz;     // RTP ticks in a millisecond
    Words encoder;          // ffmpeg makes the clip
    Words elementary;       // ffmpeg reads its frames as they are, one behind the other
    Words decoder;          // ffmpeg takes the decoder that GStreamer has
    const char* gstreamer;  // depayloader and decoder
    Words raw;              // ffmpeg writes decoded bytes as GStreamer does
    const char* dissector;  // tshark's name for the payload; null where the payload type says it, or there is none
};

void PrintTo(const StreamCase& one, std::ostream* out) {
    *out << one.name;
}

// A picture of RFC 2435's type 1 has two tables; an encoder with two equal ones writes one alone.
const std::string kFlatMatrix = [] {
    std::string values = "16";
    for (int i = 1; i < 64; ++i)
        values += ",20";
    return values;
}();

constexpr const char* kFloats = " ! audioconvert ! audio/x-raw,format=F32LE,layout=interleaved";

const StreamCase kCases[] = {
    {"H264",
     {"video", 96, "H264/90000", "packetization-mode=1", true},
     90,
     {"-c:v", "libx264", "-preset", "ultrafast", "-x264-params", "keyint=25:slices=1:bframes=0"},
     {"-f", "h264"},
     {},
     "rtph264depay ! avdec_h264",
     {"-f", "rawvideo", "-pix_fmt", "yuv420p"},
     "h264"},
    {"H265",
     {"video", 97, "H265/90000", "", false},
     90,
     {"-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=none:keyint=25:bframes=0:pools=none"},
     {"-f", "hevc"},
     {},
     "rtph265depay ! h265parse ! avdec_h265",
     {"-f", "rawvideo", "-pix_fmt", "yuv420p"},
     "h265"},
    {"MotionJpeg",
     {"video", 26, "JPEG/90000", "", false},
     90,
     {"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-huffman", "default", "-q:v", "4", "-chroma_intra_matrix", kFlatMatrix},
     {"-f", "mjpeg"},
     {},
     "rtpjpegdepay ! avdec_mjpeg",
     {"-f", "rawvideo", "-pix_fmt", "yuvj420p"},
     nullptr},
    {"Mpeg4Video",
     {"video", 99, "MP4V-ES/90000", "profile-level-id=1", true},
     90,
     {"-c:v", "mpeg4", "-q:v", "5", "-g", "25"},
     {"-f", "m4v"},
     {},
     "rtpmp4vdepay ! mpeg4videoparse ! avdec_mpeg4",
     {"-f", "rawvideo", "-pix_fmt", "yuv420p"},
     "mp4v-es"},
    {"MpegAudio",
     {"audio", 14, "MPA/90000", "", true},
     90,
     {"-c:a", "mp2", "-ar", "48000", "-ac", "2", "-b:a", "128k"},
     {"-f", "mp3"},
     {"-c:a", "mp2float"},
     "rtpmpadepay ! mpegaudioparse ! avdec_mp2float",
     {"-f", "f32le"},
     nullptr},
    {"Aac",
     {"audio", 98, "mpeg4-generic/48000/2",
      "streamtype=5;profile-level-id=1;mode=AAC-hbr;config=1190;sizelength=13;indexlength=3;indexdeltalength=3", true},
     48,
     {"-c:a", "aac", "-ar", "48000", "-ac", "2", "-b:a", "96k"},
     {"-f", "aac"},
     {},
     "rtpmp4gdepay ! avdec_aac",
     {"-f", "f32le"},
     nullptr},
    {"G711Alaw",
     {"audio", 8, "PCMA/8000", "", true},
     8,
     {"-c:a", "pcm_alaw", "-ar", "8000", "-ac", "1"},
     {"-f", "alaw", "-ar", "8000", "-ac", "1"},
     {},
     "rtppcmadepay ! alawdec",
     {"-f", "s16le"},
     nullptr},
    {"G711Mulaw",
     {"audio", 0, "PCMU/8000", "", true},
     8,
     {"-c:a", "pcm_mulaw", "-ar", "8000", "-ac", "1"},
     {"-f", "mulaw", "-ar", "8000", "-ac", "1"},
     {},
     "rtppcmudepay ! mulawdec",
     {"-f", "s16le"},
     nullptr},
    {"LinearPcm",
     {"audio", 100, "L16/48000/2", "", true},
     48,
     {"-c:a", "pcm_s16le", "-ar", "48000", "-ac", "2"},
     {"-f", "s16le", "-ar", "48000", "-ac", "2"},
     {},
     "rtpL16depay ! audioconvert ! audio/x-raw,format=S16LE",
     {"-f", "s16le"},
     nullptr},
};

constexpr uint32_t kFirstSequence = 65500;   // wraps within the clip
constexpr uint32_t kFirstTime = 4294900000;  // so does this
constexpr uint32_t kVideoSsrc = 0x11223344;
constexpr uint32_t kAudioSsrc = 0x55667788;

MXRtpParam Param(const RtpFormat& format, uint32_t clock_khz) {
    MXRtpParam param{};
    param.size = sizeof param;
    param.max_rtp_packet_length = 1402;  // whole samples of stereo PCM in each packet
    param.rtp_sequence_number = param.rtp_audio_sequence_number = kFirstSequence;
    param.rtp_timestamp = param.rtp_audio_timestamp = kFirstTime;
    param.rtp_ssrc = kVideoSsrc;
    param.rtp_audio_ssrc = kAudioSsrc;
    param.rtp_payload_type = param.rtp_audio_payload_type = format.payload_type;
    param.rtp_audio_sample = clock_khz * 1000;
    return param;
}

void Add(Words& to, const Words& more) {
    to.insert(to.end(), more.begin(), more.end());
}

Bytes FrameBytes(const MediaFrame& frame) {
    return {frame.bytes.begin(), frame.bytes.begin() + static_cast<std::ptrdiff_t>(frame.Size())};
}

// Two seconds of media.
std::vector<MediaFrame> MakeFrames(const std::string& name, bool video, const Words& encoder) {
    const std::string path = test::WorkPath("rtp-" + name + ".mkv");
    Words argv{"ffmpeg", "-nostdin", "-loglevel", "error", "-y", "-f", "lavfi", "-i"};
    argv.push_back(video ? "testsrc2=size=640x480:rate=25:duration=2"
                         : "sine=frequency=440:beep_factor=4:sample_rate=48000:duration=2");
    Add(argv, encoder);
    argv.push_back(path);
    const RunResult made = test::Run(argv);
    if (!made.Ok()) throw std::runtime_error(made.err);
    return Orvane::Muxora::Tools::ReadAllFrames({path});
}

class RtpPlayers : public testing::TestWithParam<StreamCase> {
  protected:
    RtpPlayers() : one_(GetParam()), video_(one_.format.media == "video") {}

    void SetUp() override {
        frames_ = MakeFrames(one_.name, video_, one_.encoder);
        ASSERT_GE(frames_.size(), 50u);
        datagrams_ = test::PackRtp(frames_, one_.format, Param(one_.format, one_.clock_khz));
        ASSERT_GE(datagrams_.size(), frames_.size());
        Bytes elementary;
        for (const MediaFrame& frame : frames_) {
            const Bytes bytes = FrameBytes(frame);
            elementary.insert(elementary.end(), bytes.begin(), bytes.end());
        }
        elementary_ = test::WorkPath("rtp.es");
        test::WriteFile(elementary_, elementary);
    }

    bool IsPcm() const { return one_.raw[1] == "s16le"; }

    const StreamCase& one_;
    const bool video_;
    std::vector<MediaFrame> frames_;
    std::vector<Datagram> datagrams_;
    std::string elementary_;
};

TEST_P(RtpPlayers, FfmpegDecodesEveryFrame) {
    const auto decode = [&](const std::string& path, Words words) -> Words {
        Add(words, one_.decoder);
        // PCM and G.711 have no frames of their own: the sound is one run of samples, however it is cut.
        if (IsPcm()) return {test::SoundHash(path, words)};
        const test::Decoded decoded = video_ ? test::DecodeVideo(path, words) : test::DecodeAudio(path, words);
        EXPECT_TRUE(decoded.ok) << decoded.errors;
        return decoded.Hashes();
    };
    const RtpLoopback loopback(one_.format);
    const Words sent = decode(elementary_, one_.elementary);
    const Words received = loopback.Play(datagrams_, [&] {
        return decode(loopback.sdp_path(), {"-protocol_whitelist", "file,udp,rtp", "-buffer_size", "4000000"});
    });
    EXPECT_GE(sent.size(), IsPcm() ? 1u : 50u);
    EXPECT_NE(sent[0], "");
    EXPECT_EQ(received, sent);
}

TEST_P(RtpPlayers, GStreamerDecodesEveryFrame) {
    const RtpLoopback loopback(one_.format);
    const std::string played = test::WorkPath("gstreamer.raw");
    Words argv{"gst-launch-1.0", "-q", "filesrc", "location=" + loopback.sdp_path(), "!", "sdpdemux", "!"};
    std::istringstream pipeline(std::string(one_.gstreamer) + (one_.raw[1] == "f32le" ? kFloats : "") +
                                " ! filesink location=" + played);
    for (std::string word; pipeline >> word;)
        argv.push_back(word);
    const RunResult run = loopback.Play(datagrams_, [&] { return test::Run(argv, 30); });
    EXPECT_TRUE(run.Ok()) << run.exit_code << run.err;

    const std::string sent = test::WorkPath("reference.raw");
    Words decode{"ffmpeg", "-nostdin", "-loglevel", "error", "-y"};
    Add(decode, one_.elementary);
    Add(decode, one_.decoder);
    Add(decode, {"-i", elementary_});
    if (video_) Add(decode, {"-fps_mode", "passthrough"});
    Add(decode, one_.raw);
    decode.push_back(sent);
    const RunResult decoded = test::Run(decode);
    ASSERT_TRUE(decoded.Ok()) << decoded.err;
    const Bytes expected = test::ReadFile(sent);
    const Bytes actual = test::ReadFile(played);
    EXPECT_GE(expected.size(), 16000u);
    ASSERT_EQ(actual.size(), expected.size());
    EXPECT_TRUE(actual == expected);
}

TEST_P(RtpPlayers, TsharkTakesEveryPacketApart) {
    const std::string path = test::WorkPath("rtp.pcap");
    test::WriteFile(path, test::PcapFile(datagrams_, 5004));
    const std::string type = std::to_string(one_.format.payload_type);
    Words tshark{"tshark", "-r", path, "-d", "udp.port==5004,rtp"};
    if (one_.dissector != nullptr) Add(tshark, {"-d", "rtp.pt==" + type + "," + one_.dissector});
    // What tshark says of the packets that pass the filter.
    const auto dissect = [&](const char* filter, const Words& words) {
        Words argv = tshark;
        Add(argv, {"-Y", filter});
        Add(argv, words);
        const RunResult run = test::Run(argv);
        EXPECT_TRUE(run.Ok()) << run.err;
        return run.out;
    };

    std::ostringstream expected;
    for (size_t i = 0; i < datagrams_.size(); ++i) {
        const size_t frame = datagrams_[i].frame;
        const bool last = i + 1 == datagrams_.size() || datagrams_[i + 1].frame != frame;
        // An H.265 frame whose last unit is in one packet ends without the marker; 49 is the type of fragments.
        const bool marker = last && (one_.format.rtpmap != "H265/90000" || datagrams_[i].bytes[12] >> 1 == 49);
        const auto ms = static_cast<uint32_t>(frames_[frame].time_ms - frames_[0].time_ms);
        expected << "2;" << type << ';' << (kFirstSequence + 1 + i) % 65536 << ';' << kFirstTime + ms * one_.clock_khz
                 << ";0x" << std::hex << (video_ ? kVideoSsrc : kAudioSsrc) << std::dec << ';' << marker << '\n';
    }
    Words fields{"-T", "fields", "-E", "separator=;"};
    for (const char* field : {"rtp.version", "rtp.p_type", "rtp.seq", "rtp.timestamp", "rtp.ssrc", "rtp.marker"})
        Add(fields, {"-e", field});
    EXPECT_EQ(dissect(one_.dissector != nullptr ? one_.dissector : "rtp", fields), expected.str());

    EXPECT_EQ(dissect("_ws.malformed || _ws.expert.severity == error", {}), "");
}

INSTANTIATE_TEST_SUITE_P(All, RtpPlayers, testing::ValuesIn(kCases),
                         [](const auto& one) { return std::string(one.param.name); });

// ------------------------------------------------------------------------------------------------ departures

constexpr size_t kHeader = 12;

// The slices of an Annex-B picture with start codes of four bytes.
std::vector<Bytes> Slices(const Bytes& frame) {
    std::vector<Bytes> slices;
    size_t start = 0;
    for (size_t i = 0; i <= frame.size(); ++i) {
        const bool code =
            i + 4 <= frame.size() && frame[i] == 0 && frame[i + 1] == 0 && frame[i + 2] == 0 && frame[i + 3] == 1;
        if (!code && i < frame.size()) continue;
        if (start != 0 && ((frame[start] & 31) == 1 || (frame[start] & 31) == 5)) {
            slices.emplace_back(frame.begin() + static_cast<std::ptrdiff_t>(start),
                                frame.begin() + static_cast<std::ptrdiff_t>(i));
        }
        start = i + 4;
    }
    return slices;
}

// Units put together from FU-A packets as RFC 6184 5.8 says, one each time that a start bit shows.
std::vector<Bytes> Reassemble(const std::vector<Datagram>& datagrams, size_t frame) {
    std::vector<Bytes> units;
    for (const Datagram& datagram : datagrams) {
        if (datagram.frame != frame || (datagram.bytes[kHeader] & 31) != 28) continue;
        const uint8_t fu = datagram.bytes[kHeader + 1];
        if ((fu & 0x80) != 0) units.push_back({static_cast<uint8_t>((datagram.bytes[kHeader] & 0xE0) | (fu & 0x1F))});
        if (units.empty()) continue;
        units.back().insert(units.back().end(), datagram.bytes.begin() + kHeader + 2, datagram.bytes.end());
    }
    return units;
}

const RtpFormat kH264{"video", 96, "H264/90000", "packetization-mode=1", true};

TEST(RtpDepartures, TheSecondFragmentedSliceOfAPictureLosesItsFirstByte) {
    const auto frames = MakeFrames(
        "slices", true, {"-c:v", "libx264", "-preset", "ultrafast", "-x264-params", "keyint=25:slices=2:bframes=0"});
    const auto datagrams = test::PackRtp(frames, kH264, Param(kH264, 90));
    const std::vector<Bytes> slices = Slices(FrameBytes(frames[0]));
    ASSERT_EQ(slices.size(), 2u);
    ASSERT_GT(slices[0].size(), 1400u);
    ASSERT_GT(slices[1].size(), 1400u);
    const std::vector<Bytes> units = Reassemble(datagrams, 0);
    ASSERT_EQ(units.size(), 2u);
    // Both carry a byte too many: here the first zero of a start code, and the zero behind the frame.
    Bytes first = slices[0];
    first.push_back(0);
    EXPECT_TRUE(units[0] == first);
    Bytes second(slices[1].begin() + 1, slices[1].end());
    second.push_back(0);
    EXPECT_TRUE(units[1] == second);
}

TEST(RtpDepartures, ALargePictureOfAnotherKindIsCutWithoutFuHeaders) {
    const auto frames = MakeFrames("b", true,
                                   {"-c:v", "libx264", "-preset", "ultrafast", "-b:v", "6M", "-x264-params",
                                    "keyint=25:slices=1:bframes=2:b-adapt=0"});
    const auto datagrams = test::PackRtp(frames, kH264, Param(kH264, 90));
    size_t cut = 0;
    for (size_t frame = 0; frame < frames.size(); ++frame) {
        const std::vector<Bytes> slices = Slices(FrameBytes(frames[frame]));
        if (frames[frame].sub_type != MX_SUB_B || slices.size() != 1 || slices[0].size() < 1400) continue;
        ++cut;
        Bytes sent;
        for (const Datagram& datagram : datagrams) {
            if (datagram.frame == frame)
                sent.insert(sent.end(), datagram.bytes.begin() + kHeader, datagram.bytes.end());
        }
        ASSERT_GE(sent.size(), slices[0].size());
        EXPECT_TRUE(Bytes(sent.end() - static_cast<std::ptrdiff_t>(slices[0].size()), sent.end()) == slices[0]);
    }
    EXPECT_GT(cut, 0u);
}

TEST(RtpDepartures, AnAacFrameBeyondOnePacketGoesOutAsAdts) {
    const RtpFormat aac{"audio", 98, "mpeg4-generic/48000/2", "", true};
    const auto frames = MakeFrames("aac", false, {"-c:a", "aac", "-ar", "48000", "-ac", "2", "-b:a", "128k"});
    MXRtpParam param = Param(aac, 48);
    param.max_rtp_packet_length = 200;
    const auto datagrams = test::PackRtp(frames, aac, param);
    size_t cut = 0;
    for (size_t i = 0; i + 1 < datagrams.size(); ++i) {
        const size_t frame = datagrams[i].frame;
        if ((i != 0 && datagrams[i - 1].frame == frame) || datagrams[i + 1].frame != frame) continue;
        ++cut;
        const Bytes raw(datagrams[i].bytes.begin() + kHeader, datagrams[i].bytes.end());
        EXPECT_EQ(raw.size(), 186u);
        EXPECT_TRUE(std::equal(raw.begin(), raw.end(), frames[frame].bytes.begin()));
    }
    EXPECT_GT(cut, 0u);
}

TEST(RtpDepartures, AnH265UnitBehindAShortStartCodeHasTheWrongNalHeader) {
    const RtpFormat h265{"video", 97, "H265/90000", "", false};
    auto frames = MakeFrames("h265", true,
                             {"-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=none:pools=none"});
    frames.resize(1);
    // The first start code of the frame becomes a short one, the others stay long.
    ASSERT_EQ(frames[0].bytes[3], 1);
    frames[0].SetBytes(frames[0].bytes.data() + 1, frames[0].Size() - 1);
    const auto datagrams = test::PackRtp(frames, h265, Param(h265, 90));
    ASSERT_GT(datagrams.size(), 3u);
    EXPECT_EQ(datagrams[0].bytes[kHeader] >> 1, 32) << "the VPS";
    EXPECT_EQ(datagrams[1].bytes[kHeader], 0x01) << "the end of a start code";
    EXPECT_EQ(datagrams[1].bytes[kHeader + 1] >> 1, 33) << "the SPS";
}

}  // namespace
