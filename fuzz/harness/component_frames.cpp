#include "harness/component_frames.h"

#include <cstring>
#include <iterator>

namespace fuzz {

using Orvane::Muxora::AttributeMap;

namespace {

constexpr const char* kNames[] = {
    "bitrate",
    "bitspersample",
    "channels",
    "day",
    "deinterlace",
    "dts",
    "duration",
    "height",
    "hour",
    "m_slice",
    "macurchannel",
    "matotalchannels",
    "minute",
    "month",
    "n_slice",
    "pts",
    "rate",
    "rotationangle",
    "samplespersec",
    "second",
    "timescale",
    "tpcompanytype",
    "tpstreamheaderlen",
    "width",
    "year",
    "blockpos_left_1",
    "blockpos_top_1",
    "blockpos_right_2",
    "blockdata_offset_1",
    "unknown",
};
constexpr uint32_t kKinds[] = {86, 86, 65, 65, 88};
constexpr uint32_t kSubKinds[] = {1, 2, 3, 9, 25, 26, 27};
constexpr uint32_t kVideo[] = {2, 5, 1, 3, 6, 7, 4};
constexpr uint32_t kAudio[] = {33, 28, 31, 30, 21, 38, 22};

}  // namespace

AttributeMap Attributes(Input& in) {
    AttributeMap out;
    const uint8_t absent = in.U8();
    const uint32_t kind = in.Choose(kKinds);
    if (absent < 250) out["frametype"] = kind;
    if (absent < 252) out["framesubtype"] = in.Choose(kSubKinds);
    if (absent < 254)
        out["encodetype"] = kind == Orvane::Muxora::FRAME_KIND_VIDEO ? in.Choose(kVideo) : in.Choose(kAudio);
    if (absent < 255) out["timestamp"] = in.Number();
    for (uint8_t count = in.U8() % 8; count != 0; --count) {
        const char* const name = kNames[in.U8() % std::size(kNames)];
        const uint8_t width = in.U8();
        out[name] = width < 250 ? static_cast<long long>(in.Number()) : static_cast<long long>(in.U64());
    }
    return out;
}

FrameBytes::FrameBytes(Input& in) {
    size_t count = in.U16() % 3000;
    const uint8_t* const first = in.Take(count);
    size = static_cast<unsigned>(count);
    memory_.emplace(count + 1, 0);
    data = memory_->Data();
    if (count != 0) std::memcpy(data, first, count);
    data[count] = 0xA5;
}

}  // namespace fuzz
