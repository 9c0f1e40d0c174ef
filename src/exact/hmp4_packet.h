#pragma once

#include <vector>

#include "exact/fragmented_mp4.h"
#include "exact/sample_index.h"

namespace Orvane::Muxora {

// Hybrid MP4: a fragmented file while it grows, so that a recording that is cut off plays as it is up to its last whole
// fragment; the tail writes an index of all samples behind it, and turns everything between the file type and that into
// one mdat. What is left then is a plain MP4.
//
//     while it grows:  ftyp free moov free  free moof mdat  free moof mdat ...
//     finished:        ftyp mdat(           everything             ) moov
//
// Nobody needs to begin at a fragment of it, so that they may be small: what is gathered then is still in the
// processor's cache when it is written, and a kill loses less.
//
// A new sample entry goes into the moov in front, too, as long as there is room: for a hundred different ones. What
// comes behind that is right in the index of the tail, and lost to a recording that is cut off.
class CHmp4Packet final : public CFragmentedMp4 {
  public:
    explicit CHmp4Packet(uint32_t format, const MXCreateParam* param = nullptr)
        : CFragmentedMp4(format, param, FrameClock::Origin::kNearZero) {}

    // Bytes that the index holds.
    size_t IndexCapacity() const { return index_.Capacity(); }

    static constexpr size_t kPreferredFragment = size_t{512} << 10;

  private:
    size_t PreferredFragment() const override { return kPreferredFragment; }
    void EmitTracks() override;
    void EmitFragment(std::span<const FragmentPart> parts, const BlockNote& note) override;
    uint32_t Finish() override;
    void EmitGuard(uint64_t position, uint32_t size);
    size_t WriteFront(std::vector<uint8_t>& bytes, const std::vector<const Mp4Track*>& tracks) const;
    void EmitIndex();
    void EmitMediaHeader();

    std::vector<uint8_t> head_;
    RecordingIndex index_;
    uint64_t position_ = 0;  // of the next byte
    size_t front_size_ = 0;  // of the moov in front and the room behind it
    uint32_t sequence_number_ = 0;
};

}  // namespace Orvane::Muxora
