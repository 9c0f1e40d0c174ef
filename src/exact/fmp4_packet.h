#pragma once

#include <vector>

#include "exact/fragmented_mp4.h"

namespace Orvane::Muxora {

// Fragmented MP4, forward only (ISO/IEC 14496-12 8.8, 23000-19): an initialisation segment, then segments, each in one
// block. A new initialisation segment comes when a track changes or begins late; the segments behind it belong to it.
//
// A segment is a fragment, but by frame it is all fragments from one key frame to the next: `styp` stands ahead of the
// first of them, and `sidx`, which would have to know them all, ahead of none.
class CFmp4Packet final : public CFragmentedMp4 {
  public:
    explicit CFmp4Packet(uint32_t format, const MXCreateParam* param = nullptr)
        : CFragmentedMp4(format, param, FrameClock::Origin::kAsGiven) {}

  private:
    void EmitTracks() override;
    void EmitFragment(std::span<const FragmentPart> parts, const BlockNote& note) override;
    void WriteSegmentBoxes(std::span<const FragmentPart> parts, const BlockNote& note);

    std::vector<uint8_t> head_;
    std::vector<uint8_t> producer_;
    std::vector<uint8_t> fragment_head_;
    uint32_t sequence_number_ = 0;
};

}  // namespace Orvane::Muxora
