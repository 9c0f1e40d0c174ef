// Access units against the parsers of libavcodec: on the same elementary stream both cut the same units, whatever
// pieces the stream comes in.
#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <random>
#include <stdexcept>
#include <utility>

#include "MuxoraExt.h"
#include "media_input/av_handles.h"
#include "support/avc_stream.h"
#include "support/clip.h"
#include "support/process.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Words = std::vector<std::string>;

struct StreamCase {
    const char* name;
    Words source;   // what ffmpeg is to make the clip of
    Words encoder;  // and how
    const char* extension;
    uint32_t frame_type;
    uint32_t encode_type;
    AVCodecID codec;
    size_t units;  // 0: not asked
};

void PrintTo(const StreamCase& one, std::ostream* out) {
    *out << one.name;
}

Words Picture(const char* size, const char* seconds = "2") {
    return {"-f", "lavfi", "-i", "testsrc2=size=" + std::string(size) + ":rate=25:duration=" + seconds};
}
Words Sound(const char* rate) {
    return {"-f", "lavfi", "-i", "sine=frequency=440:beep_factor=4:duration=2:sample_rate=" + std::string(rate)};
}
Words X264(const std::string& params) {
    return {"-pix_fmt", "yuv420p", "-c:v", "libx264", "-preset", "veryfast", "-threads", "1", "-x264-params", params};
}
Words X265(const std::string& params) {
    return {"-pix_fmt", "yuv420p",   "-c:v",         "libx265",
            "-preset",  "ultrafast", "-x265-params", "log-level=none:frame-threads=1:" + params};
}

const StreamCase kCases[] = {
    {"H264BPictures", Picture("320x240"), X264("keyint=20:bframes=3:b-pyramid=normal"), "h264", MX_FRAME_VIDEO,
     MX_VIDEO_H264, AV_CODEC_ID_H264, 50},
    {"H264Slices", Picture("320x240"), X264("keyint=20:bframes=2:slices=5"), "h264", MX_FRAME_VIDEO, MX_VIDEO_H264,
     AV_CODEC_ID_H264, 50},
    {"H264OpenGopWithDelimiters", Picture("320x240"), X264("keyint=10:open-gop=1:bframes=2:aud=1:b-adapt=0"), "h264",
     MX_FRAME_VIDEO, MX_VIDEO_H264, AV_CODEC_ID_H264, 50},
    {"H264Interlaced", Picture("320x256"), X264("keyint=20:tff=1:bframes=2:slices=2"), "h264", MX_FRAME_VIDEO,
     MX_VIDEO_H264, AV_CODEC_ID_H264, 50},
    {"H264PicturesOfAFewBytes",
     {"-f", "lavfi", "-i", "color=gray:size=64x48:rate=25:duration=4"},
     X264("keyint=50:bframes=0:repeat-headers=1"),
     "h264",
     MX_FRAME_VIDEO,
     MX_VIDEO_H264,
     AV_CODEC_ID_H264,
     100},
    {"H265", Picture("320x240"), X265("keyint=20:bframes=3:pools=none"), "hevc", MX_FRAME_VIDEO, MX_VIDEO_H265,
     AV_CODEC_ID_HEVC, 50},
    {"H265SlicesWithDelimiters", Picture("640x512", "1"),
     X265("keyint=10:bframes=2:pools=1:slices=3:aud=1:repeat-headers=1"), "hevc", MX_FRAME_VIDEO, MX_VIDEO_H265,
     AV_CODEC_ID_HEVC, 25},
    // Each picture goes in as a field.
    {"H265Fields", Picture("320x256"), X265("keyint=20:bframes=2:interlace=tff:pools=none"), "hevc", MX_FRAME_VIDEO,
     MX_VIDEO_H265, AV_CODEC_ID_HEVC, 50},
    {"Aac", Sound("48000"), {"-c:a", "aac", "-b:a", "96k"}, "aac", MX_FRAME_AUDIO, MX_AUDIO_AAC, AV_CODEC_ID_AAC, 0},
    {"Mp2", Sound("48000"), {"-c:a", "mp2", "-b:a", "128k"}, "mp2", MX_FRAME_AUDIO, MX_AUDIO_MPEG, AV_CODEC_ID_MP2, 0},
    {"Mp3",
     Sound("44100"),
     {"-c:a", "libmp3lame", "-b:a", "64k", "-write_xing", "0", "-id3v2_version", "0"},
     "mp3",
     MX_FRAME_AUDIO,
     MX_AUDIO_MPEG,
     AV_CODEC_ID_MP3,
     0},
    {"Mp3OfHalfRate",
     Sound("22050"),
     {"-c:a", "libmp3lame", "-q:a", "4", "-write_xing", "0", "-id3v2_version", "0"},
     "mp3",
     MX_FRAME_AUDIO,
     MX_AUDIO_MPEG,
     AV_CODEC_ID_MP3,
     0},
};

struct Unit {
    Bytes bytes;
    bool key = false;
    char kind = '?';

    bool operator==(const Unit&) const = default;
};

void PrintTo(const Unit& unit, std::ostream* out) {
    *out << unit.kind << (unit.key ? "*" : "") << ' ' << unit.bytes.size() << " bytes";
}

// Without the zeros at its seams: zero_byte and trailing_zero_8bits, which the parser of H.265 counts to the unit
// before.
Bytes Trimmed(const uint8_t* data, size_t size) {
    size_t from = 0;
    while (from < size && data[from] == 0)
        ++from;
    while (size > from && data[size - 1] == 0)
        --size;
    return {data + from, data + size};
}

std::vector<Unit> ByParser(const StreamCase& one, const Bytes& stream) {
    using Orvane::Muxora::Tools::AvPtr;
    av_log_set_level(AV_LOG_QUIET);  // of the pictures that are not there
    AvPtr<AVCodecContext> context(avcodec_alloc_context3(avcodec_find_decoder(one.codec)));
    AvPtr<AVCodecParserContext> parser(av_parser_init(one.codec));
    if (!context || !parser) throw std::runtime_error("no parser");
    Bytes padded = stream;
    padded.resize(stream.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    std::vector<Unit> units;
    for (size_t at = 0;;) {
        uint8_t* data = nullptr;
        int size = 0;
        const auto left = static_cast<int>(stream.size() - at);
        const int used = av_parser_parse2(parser.get(), context.get(), &data, &size, padded.data() + at, left,
                                          AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
        at += static_cast<size_t>(used);
        if (size != 0) {
            const bool video = one.frame_type == MX_FRAME_VIDEO;
            const char kind = video ? av_get_picture_type_char(static_cast<AVPictureType>(parser->pict_type)) : 'S';
            units.push_back({video ? Trimmed(data, static_cast<size_t>(size)) : Bytes(data, data + size),
                             !video || parser->key_frame == 1, kind});
        } else if (left == 0) {
            return units;
        }
    }
}

class Cutter {
  public:
    explicit Cutter(const StreamCase& one, uint32_t flags = 0)
        : video_(one.frame_type == MX_FRAME_VIDEO),
          units_(MX_CreateAccessUnits(one.frame_type, one.encode_type, flags), MX_DestroyAccessUnits) {}

    // The bytes stand in a block of their own, so that a memory checker sees a look beyond them.
    void Give(const uint8_t* data, size_t size) {
        const auto block = std::make_unique<uint8_t[]>(size);
        std::copy(data, data + size, block.get());
        if (MX_PutBytes(units_.get(), block.get(), static_cast<uint32_t>(size)) != MX_OK)
            throw std::runtime_error("put");
        Drain();
    }
    void GiveNal(const uint8_t* data, size_t size) {
        if (MX_PutNal(units_.get(), data, static_cast<uint32_t>(size)) != MX_OK) throw std::runtime_error("put NAL");
        Drain();
    }
    std::vector<Unit> End() {
        MX_EndAccessUnits(units_.get());
        Drain();
        return std::move(found_);
    }
    const MXAccessUnit& last() const { return last_; }

  private:
    void Drain() {
        MXAccessUnit unit{};
        unit.size = sizeof unit;
        while (MX_GetAccessUnit(units_.get(), &unit) == MX_OK) {
            const auto* const data = static_cast<const uint8_t*>(unit.data);
            constexpr char kKinds[] = "IPB?";
            found_.push_back({video_ ? Trimmed(data, unit.length) : Bytes(data, data + unit.length),
                              unit.key_frame == 1, video_ ? kKinds[unit.picture_kind] : 'S'});
            last_ = unit;
        }
    }

    bool video_;
    std::unique_ptr<MXAccessUnitsObject, uint32_t (*)(MXAccessUnits)> units_;
    std::vector<Unit> found_;
    MXAccessUnit last_{};
};

Bytes MakeStream(const StreamCase& one) {
    const std::string path = test::WorkPath(std::string(one.name) + "." + one.extension);
    Words argv{"ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "error", "-y"};
    argv.insert(argv.end(), one.source.begin(), one.source.end());
    argv.insert(argv.end(), one.encoder.begin(), one.encoder.end());
    argv.push_back(path);
    const test::RunResult made = test::Run(argv);
    if (!made.Ok()) throw std::runtime_error(made.err);
    return test::ReadFile(path);
}

class AccessUnitsOf : public testing::TestWithParam<StreamCase> {
  protected:
    const Bytes stream = MakeStream(GetParam());
    const std::vector<Unit> expected = ByParser(GetParam(), stream);

    void InPieces() const;
    void AsSingleNalUnits() const;
    void WithLongStartCodes() const;
};

void AccessUnitsOf::InPieces() const {
    const StreamCase& one = GetParam();
    if (one.units != 0) {
        ASSERT_EQ(expected.size(), one.units);
    }
    ASSERT_GE(expected.size(), 25u);
    std::mt19937 random(20);
    for (const size_t largest : {stream.size(), size_t{1}, size_t{7}, size_t{100}, size_t{3000}, size_t{60000}}) {
        Cutter cutter(one);
        for (size_t at = 0; at < stream.size();) {
            const size_t piece = largest == stream.size() ? largest : random() % largest + 1;
            const size_t size = std::min(piece, stream.size() - at);
            cutter.Give(stream.data() + at, size);
            at += size;
        }
        const std::vector<Unit> units = cutter.End();
        ASSERT_EQ(units.size(), expected.size()) << "pieces of " << largest;
        for (size_t i = 0; i < units.size(); ++i)
            ASSERT_EQ(units[i], expected[i]) << "unit " << i << ", pieces of " << largest;
    }
}

// The offsets of the bytes behind the start codes.
std::vector<size_t> NalStarts(const Bytes& stream) {
    std::vector<size_t> starts;
    for (size_t i = 2; i < stream.size(); ++i) {
        if (stream[i - 2] == 0 && stream[i - 1] == 0 && stream[i] == 1) starts.push_back(i + 1);
    }
    return starts;
}

void AccessUnitsOf::AsSingleNalUnits() const {
    const StreamCase& one = GetParam();
    Cutter cutter(one);
    const std::vector<size_t> starts = NalStarts(stream);
    for (size_t i = 0; i < starts.size(); ++i) {
        size_t end = i + 1 < starts.size() ? starts[i + 1] - 3 : stream.size();
        while (stream[end - 1] == 0)
            --end;
        cutter.GiveNal(stream.data() + starts[i], end - starts[i]);
    }
    const std::vector<Unit> units = cutter.End();
    ASSERT_EQ(units.size(), expected.size());
    for (size_t i = 0; i < units.size(); ++i) {
        // Start codes between the NAL units may have been of another length: their number and place is what counts.
        EXPECT_EQ(NalStarts(units[i].bytes).size(), NalStarts(expected[i].bytes).size());
        EXPECT_EQ(units[i].key, expected[i].key);
        EXPECT_EQ(units[i].kind, expected[i].kind);
    }
}

void AccessUnitsOf::WithLongStartCodes() const {
    const StreamCase& one = GetParam();
    const std::unique_ptr<MXAccessUnitsObject, uint32_t (*)(MXAccessUnits)> units(
        MX_CreateAccessUnits(one.frame_type, one.encode_type, MX_UNITS_LONG_START_CODES), MX_DestroyAccessUnits);
    MX_PutBytes(units.get(), stream.data(), static_cast<uint32_t>(stream.size()));
    MXAccessUnit unit{};
    unit.size = sizeof unit;
    size_t number = 0;
    for (bool ended = false;;) {
        if (MX_GetAccessUnit(units.get(), &unit) != MX_OK) {
            if (std::exchange(ended, true)) break;
            MX_EndAccessUnits(units.get());
            continue;
        }
        const auto* const data = static_cast<const uint8_t*>(unit.data);
        Bytes expected_bytes;
        const Bytes& plain = expected.at(number++).bytes;  // begins with the 01 of its first start code
        for (size_t i = 0; i < plain.size(); ++i) {
            const bool code = i == 0 || (i > 1 && plain[i] == 1 && plain[i - 1] == 0 && plain[i - 2] == 0);
            if (code && (i < 3 || plain[i - 3] != 0)) {
                expected_bytes.insert(expected_bytes.end(), i == 0 ? 3 : 1, 0);
            }
            expected_bytes.push_back(plain[i]);
        }
        ASSERT_EQ(Trimmed(data, unit.length), Trimmed(expected_bytes.data(), expected_bytes.size())) << number;
        ASSERT_EQ(Bytes(data, data + 4), (Bytes{0, 0, 0, 1}));
    }
    EXPECT_EQ(number, expected.size());
}

TEST_P(AccessUnitsOf, AreThoseOfTheParser) {
    {
        SCOPED_TRACE("in pieces");
        InPieces();
    }
    if (GetParam().frame_type != MX_FRAME_VIDEO) return;
    {
        SCOPED_TRACE("as single NAL units");
        AsSingleNalUnits();
    }
    SCOPED_TRACE("with long start codes");
    WithLongStartCodes();
}

INSTANTIATE_TEST_SUITE_P(Streams, AccessUnitsOf, testing::ValuesIn(kCases),
                         [](const auto& test) { return test.param.name; });

// Fields coded one by one, which no encoder at hand makes: what parsers look at is there, the pictures are not.
TEST(AccessUnits, FieldsOfH264AreThoseOfTheParser) {
    using test::operator+;
    const StreamCase one{"", {}, {}, "", MX_FRAME_VIDEO, MX_VIDEO_H264, AV_CODEC_ID_H264, 80};
    std::mt19937 random(3);
    Bytes stream = test::AvcSps(true) + test::AvcPps();
    for (uint32_t field = 0; field < one.units; ++field) {
        const bool second = field % 2 != 0;
        test::AvcSliceFields slice{.type = field % 3 == 0 ? 6u : 5u,  // B and P
                                   .frame_num = field / 2 % 16,
                                   .field = second ? 2 : 1,
                                   .poc = field % 16};
        if (field % 20 == 0) slice = {.header = 0x65, .type = 7, .field = 1, .poc = 0};
        for (uint32_t part = 0; part < 3; ++part) {
            slice.first_mb = part * 200;
            stream = stream + test::AvcSlice(slice) + Bytes(random() % 300, 0x5A);
        }
    }
    const std::vector<Unit> expected = ByParser(one, stream);
    ASSERT_EQ(expected.size(), one.units);
    for (const size_t largest : {size_t{1}, size_t{50}, size_t{5000}, stream.size()}) {
        Cutter cutter(one);
        for (size_t at = 0; at < stream.size();) {
            const size_t size = std::min<size_t>(random() % largest + 1, stream.size() - at);
            cutter.Give(stream.data() + at, size);
            at += size;
        }
        const std::vector<Unit> units = cutter.End();
        ASSERT_EQ(units.size(), expected.size());
        for (size_t i = 0; i < units.size(); ++i)
            ASSERT_EQ(units[i], expected[i]) << "unit " << i << ", pieces of " << largest;
    }
}

// What the streams state of themselves.
TEST(AccessUnits, TellSizeAndRate) {
    const auto last = [](size_t number) {
        const StreamCase& one = kCases[number];
        const Bytes stream = MakeStream(one);
        Cutter cutter(one);
        cutter.Give(stream.data(), stream.size());
        cutter.End();
        return cutter.last();
    };
    const MXAccessUnit h264 = last(0);
    EXPECT_EQ(h264.width, 320u);
    EXPECT_EQ(h264.height, 240u);
    EXPECT_EQ(h264.rate_numerator, 25u);
    EXPECT_EQ(h264.rate_denominator, 1u);
    EXPECT_EQ(h264.field, MX_UNIT_FRAME);
    const MXAccessUnit h265 = last(5);
    EXPECT_EQ(h265.width, 320u);
    EXPECT_EQ(h265.height, 240u);
    EXPECT_EQ(h265.rate_numerator, 25u);
    EXPECT_EQ(h265.rate_denominator, 1u);
    const MXAccessUnit fields = last(7);
    EXPECT_EQ(fields.rate_numerator, 25u);
    EXPECT_EQ(fields.field, MX_UNIT_BOTTOM_FIELD);
    const MXAccessUnit aac = last(8);
    EXPECT_EQ(aac.samples_per_sec, 48000u);
    EXPECT_EQ(aac.channels, 1u);
    EXPECT_EQ(aac.samples, 1024u);
    const MXAccessUnit mp3 = last(11);
    EXPECT_EQ(mp3.samples_per_sec, 22050u);
    EXPECT_EQ(mp3.samples, 576u);
}

}  // namespace
