#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "MuxoraAPI.h"
#include "codec/parameter_sets.h"
#include "core/frame_kinds.h"

namespace Orvane::Muxora {

// What a stream of pictures says of itself, gathered from its frames: parameter sets of H.264 and H.265, headers of
// MPEG-4 part 2.
class CVideoConfig {
  public:
    // Takes in what the frame brings. Nothing for H.264 and H.265 without a start code. Frames of other codecs are
    // pictures without parameter sets.
    std::optional<FrameNals> Take(const MXFrameInfo& frame);

    // Makes all as it was ahead of the last Take, Told included; also of one that ended in std::bad_alloc.
    void Undo();

    bool IsNal() const { return now_.sets.has_value(); }
    // H.264 or H.265 only.
    const CParameterSets& Sets() const { return *now_.sets; }
    std::span<const uint8_t> Mpeg4Headers() const { return now_.mpeg4_headers; }
    // Is there what a decoder has to know?
    bool Complete() const;
    // Has it changed since the last call of Told? At first it has.
    bool Changed() const { return now_.changed; }
    void Told() { now_.changed = false; }
    // Pictures that may be decoded ahead of one that is shown before them; 0 where that is not known.
    uint32_t ReorderDepth() const { return now_.reorder_depth; }
    // Size, shape and colour: of the SPS if there is one, else of the record.
    SpsDetails Details(const MXFrameInfo& frame) const;

  private:
    struct State {
        uint32_t codec = 0;
        std::optional<CParameterSets> sets;
        std::vector<uint8_t> mpeg4_headers;
        uint32_t reorder_depth = 0;
        bool changed = false;
    };

    void TakeMpeg4(std::span<const uint8_t> headers);
    std::optional<FrameNals> TakeSets(std::span<const uint8_t> bytes);
    void Replace(State with);

    State now_;
    // As it was ahead of the last Take: all of it if that replaced it, else the two numbers, and the sets know theirs.
    State before_;
    bool replaced_ = false;
};

// The codecs by what they are, whichever of their numbers they come with.
inline bool IsAvc(uint32_t encode_type) {
    return IsH264(encode_type) || encode_type == MX_VIDEO_H264_STREAM;
}

}  // namespace Orvane::Muxora
