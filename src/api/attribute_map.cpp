#include "api/attribute_map.h"

#include <charconv>
#include <ctime>
#include <iterator>
#include <limits>
#include <new>
#include <string_view>

#include "MuxoraExt.h"
#include "core/clock.h"

namespace Orvane::Muxora {

namespace {

// Every key but those of the blocks, in the order of the map.
enum Key {
    kBitRate,
    kBitsPerSample,
    kChannels,
    kDay,
    kDeinterlace,
    kDts,
    kDuration,
    kEncodeType,
    kFrameSubType,
    kFrameType,
    kHeight,
    kHour,
    kMSlice,
    kMaCurChannel,
    kMaTotalChannels,
    kMinute,
    kMonth,
    kNSlice,
    kPts,
    kRate,
    kRotationAngle,
    kSamplesPerSec,
    kSecond,
    kTimeScale,
    kTimestamp,
    kTpCompanyType,
    kTpStreamHeaderLen,
    kWidth,
    kYear,
    kKeyCount,
};

constexpr std::string_view kNames[] = {
    "bitrate",   "bitspersample", "channels",          "day",           "deinterlace", "dts",
    "duration",  "encodetype",    "framesubtype",      "frametype",     "height",      "hour",
    "m_slice",   "macurchannel",  "matotalchannels",   "minute",        "month",       "n_slice",
    "pts",       "rate",          "rotationangle",     "samplespersec", "second",      "timescale",
    "timestamp", "tpcompanytype", "tpstreamheaderlen", "width",         "year",
};
static_assert(std::size(kNames) == kKeyCount);

constexpr bool AreSorted() {
    for (size_t i = 1; i < std::size(kNames); ++i) {
        if (!(kNames[i - 1] < kNames[i])) return false;
    }
    return true;
}
static_assert(AreSorted());

// Nothing that a format can store has more; it keeps a bad number from asking for gigabytes.
constexpr uint64_t kMaxBlocks = 4096;

// The values that the map holds, found in one pass: both sides are in the same order.
class Values {
  public:
    explicit Values(const AttributeMap& attributes) {
        size_t key = 0;
        for (const auto& [name, value] : attributes) {
            while (key < kKeyCount && kNames[key] < name)
                ++key;
            if (key == kKeyCount) break;
            if (kNames[key] == name) found_[key] = &value;
        }
    }

    bool Has(Key key) const { return found_[key] != nullptr; }
    // The value, cut to the width of its field; 0 if it is absent.
    template <typename Field>
    Field Get(Key key) const {
        return found_[key] != nullptr ? static_cast<Field>(*found_[key]) : Field{};
    }

  private:
    const long long* found_[kKeyCount] = {};
};

uint32_t FrameType(uint32_t kind) {
    switch (kind) {
        case FRAME_KIND_VIDEO:
            return MX_FRAME_VIDEO;
        case FRAME_KIND_AUDIO:
            return MX_FRAME_AUDIO;
        case FRAME_KIND_PRIVATE:
            return MX_FRAME_PRIVATE;
        default:
            return 0;
    }
}

// No kind of picture has this number: it stands for all that is unknown.
constexpr uint32_t kUnknownSubType = 21;

uint32_t FrameSubType(uint32_t kind) {
    switch (kind) {
        case FRAME_SUB_I:
            return MX_SUB_I;
        case FRAME_SUB_P:
            return MX_SUB_P;
        case FRAME_SUB_B:
            return MX_SUB_B;
        case FRAME_SUB_KEY:
            return MX_SUB_KEY;
        case FRAME_SUB_LAYERED_KEY:
            return MX_SUB_LAYERED_KEY;
        case FRAME_SUB_LAYERED_P:
            return MX_SUB_LAYERED_P;
        case FRAME_SUB_LAYERED_KEY2:
            return MX_SUB_LAYERED_KEY2;
        default:
            return kUnknownSubType;
    }
}

// By public codec number. Numbers without a name here have no meaning in any format, and are passed on all the same.
constexpr uint8_t kEncodeTypes[] = {
    0,                        // 0
    MX_VIDEO_MPEG4,           // 1
    MX_VIDEO_H264,            // 2
    MX_VIDEO_MJPEG,           // 3
    MX_VIDEO_STREAM_TYPE_80,  // 4
    MX_VIDEO_H265,            // 5
    MX_VIDEO_MPEG2,           // 6
    MX_VIDEO_OVX_CODEC_13,    // 7
    0,
    0,
    0,
    0,
    0,                        // 8 to 12
    MX_VIDEO_STREAM_TYPE_B0,  // 13
    0,
    0,
    0,
    0,
    0,
    0,
    0,                        // 14 to 20
    MX_AUDIO_PCM8,            // 21
    MX_AUDIO_STREAM_TYPE_99,  // 22
    MX_VIDEO_MPEG2,           // 23
    MX_AUDIO_MULAW_ALT,       // 24
    MX_VIDEO_STREAM_TYPE_80,  // 25; as an audio codec, MX_AUDIO_WAVE_TAG_64
    MX_VIDEO_H265,            // 26
    MX_AUDIO_WAVE_TAG_2,      // 27
    MX_AUDIO_ALAW,            // 28
    MX_AUDIO_WAVE_TAG_4201,   // 29
    MX_AUDIO_PCM16,           // 30
    MX_AUDIO_MULAW,           // 31
    0,                        // 32
    MX_AUDIO_AAC,             // 33
    27,
    28,
    29,
    30,             // 34 to 37
    MX_AUDIO_MPEG,  // 38
    32,
    33,                       // 39, 40
    MX_AUDIO_STREAM_TYPE_92,  // 41
};
static_assert(std::size(kEncodeTypes) == 42);

uint32_t EncodeType(uint32_t codec) {
    return codec < std::size(kEncodeTypes) ? kEncodeTypes[codec] : 0;
}

// Without a scale and a time, none are given.
void FillTimes(const Values& values, MXFrameInfo& frame) {
    const auto scale = values.Get<long long>(kTimeScale);
    if (scale <= 0 || scale > std::numeric_limits<uint32_t>::max()) return;
    if (!values.Has(kDts) && !values.Has(kPts)) return;
    // One of the two stands for both: most streams do not reorder.
    const auto dts = values.Get<int64_t>(values.Has(kDts) ? kDts : kPts);
    const auto pts = values.Get<int64_t>(values.Has(kPts) ? kPts : kDts);
    MXSetFrameTimes(&frame, static_cast<uint32_t>(scale), dts, pts, values.Get<int64_t>(kDuration));
}

// Callers rely on this: the three keys that say what a frame is are in the map afterwards, with 0 if they were not
// there, although the map is declared constant.
void EnterMissing(const AttributeMap& attributes, const Values& values) {
    for (const Key key : {kFrameType, kFrameSubType, kEncodeType}) {
        if (values.Has(key)) continue;
        try {
            const_cast<AttributeMap&>(attributes).emplace(kNames[key], 0);
        } catch (const std::bad_alloc&) {
            return;
        }
    }
}

}  // namespace

void CFrameAttributes::Fill(const AttributeMap& attributes, MXFrameInfo& frame) {
    const Values values(attributes);
    frame.size = sizeof frame;
    frame.frame_type = FrameType(values.Get<uint32_t>(kFrameType));
    frame.frame_sub_type = FrameSubType(values.Get<uint32_t>(kFrameSubType));
    frame.encode_type = EncodeType(values.Get<uint32_t>(kEncodeType));
    frame.timestamp = values.Get<uint32_t>(kTimestamp);
    frame.utc_time = UtcTime({values.Get<int32_t>(kYear), values.Get<int32_t>(kMonth), values.Get<int32_t>(kDay),
                              values.Get<int32_t>(kHour), values.Get<int32_t>(kMinute), values.Get<int32_t>(kSecond)});
    frame.tp_company_type = values.Get<uint16_t>(kTpCompanyType);
    frame.tp_stream_header_len = values.Get<uint16_t>(kTpStreamHeaderLen);
    if (frame.frame_type == MX_FRAME_VIDEO) {
        frame.width = values.Get<uint32_t>(kWidth);
        frame.height = values.Get<uint32_t>(kHeight);
        frame.frame_rate = values.Get<uint32_t>(kRate);
        frame.deinterlace = values.Get<uint32_t>(kDeinterlace);
    } else if (frame.frame_type == MX_FRAME_AUDIO) {
        frame.samples_per_sec = values.Get<uint32_t>(kSamplesPerSec);
        frame.bits_per_sample = values.Get<uint32_t>(kBitsPerSample);
        frame.channels = values.Get<uint32_t>(kChannels);
        frame.bitrate = values.Get<uint32_t>(kBitRate);
    }
    frame.n_slice = values.Get<uint32_t>(kNSlice);
    frame.m_slice = values.Get<uint32_t>(kMSlice);
    FillBlocks(attributes, frame);
    frame.rotation_angle = values.Get<uint32_t>(kRotationAngle);
    frame.ma_total_channels = values.Get<uint8_t>(kMaTotalChannels);
    frame.ma_cur_channel = values.Get<uint8_t>(kMaCurChannel);
    FillTimes(values, frame);
    EnterMissing(attributes, values);
}

uint32_t CFrameAttributes::UtcTime(const Date& date) {
    if (date.year == 0) return 0;
    if (date == last_date_) return last_utc_time_;
    // In 32 bits that wrap; the conversion puts right what is out of range, or gives -1.
    const auto minus = [](int32_t value, uint32_t base) {
        return static_cast<int32_t>(static_cast<uint32_t>(value) - base);
    };
    std::tm local{};
    local.tm_sec = date.second;
    local.tm_min = date.minute;
    local.tm_hour = date.hour;
    local.tm_mday = date.day;
    local.tm_mon = minus(date.month, 1);
    local.tm_year = minus(date.year, 1900);
    last_utc_time_ = static_cast<uint32_t>(FromLocalTime(local));
    last_date_ = date;
    return last_utc_time_;
}

void CFrameAttributes::FillBlocks(const AttributeMap& attributes, MXFrameInfo& frame) {
    const uint64_t count = static_cast<uint64_t>(frame.n_slice) * frame.m_slice;
    if (count == 0 || count > kMaxBlocks) return;
    try {
        blocks_.assign(static_cast<size_t>(count), MXBlockInfo{});
        const auto value = [&](std::string_view prefix, size_t number) -> long long {
            char digits[20];
            const auto [end, error] = std::to_chars(std::begin(digits), std::end(digits), number);
            key_.assign(prefix);
            key_.append(digits, end);
            const auto entry = attributes.find(key_);
            return entry != attributes.end() ? entry->second : 0;
        };
        for (size_t i = 0; i < blocks_.size(); ++i) {
            MXBlockInfo& block = blocks_[i];
            block.top = static_cast<uint16_t>(value("blockpos_top_", i + 1));
            block.left = static_cast<uint16_t>(value("blockpos_left_", i + 1));
            block.right = static_cast<uint16_t>(value("blockpos_right_", i + 1));
            block.bottom = static_cast<uint16_t>(value("blockpos_bottom_", i + 1));
            block.data_offset = static_cast<uint32_t>(value("blockdata_offset_", i + 1));
        }
    } catch (const std::bad_alloc&) {
        return;
    }
    frame.has_blocks = 1;
    frame.blocks = blocks_.data();
}

}  // namespace Orvane::Muxora
