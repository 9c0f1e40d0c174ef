// One stream's packets as libavformat hands them out, odd ones and damaged ones among them, on their way to frames.
#include "media_input/stream_reader.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/mem.h>
}

#include <new>

#include "support/hex.h"
#include "support/libav_memory.h"

namespace Orvane::Muxora::Tools {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

void SetConfiguration(AVCodecParameters& par, const ByteVector& bytes) {
    av_freep(&par.extradata);
    par.extradata_size = static_cast<int>(bytes.size());
    if (bytes.empty()) return;
    par.extradata = static_cast<uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::copy(bytes.begin(), bytes.end(), par.extradata);
}

// A stream of no file: what a demuxer would state of it is set by hand.
struct Stream {
    explicit Stream(AVCodecID codec) : av(avformat_new_stream(format.get(), nullptr)), par(*av->codecpar) {
        av_log_set_level(AV_LOG_QUIET);
        par.codec_id = codec;
        par.codec_type = avcodec_get_type(codec);
        av->time_base = {1, 1000};
        if (par.codec_type == AVMEDIA_TYPE_AUDIO) {
            par.sample_rate = 8000;
            par.ch_layout.nb_channels = 1;
        }
    }

    MediaStream About(uint32_t frame_rate = 0) const { return DescribeStream(*av, "film", 3, frame_rate); }
    StreamReader Reader(const InputOptions& options = {}) const { return {*av, About(options.frame_rate), options}; }
    // What it is refused with; empty if it is not.
    std::string Refusal() const {
        try {
            Reader();
        } catch (const InputError& error) {
            return error.what();
        }
        return "";
    }

    AvPtr<AVFormatContext> format{avformat_alloc_context()};
    AVStream* av;
    AVCodecParameters& par;
};

AvPtr<AVPacket> Packet(const ByteVector& bytes, int64_t pts = AV_NOPTS_VALUE, int64_t dts = AV_NOPTS_VALUE) {
    AvPtr<AVPacket> packet(av_packet_alloc());
    if (av_new_packet(packet.get(), static_cast<int>(bytes.size())) < 0) throw std::bad_alloc();
    std::copy(bytes.begin(), bytes.end(), packet->data);
    packet->pts = pts;
    packet->dts = dts;
    return packet;
}

AvPtr<AVPacket> KeyPacket(const ByteVector& bytes, int64_t pts) {
    auto packet = Packet(bytes, pts, pts);
    packet->flags |= AV_PKT_FLAG_KEY;
    return packet;
}

ByteVector FrameOf(const StreamQueue::Timed& timed) {
    const MediaFrame& frame = timed.frame;
    return {frame.bytes.begin(), frame.bytes.begin() + static_cast<std::ptrdiff_t>(frame.Size())};
}

// Constrained Baseline, level 1.0, pictures of one macroblock.
const ByteVector kSps = Bytes("67 42 C0 0A DD E4");
const ByteVector kPps = Bytes("68 CE 38 80");
const ByteVector kAvcC = Bytes("01 42 C0 0A FF E1 00 06") + kSps + Bytes("01 00 04") + kPps;
const ByteVector kStart = Bytes("00 00 00 01");

TEST(DescribeStream, RatesThatNoFilmHasBecomeTwentyFive) {
    struct Case {
        AVRational average;
        AVRational real;
        uint32_t rate;
        double exact;
    };
    for (const Case& one : {
             Case{{30, 1}, {0, 0}, 30, 30},
             Case{{30000, 1001}, {0, 0}, 30, 30000.0 / 1001},
             Case{{0, 1}, {50, 1}, 50, 50},
             Case{{0, 0}, {0, 0}, 25, 25},
             Case{{25, 0}, {0, 0}, 25, 25},
             Case{{90000, 1}, {0, 0}, 25, 90000},
             Case{{1, 10}, {0, 0}, 25, 0.1},
         }) {
        const Stream stream(AV_CODEC_ID_MJPEG);
        stream.av->avg_frame_rate = one.average;
        stream.av->r_frame_rate = one.real;
        const MediaStream about = stream.About();
        EXPECT_EQ(about.frame_rate, one.rate) << one.average.num << '/' << one.average.den;
        EXPECT_DOUBLE_EQ(about.exact_rate, one.exact) << one.average.num << '/' << one.average.den;
        EXPECT_EQ(stream.About(12).frame_rate, 12u);
        EXPECT_DOUBLE_EQ(stream.About(12).exact_rate, 12);
        // Pictures without times follow one another by that rate.
        StreamReader reader = stream.Reader();
        for (int i = 0; i < 3; ++i)
            reader.Take(Packet(Bytes("FF D8 FF D9")).get());
        ASSERT_EQ(reader.ready.size(), 3u);
        EXPECT_EQ(reader.ready[0].time_us, 0);
        const bool stated = one.average.num > 0 ? one.average.den > 0 : one.real.num > 0;
        EXPECT_NEAR(static_cast<double>(reader.ready[2].time_us), 2e6 / (stated ? one.exact : 25), 1);
    }
}

TEST(DescribeStream, EachCodecHasItsNumber) {
    for (const auto& [codec, number] : std::initializer_list<std::pair<AVCodecID, uint32_t>>{
             {AV_CODEC_ID_H264, 2},
             {AV_CODEC_ID_HEVC, 12},
             {AV_CODEC_ID_MPEG4, 1},
             {AV_CODEC_ID_MPEG2VIDEO, 9},
             {AV_CODEC_ID_MJPEG, 3},
             {AV_CODEC_ID_AAC, 26},
             {AV_CODEC_ID_MP2, 31},
             {AV_CODEC_ID_MP3, 31},
             {AV_CODEC_ID_PCM_ALAW, 14},
             {AV_CODEC_ID_PCM_MULAW, 22},
             {AV_CODEC_ID_PCM_U8, 7},
             {AV_CODEC_ID_PCM_S16LE, 16},
             {AV_CODEC_ID_PCM_S16BE, 16},
             {AV_CODEC_ID_PCM_S24LE, 16},
             {AV_CODEC_ID_PCM_S32LE, 16},
             {AV_CODEC_ID_PCM_F32LE, 16},
         }) {
        EXPECT_EQ(Stream(codec).About().codec, number) << avcodec_get_name(codec);
    }
    EXPECT_EQ(Stream(AV_CODEC_ID_VP9).Refusal(),
              "film: stream 3 is vp9, which no format takes; video may be H.264, H.265, MPEG-4 part 2, MPEG-2 video, "
              "Motion JPEG (choose another stream or leave it out: --video N, --no-video)");
    EXPECT_EQ(Stream(AV_CODEC_ID_AC3).Refusal(),
              "film: stream 3 is ac3, which no format takes; audio may be AAC, MPEG audio, A-law, mu-law, PCM (choose "
              "another stream or leave it out: --audio N, --no-audio)");
}

TEST(DescribeStream, PicturesAreTurnedAsTheFileSays) {
    const Stream stream(AV_CODEC_ID_MJPEG);
    EXPECT_EQ(stream.About().rotation, 0u);
    auto* matrix =
        reinterpret_cast<int32_t*>(av_stream_new_side_data(stream.av, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
    ASSERT_NE(matrix, nullptr);
    // Clockwise quarter turns by hand, ISO/IEC 14496-12 8.3.2.3: (x, y) goes to (-y, x) and so on.
    const int32_t one = 0x10000;
    const int32_t last = 0x40000000;
    for (const auto& [degrees, a, b, c, d] : std::initializer_list<std::tuple<uint32_t, int, int, int, int>>{
             {0, 1, 0, 0, 1}, {90, 0, 1, -1, 0}, {180, -1, 0, 0, -1}, {270, 0, -1, 1, 0}}) {
        const int32_t turned[9] = {a * one, b * one, 0, c * one, d * one, 0, 0, 0, last};
        std::copy_n(turned, 9, matrix);
        EXPECT_EQ(stream.About().rotation, degrees);
    }
    // One that puts all pixels in one place turns nothing.
    std::fill_n(matrix, 9, 0);
    EXPECT_EQ(stream.About().rotation, 0u);
}

TEST(StreamReader, TheTimeScaleHoldsEachTimeOfTheFile) {
    const Stream film(AV_CODEC_ID_MJPEG);
    for (const auto& [num, den, scale] : std::initializer_list<std::tuple<int, int, uint32_t>>{
             {1, 90000, 90000}, {1001, 30000, 30000}, {5, 90000, 18000}, {0, 1, 0}, {1, 0, 0}}) {
        film.av->time_base = {num, den};
        EXPECT_EQ(film.Reader().TimeScale(), scale) << num << '/' << den;
    }
    // Samples are cut anew.
    EXPECT_EQ(Stream(AV_CODEC_ID_PCM_U8).Reader().TimeScale(), 8000u);
    const Stream silent(AV_CODEC_ID_PCM_S16LE);
    silent.par.sample_rate = 0;
    EXPECT_EQ(silent.Refusal(), "film: stream 3 (pcm_s16le) does not say its sample rate");
}

TEST(StreamReader, WhatTheDemuxerMarksAsDamagedIsLeftOutAndCounted) {
    const Stream stream(AV_CODEC_ID_MP3);
    StreamReader reader = stream.Reader();
    auto packet = Packet(Bytes("FF FB 90 00"), 0);
    packet->flags |= AV_PKT_FLAG_CORRUPT;
    reader.Take(packet.get());
    EXPECT_EQ(reader.damaged, 1u);
    reader.Take(Packet({}, 0).get());
    EXPECT_TRUE(reader.ready.empty()) << "no bytes are no frame";
    reader.Take(Packet(Bytes("FF FB 90 00"), 24).get());
    ASSERT_EQ(reader.ready.size(), 1u);
    EXPECT_EQ(reader.damaged, 1u);
    EXPECT_EQ(reader.ready[0].pts_us, 24000);
    EXPECT_EQ(reader.ready[0].duration_us, 0);
}

TEST(StreamReader, FramesWithoutTimesFollowTheLastOneThatHadOne) {
    const Stream stream(AV_CODEC_ID_MP2);
    stream.par.sample_rate = 48000;
    for (const int size : {0, 576}) {
        stream.par.frame_size = size;
        StreamReader reader = stream.Reader();
        for (const int64_t time : std::initializer_list<int64_t>{AV_NOPTS_VALUE, AV_NOPTS_VALUE, 500, AV_NOPTS_VALUE})
            reader.Take(Packet(Bytes("FF FD 00 00"), time).get());
        ASSERT_EQ(reader.ready.size(), 4u);
        // 1152 samples, or what the stream says.
        const int64_t length = size == 0 ? 24000 : 12000;
        EXPECT_EQ(reader.ready[0].time_us, 0);
        EXPECT_EQ(reader.ready[1].time_us, length);
        EXPECT_EQ(reader.ready[2].time_us, 500000);
        EXPECT_EQ(reader.ready[3].time_us, 500000 + length);
    }
    // A picture that says when it is shown and not when it is decoded.
    const Stream film(AV_CODEC_ID_MJPEG);
    StreamReader reader = film.Reader();
    reader.Take(Packet(Bytes("FF D8 FF D9"), 700).get());
    reader.Take(Packet(Bytes("FF D8 FF D9"), 760).get());
    ASSERT_EQ(reader.ready.size(), 2u);
    EXPECT_EQ(reader.ready[0].dts_us, 700000);
    EXPECT_EQ(reader.ready[0].pts_us, 700000);
    EXPECT_EQ(reader.ready[1].dts_us, 740000) << "a frame of 25 a second later";
    EXPECT_EQ(reader.ready[1].pts_us, 760000);
}

TEST(StreamReader, UnitsWhoseLengthsAreWrongAreDamage) {
    const Stream stream(AV_CODEC_ID_H264);
    SetConfiguration(stream.par, kAvcC);
    StreamReader reader = stream.Reader();
    reader.Take(KeyPacket(Bytes("00 00 00 09 65 88"), 0).get());
    EXPECT_EQ(reader.damaged, 1u) << "over the end";
    reader.Take(KeyPacket(Bytes("00 00 00 00 00 00 00 00"), 40).get());
    EXPECT_EQ(reader.damaged, 2u) << "without a byte";
    EXPECT_TRUE(reader.ready.empty());
    reader.Take(KeyPacket(Bytes("00 00 00 03 65 88 84"), 80).get());
    ASSERT_EQ(reader.ready.size(), 1u);
    EXPECT_EQ(FrameOf(reader.ready[0]), kStart + kSps + kStart + kPps + kStart + Bytes("65 88 84"));
}

TEST(StreamReader, ABareStreamIsOneOfStartCodes) {
    const Stream stream(AV_CODEC_ID_H264);
    for (const ByteVector& configuration : {ByteVector{}, kStart + kSps + kStart + kPps, Bytes("00 00 01") + kSps}) {
        SetConfiguration(stream.par, configuration);
        StreamReader reader = stream.Reader();
        reader.Take(KeyPacket(Bytes("12 34 56"), 0).get());
        EXPECT_EQ(reader.damaged, 1u);
        reader.Take(KeyPacket(Bytes("00 00 01 65 88 84"), 40).get());
        ASSERT_EQ(reader.ready.size(), 1u);
        EXPECT_EQ(FrameOf(reader.ready[0]), configuration + kStart + Bytes("65 88 84"));
    }
}

TEST(StreamReader, AConfigurationThatIsCutIsRefused) {
    const Stream stream(AV_CODEC_ID_H264);
    for (const ByteVector& cut : {test::Slice(kAvcC, 0, 8), test::Slice(kAvcC, 0, 12), test::Slice(kAvcC, 0, 16),
                                  Bytes("00 67"), Bytes("00 00 02 67 42"), Bytes("00 01 01 67 42")}) {
        SetConfiguration(stream.par, cut);
        EXPECT_EQ(stream.Refusal(), "film: stream 3 (h264) has a damaged codec configuration") << test::Hex(cut);
    }
    const Stream hevc(AV_CODEC_ID_HEVC);
    // hvcC whose one array is of slices.
    SetConfiguration(hevc.par, Bytes("01") + ByteVector(21, 0) + Bytes("01 01 00 01 00 02 02 01"));
    EXPECT_EQ(hevc.Refusal(), "film: stream 3 (hevc) has a damaged codec configuration");
}

TEST(StreamReader, AnotherConfigurationMayBeginWithAnyPacket) {
    const Stream stream(AV_CODEC_ID_H264);
    SetConfiguration(stream.par, kAvcC);
    StreamReader reader = stream.Reader();
    const auto with = [](const ByteVector& configuration, int64_t time) {
        auto packet = KeyPacket(Bytes("00 00 00 02 65 88"), time);
        uint8_t* data = av_packet_new_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, configuration.size());
        std::copy(configuration.begin(), configuration.end(), data);
        return packet;
    };
    const auto take = [&](const ByteVector& configuration, int64_t time) {
        reader.Take(with(configuration, time).get());
        return FrameOf(reader.ready.back());
    };
    ByteVector other = kAvcC;
    other[11] = 0x0B;  // level_idc of the SPS
    const ByteVector sets = kStart + test::Slice(other, 8, 6) + kStart + kPps;
    EXPECT_EQ(take(kAvcC, 0), kStart + kSps + kStart + kPps + kStart + Bytes("65 88"));
    EXPECT_EQ(take(other, 40), sets + kStart + Bytes("65 88"));
    EXPECT_EQ(take({}, 80), sets + kStart + Bytes("65 88")) << "an empty one says nothing";
    EXPECT_THROW(take(test::Slice(kAvcC, 0, 9), 120), InputError);
}

TEST(StreamReader, AacThatNoAdtsHeaderCanState) {
    const Stream stream(AV_CODEC_ID_AAC);
    struct Case {
        ByteVector configuration;
        std::string why;
    };
    for (const Case& one : {
             Case{Bytes("12"), "its AudioSpecificConfig is cut short"},
             Case{Bytes("F9 48 80"), "ADTS has no number for AAC object type 42"},
             Case{Bytes("02 10"), "ADTS has no number for AAC object type 0"},
             Case{Bytes("16 90"), "ADTS has no number for its sample rate"},
             Case{Bytes("12 00"), "its channels are laid out by a program config element"},
             Case{Bytes("12 40"), "its channels are laid out by a program config element"},
         }) {
        SetConfiguration(stream.par, one.configuration);
        StreamReader reader = stream.Reader();
        try {
            reader.Take(Packet(Bytes("21 00"), 0).get());
            ADD_FAILURE() << one.why;
        } catch (const InputError& error) {
            EXPECT_EQ(error.what(), "film: stream 3 (aac) cannot be given as ADTS: " + one.why);
        }
    }
}

TEST(StreamReader, AacFramesThatAreNone) {
    const Stream stream(AV_CODEC_ID_AAC);
    StreamReader bare = stream.Reader();
    for (const char* frame : {"FF F1 50", "00 F1 50 80 01 7F FC 11", "FF 01 50 80 01 7F FC 11",
                              "FF F1 50 80 00 DF FC 11", "FF F1 50 80 1F FF FC 11"}) {
        bare.Take(Packet(Bytes(frame), 0).get());
    }
    EXPECT_EQ(bare.damaged, 5u) << "short, no syncword twice, a length below the header's, one over the end";
    EXPECT_TRUE(bare.ready.empty());
    // The frame's own rate holds, unless it states none.
    bare.Take(Packet(Bytes("FF F1 50 80 01 1F FC 11"), 0).get());
    bare.Take(Packet(Bytes("FF F1 7C 80 01 1F FC 11"), 20).get());
    ASSERT_EQ(bare.ready.size(), 2u);
    EXPECT_EQ(bare.ready[0].frame.samples_per_sec, 44100u);
    EXPECT_EQ(bare.ready[1].frame.samples_per_sec, 8000u);
    // Thirteen bits state the length.
    SetConfiguration(stream.par, Bytes("12 10"));
    StreamReader reader = stream.Reader();
    reader.Take(Packet(ByteVector(8185, 0x21), 0).get());
    EXPECT_EQ(reader.damaged, 1u);
    reader.Take(Packet(ByteVector(8184, 0x21), 20).get());
    ASSERT_EQ(reader.ready.size(), 1u);
    EXPECT_EQ(reader.ready[0].frame.Size(), 8191u);
    EXPECT_TRUE(reader.notes.empty());
}

TEST(StreamReader, HeAacIsToldOf) {
    const Stream stream(AV_CODEC_ID_AAC);
    // SBR over AAC LC, and parametric stereo over it, the core at 24000 Hz, the latter in 24 bits.
    for (const char* configuration : {"2B 09 88 00", "EF 80 2E E0 09 88 00"}) {
        SetConfiguration(stream.par, Bytes(configuration));
        const StreamReader reader = stream.Reader();
        ASSERT_EQ(reader.notes.size(), 1u) << configuration;
        EXPECT_EQ(reader.notes[0],
                  "HE-AAC is stated as its core, AAC-LC at 24000 Hz; decoders find the rest in the frames");
        EXPECT_EQ(reader.About().samples_per_sec, 24000u);
    }
}

TEST(StreamReader, SamplesBeginAnewWhereTheClockJumps) {
    const Stream stream(AV_CODEC_ID_PCM_ALAW);
    InputOptions options;
    options.block_ms = 0;  // taken as 1: blocks of 8 samples
    StreamReader reader = stream.Reader(options);
    reader.Take(Packet(ByteVector(12, 0x55), 1000).get());
    reader.Take(Packet(ByteVector(2, 0x56)).get());         // no time: they go on
    reader.Take(Packet(ByteVector(3, 0x57), 1300).get());   // a jitter of 0.3 s is none of the sound's
    reader.Take(Packet(ByteVector(4, 0x58), 9000).get());   // a jump
    reader.Take(Packet(ByteVector(5, 0x59), -9000).get());  // and back
    reader.Take(nullptr);
    std::vector<std::pair<int64_t, ByteVector>> found;
    for (const auto& timed : reader.ready)
        found.emplace_back(timed.time_us, FrameOf(timed));
    const std::vector<std::pair<int64_t, ByteVector>> expected{
        {1000000, ByteVector(8, 0x55)},  {1001000, ByteVector(4, 0x55) + ByteVector(2, 0x56) + ByteVector(2, 0x57)},
        {1002000, ByteVector(1, 0x57)},  {9000000, ByteVector(4, 0x58)},
        {-9000000, ByteVector(5, 0x59)},
    };
    EXPECT_EQ(found, expected);
}

TEST(StreamReader, HalfASampleAtTheEndIsDropped) {
    const Stream stream(AV_CODEC_ID_PCM_S16LE);
    stream.par.ch_layout.nb_channels = 2;
    StreamReader reader = stream.Reader();
    reader.Take(Packet(ByteVector(4 * 320 + 7, 0x11), 0).get());
    reader.Take(nullptr);
    ASSERT_EQ(reader.ready.size(), 2u);
    EXPECT_EQ(reader.ready[0].frame.Size(), 4u * 320);
    EXPECT_EQ(reader.ready[1].frame.Size(), 4u);
}

TEST(StreamReader, WideSamplesAreNarrowedAndToldOf) {
    const std::initializer_list<std::tuple<AVCodecID, const char*, bool>> cases{
        {AV_CODEC_ID_PCM_S16BE, "12 34", false},
        {AV_CODEC_ID_PCM_S24LE, "56 34 12", true},
        {AV_CODEC_ID_PCM_S32LE, "78 56 34 12", true},
    };
    for (const auto& [codec, sample, told] : cases) {
        const Stream stream(codec);
        StreamReader reader = stream.Reader();
        reader.Take(Packet(Bytes(sample), 0).get());
        reader.Take(nullptr);
        ASSERT_EQ(reader.ready.size(), 1u);
        EXPECT_EQ(FrameOf(reader.ready[0]), Bytes("34 12")) << avcodec_get_name(codec);
        EXPECT_EQ(reader.notes.size(), told ? 1u : 0u) << avcodec_get_name(codec);
    }
}

TEST(StreamReader, Mpeg4PicturesThatLieInOnePacketAreTakenApart) {
    const Stream stream(AV_CODEC_ID_MPEG4);
    // The user data by which such files are known, a P picture with a B picture behind it, and the place holder.
    SetConfiguration(stream.par, Bytes("00 00 01 B2") + test::Text("DivX503b1393p"));
    StreamReader reader = stream.Reader();
    const ByteVector first = Bytes("00 00 01 B6 50 11 11 11");
    const ByteVector second = Bytes("00 00 01 B6 90 22 22 22");
    reader.Take(KeyPacket(first + second, 0).get());
    reader.Take(Packet(Bytes("00 00 01 B6 51"), 40, 40).get());
    reader.Take(Packet({}, 80, 80).get());
    reader.Take(nullptr);
    ASSERT_EQ(reader.ready.size(), 2u);
    EXPECT_EQ(test::Slice(FrameOf(reader.ready[0]), FrameOf(reader.ready[0]).size() - 8, 8), first);
    EXPECT_EQ(FrameOf(reader.ready[1]), second);
    EXPECT_EQ(reader.damaged, 0u);
    // Nothing comes behind the end.
    reader.Take(Packet(first, 120, 120).get());
    EXPECT_EQ(reader.damaged, 1u);
}

TEST(StreamReader, PicturesAreOfTheSizeThatTheirOwnParameterSetsState) {
    const Stream stream(AV_CODEC_ID_H264);
    SetConfiguration(stream.par, kAvcC);
    stream.par.width = 640;
    stream.par.height = 480;
    StreamReader reader = stream.Reader();
    reader.Take(KeyPacket(Bytes("00 00 00 07 65 88 84 00 33 FF FE"), 0).get());
    ASSERT_EQ(reader.ready.size(), 1u);
    EXPECT_EQ(reader.ready[0].frame.width, 16u);
    EXPECT_EQ(reader.ready[0].frame.height, 16u);
    EXPECT_EQ(reader.About().width, 16u);
}

// Whatever allocation of libav's fails: a reason, or the same frame as ever.
TEST(StreamReader, WithoutMemoryItSaysSo) {
    const ByteVector picture = Bytes("00 00 00 03 65 88 84");
    for (const AVCodecID codec : {AV_CODEC_ID_H264, AV_CODEC_ID_MPEG4, AV_CODEC_ID_MJPEG, AV_CODEC_ID_MP3}) {
        const Stream stream(codec);
        if (codec == AV_CODEC_ID_H264) SetConfiguration(stream.par, kAvcC);
        if (codec == AV_CODEC_ID_MPEG4) SetConfiguration(stream.par, Bytes("00 00 01 20 00"));
        size_t refused = 0;
        for (size_t count = 1;; ++count) {
            SCOPED_TRACE(count);
            const auto packet = KeyPacket(picture, 0);
            const auto changed = KeyPacket(picture, 40);
            uint8_t* side = av_packet_new_side_data(changed.get(), AV_PKT_DATA_NEW_EXTRADATA, kAvcC.size());
            std::copy(kAvcC.begin(), kAvcC.end(), side);
            // Second owners of the bytes, so that they have to be copied.
            const AvPtr<AVPacket> owner(av_packet_clone(packet.get()));
            const AvPtr<AVPacket> owner_of_changed(av_packet_clone(changed.get()));
            test::FailingLibavAllocation failing(count);
            try {
                StreamReader reader = stream.Reader();
                reader.Take(packet.get());
                reader.Take(changed.get());
                EXPECT_EQ(reader.ready.size() + reader.damaged, 2u);
            } catch (const InputError& error) {
                EXPECT_EQ(std::string(error.what()).rfind("film: stream 3 (", 0), 0u) << error.what();
                ++refused;
            } catch (const std::bad_alloc&) {
                ++refused;
            }
            if (!failing.Failed()) break;
        }
        EXPECT_GE(refused, 2u) << avcodec_get_name(codec);
    }
}

}  // namespace
}  // namespace Orvane::Muxora::Tools
