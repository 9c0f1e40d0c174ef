#include "ovx_reader/records.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace Orvane::OvxReader {

namespace {

struct Shape {
    uint8_t tag;
    std::string_view name;
    size_t length;  // of SplitInfo: without its blocks
};

constexpr size_t kBlockInfoSize = 16;

constexpr Shape kShapes[] = {
    {kImageSize, "ImageSize", 4},      {kPlayBack, "PlayBack", 4},           {kLongImageSize, "ImageSize", 8},
    {kAudioFormat, "AudioFormat", 4},  {kDataCheck, "DataCheck", 8},         {kRotationInfo, "RotationInfo", 4},
    {kAudioFormat2, "AudioFormat", 8}, {kCompanyType, "exCompanyType", 8},   {kSvcHead, "exSVChead", 4},
    {kEncrypt, "Encrypt", 8},          {kMultiChannel, "exMultiChannel", 4}, {kSplitInfo, "SplitInfo", 8},
};

const Shape* FindShape(uint8_t tag) {
    const auto* const found =
        std::find_if(std::begin(kShapes), std::end(kShapes), [=](const Shape& shape) { return shape.tag == tag; });
    return found != std::end(kShapes) ? found : nullptr;
}

constexpr uint32_t kSampleRates[] = {0, 4000, 8000, 11025, 16000, 20000, 22050, 32000, 44100, 48000};
constexpr uint32_t kBitRates[] = {0,     16000, 32000,  5300,   6300,   8000,   24000,  40000,  48000,  56000,  64000,
                                  80000, 96000, 112000, 128000, 144000, 160000, 192000, 224000, 256000, 320000, 384000};

template <size_t N>
uint32_t Entry(const uint32_t (&list)[N], uint8_t index) {
    return index < N ? list[index] : 0;
}

template <typename... Values>
std::string Format(const char* format, Values... values) {
    std::array<char, 160> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

const char* ScanName(uint8_t scan) {
    return scan == 2 ? "progressive" : scan == 1 ? "interlaced" : "scan unknown";
}

std::string DescribeAudio(uint8_t channels, uint8_t codec, uint8_t rate_index) {
    const std::string text = Format("%s, %u %s, ", std::string(AudioCodec(codec).text).c_str(), channels,
                                    channels == 1 ? "channel" : "channels");
    const uint32_t rate = Entry(kSampleRates, rate_index);
    return text + (rate != 0 ? Format("%u Hz", rate) : "rate not listed");
}

std::string DescribeBitRate(uint8_t index) {
    const uint32_t rate = Entry(kBitRates, index);
    return rate != 0 ? Format("%u bit/s", rate) : "bit rate not listed";
}

std::string DescribeCheck(uint8_t type, uint32_t value) {
    switch (type) {
        case 0:
            return Format("sum %08X", value);
        case 1:
            return Format("XOR %02X", value);
        case 2:
            return Format("CRC-32 %08X", value);
        default:
            return Format("type %u, value %08X", type, value);
    }
}

}  // namespace

std::string_view Record::Name() const {
    const Shape* const shape = FindShape(tag);
    return shape != nullptr ? shape->name : std::string_view{};
}

bool Record::WellFormed() const {
    const auto zero = [&](size_t from, size_t to) {
        return std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                           bytes.begin() + static_cast<std::ptrdiff_t>(to), [](uint8_t byte) { return byte == 0; });
    };
    switch (tag) {
        case kPlayBack:
            return zero(1, 2);
        case kLongImageSize:
            return zero(2, 4);
        case kAudioFormat:
            return bytes[3] < std::size(kSampleRates);
        case kAudioFormat2:
            return bytes[1] == 8 && bytes[4] < std::size(kSampleRates) && bytes[5] < std::size(kBitRates) && zero(6, 8);
        case kDataCheck:
            return zero(5, 7) && bytes[7] <= 2;
        case kEncrypt:
            return zero(6, 8);
        case kSplitInfo:
            return zero(7, 8);
        case kRotationInfo:
            return zero(2, 4);
        case kCompanyType:
            return zero(1, 2) && zero(6, 8);
        case kMultiChannel:
        case kSvcHead:
            return zero(3, 4);
        default:
            return true;
    }
}

std::string Record::Describe() const {
    const uint8_t* const b = bytes.data();
    switch (tag) {
        case kImageSize:
            return Format("%ux%u %s", 8u * b[2], 8u * b[3], ScanName(b[1]));
        case kLongImageSize:
            return Format("%ux%u %s", Load16(b + 4), Load16(b + 6), ScanName(b[1]));
        case kPlayBack:
            return Format("%s, %u fps", std::string(VideoCodec(b[2]).text).c_str(), b[3]);
        case kAudioFormat:
            return DescribeAudio(b[1], b[2], b[3]);
        case kAudioFormat2:
            return DescribeAudio(b[2], b[3], b[4]) + ", " + DescribeBitRate(b[5]);
        case kDataCheck:
            return DescribeCheck(b[7], Load32(b + 1));
        case kEncrypt:
            return Format("%s, from byte %u, %u bytes", b[1] == 0 ? "AES" : "unknown cipher", Load16(b + 2),
                          Load16(b + 4));
        case kSplitInfo:
            return Format("%u by %u blocks of %ux%u", b[1], b[2], Load16(b + 3), Load16(b + 5));
        case kRotationInfo:
            return Format("%u", b[1]);
        case kCompanyType:
            return Format("%u, stream header of %u bytes", Load16(b + 2), Load16(b + 4));
        case kMultiChannel:
            return Format("channel %u of %u", b[2], b[1]);
        case kSvcHead:
            return Format("%02X %02X", b[1], b[2]);
        default:
            return {};
    }
}

std::optional<Record> TakeRecord(ByteSpan& block) {
    if (block.empty()) return std::nullopt;
    const Shape* const shape = FindShape(block[0]);
    if (shape == nullptr || shape->length > block.size()) return std::nullopt;
    size_t length = shape->length;
    if (shape->tag == kSplitInfo) length += kBlockInfoSize * block[1] * block[2];
    if (length > block.size()) return std::nullopt;
    const Record record{block[0], block.first(length)};
    block = block.subspan(length);
    return record;
}

Extension::Extension(ByteSpan block) : block_(block) {
    while (!block.empty()) {
        const auto record = TakeRecord(block);
        if (!record) {
            intact_ = false;
            return;
        }
        intact_ = intact_ && record->WellFormed();
    }
}

std::optional<Record> Extension::Find(uint8_t tag) const {
    ByteSpan rest = block_;
    while (const auto record = TakeRecord(rest)) {
        if (record->tag == tag) return record;
    }
    return std::nullopt;
}

uint32_t SampleRate(uint8_t index) {
    return Entry(kSampleRates, index);
}

CodecName VideoCodec(uint8_t codec_byte) {
    switch (codec_byte) {
        case 1:
            return {"MPEG-4 part 2", "m4v"};
        case 2:
        case 8:
            return {"H.264", "h264"};
        case 5:
            return {"Motion JPEG", "mjpeg"};
        case 9:
            return {"MPEG-2 video", "m2v"};
        case 12:
            return {"H.265", "h265"};
        case 11:
            return {"video codec 11", "video"};
        case 13:
            return {"video codec 13", "video"};
        case 14:
            return {"video codec 14", "video"};
        default:
            return {"unknown video codec", "video"};
    }
}

CodecName AudioCodec(uint8_t encode_type) {
    switch (encode_type) {
        case 7:
            return {"8-bit PCM", "u8"};
        case 14:
            return {"G.711 A-law", "alaw"};
        case 16:
            return {"16-bit PCM", "s16le"};
        case 10:
        case 22:
            return {"G.711 mu-law", "ulaw"};
        case 26:
            return {"AAC", "aac"};
        case 31:
            return {"MPEG audio", "mpa"};
        default:
            return {"unknown audio codec", "audio"};
    }
}

}  // namespace Orvane::OvxReader
