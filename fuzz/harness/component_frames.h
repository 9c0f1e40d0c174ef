// Frames as the components take them, and the keys that their formats go by.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "Muxora.h"
#include "MuxoraExt.h"
#include "harness/file.h"
#include "harness/frame_memory.h"
#include "harness/input.h"

namespace fuzz {

inline constexpr uint32_t kNoFormat = UINT32_MAX;

struct Key {
    const char* key;
    uint32_t format;  // of the C interface
};
inline constexpr Key kFileKeys[] = {
    {"mp4", MX_FORMAT_MP4},      {"mov", MX_FORMAT_MOV},      {"3gp", kNoFormat},
    {"mp464", MX_FORMAT_MP4_64}, {"asf", MX_FORMAT_ASF},      {"mkv", MX_FORMAT_MKV},
    {"avi", MX_FORMAT_AVI},      {"ovx", MX_FORMAT_OVX},      {"flv", MX_FORMAT_FLV},
    {"wav", MX_FORMAT_WAV},      {"MOV64", MX_FORMAT_MOV_64}, {"mp4noseek", MX_FORMAT_MP4_NOSEEK},
    {"hmp4", MX_FORMAT_HMP4},    {"fmp4", MX_FORMAT_FMP4},    {"", kNoFormat}};

// Those of a frame, known and unknown ones, with any values.
Orvane::Muxora::AttributeMap Attributes(Input& in);

// The bytes of a frame, which end where their memory does but for the one that RTP may read behind them. One at a time.
class FrameBytes {
  public:
    explicit FrameBytes(Input& in);

    // With the byte behind them, for who is given the frame a second time: some formats change it.
    std::vector<uint8_t> Copy() const { return {data, data + size + 1}; }

    uint8_t* data;
    unsigned size;

  private:
    std::optional<FrameMemory> memory_;
};

// What a file component writes, put together in `file`, which outlives the function.
inline Orvane::Muxora::IFilePackage::WriteFunction WriteInto(File& file) {
    return [&file](Orvane::Muxora::AttributeMap& place, Orvane::Muxora::IMuxoraData& data) {
        if (place["offsettype"] == MX_SEEK_ABSOLUTE) {
            file.Put(static_cast<uint64_t>(place["fileoffset"]), data.getBuffer(), data.getLen());
        } else {
            file.Append(data.getBuffer(), data.getLen());
        }
        return true;
    };
}

}  // namespace fuzz
