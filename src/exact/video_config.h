#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "MuxoraAPI.h"
#include "codec/parameter_sets.h"

namespace Orvane::Muxora {

// What a stream of pictures says of itself, gathered from its frames: parameter sets of H.264 and H.265, headers of
// MPEG-4 part 2.
class CVideoConfig {
  public:
    // Takes in what the frame brings. Nothing for H.264 and H.265 without a start code. Frames of other codecs are
    // pictures without parameter sets.
    std::optional<FrameNals> Take(const MXFrameInfo& frame);

    // Takes back what the last Take took in. Another codec is not taken back.
    void Undo();

    bool IsNal() const { return sets_.has_value(); }
    // H.264 or H.265 only.
    const CParameterSets& Sets() const { return *sets_; }
    std::span<const uint8_t> Mpeg4Headers() const { return mpeg4_headers_; }
    // Is there what a decoder has to know?
    bool Complete() const;
    // Has it changed since the last call of Told? At first it has.
    bool Changed() const { return changed_; }
    void Told() { changed_ = false; }
    // Pictures that may be decoded ahead of one that is shown before them; 0 where that is not known.
    uint32_t ReorderDepth() const { return reorder_depth_; }
    // Size, shape and colour: of the SPS if there is one, else of the record.
    SpsDetails Details(const MXFrameInfo& frame) const;

  private:
    uint32_t codec_ = 0;
    std::optional<CParameterSets> sets_;
    std::vector<uint8_t> mpeg4_headers_;
    uint32_t reorder_depth_ = 0;
    bool changed_ = false;
    // As they were before the last Take.
    uint32_t depth_before_ = 0;
    bool changed_before_ = false;
};

// The codecs by what they are, whichever of their numbers they come with.
inline bool IsAvc(uint32_t encode_type) {
    return encode_type == MX_VIDEO_H264 || encode_type == MX_VIDEO_H264_ALT || encode_type == MX_VIDEO_H264_STREAM;
}

}  // namespace Orvane::Muxora
