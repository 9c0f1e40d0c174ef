// Access units of H.264 (ITU-T H.264 7.4.1.2.3, 7.4.1.2.4).
#include <algorithm>
#include <optional>

#include "MuxoraExt.h"
#include "codec/avc_slice.h"
#include "units/video_cutter.h"

namespace Orvane::Muxora {

namespace {

bool IsSlice(uint8_t nal_type) {
    return nal_type == kAvcSliceNal || nal_type == kAvcPartitionANal || nal_type == kAvcIdrNal;
}

class AvcRules : public INalRules {
  public:
    size_t HeadSize(std::span<const uint8_t> head) const override {
        return IsSlice(AvcNalTypeOf(head[0])) ? kSliceHeadSize : 1;
    }

    NalPlace Place(std::span<const uint8_t> head) const override {
        const uint8_t type = AvcNalTypeOf(head[0]);
        if (ended_) return type == kAvcEndOfStreamNal ? NalPlace::kInside : NalPlace::kFirst;
        if (IsSlice(type)) return BeginsPicture(ReadAvcSlice(head, sets_)) ? NalPlace::kFirst : NalPlace::kPicture;
        if (type >= kAvcSeiNal && type <= kAvcDelimiterNal) return NalPlace::kFirst;
        if (type >= kAvcSubsetSpsNal && type <= kAvcLastReservedStart) return NalPlace::kFirst;
        // It stands before each slice of its layer, so only the slice tells.
        return type == kAvcPrefixNal ? NalPlace::kPerhaps : NalPlace::kInside;
    }

    void Begin(std::span<const uint8_t> head) override {
        const uint8_t type = AvcNalTypeOf(head[0]);
        if (type == kAvcEndOfSequenceNal || type == kAvcEndOfStreamNal) ended_ = true;
        if (!IsSlice(type)) return;
        const AvcSlice slice = ReadAvcSlice(head, sets_);
        kind_ = slice_ ? std::max(kind_, slice.kind) : slice.kind;
        idr_ = idr_ || slice.IsIdr();
        seen_first_mb_ = seen_first_mb_ || slice.first_mb == 0;
        if (slice.redundant_pic_cnt == 0 || !slice_) slice_ = slice;
        if (slice.sps != nullptr) Describe(*slice.sps, slice);
    }

    void End(std::span<const uint8_t> nal) override {
        if (AvcNalTypeOf(nal[0]) != kAvcSeiNal) {
            sets_.Enter(nal);
        } else if (AvcRecoveryFrames(nal) == 0u) {
            recovers_ = true;
        }
    }

    bool HasPicture() const override { return slice_.has_value(); }

    UnitInfo Finish() override {
        UnitInfo info = stream_;
        if (slice_) {
            info.picture_kind = kPictureKinds[static_cast<uint8_t>(kind_)];
            info.key_frame = idr_ || recovers_;
        }
        slice_.reset();
        kind_ = SliceKind::kI;
        idr_ = recovers_ = ended_ = seen_first_mb_ = false;
        return info;
    }

  private:
    bool BeginsPicture(const AvcSlice& slice) const {
        if (slice.redundant_pic_cnt != 0) return false;
        // Streams of IDR pictures that all carry the same idr_pic_id are out there; macroblock 0 comes once a picture.
        return (slice.first_mb == 0 && seen_first_mb_) || AvcPicturesDiffer(*slice_, slice);
    }

    void Describe(const SpsDetails& sps, const AvcSlice& slice) {
        stream_.width = sps.width;
        stream_.height = sps.height;
        stream_.field = !slice.field ? MX_UNIT_FRAME : slice.bottom ? MX_UNIT_BOTTOM_FIELD : MX_UNIT_TOP_FIELD;
        // A tick is the time of a field (E.2.1).
        stream_.SetRate(sps.time_scale, uint64_t{sps.num_units_in_tick} * 2);
    }

    AvcParameterSets sets_;
    UnitInfo stream_;
    // The unit begun.
    std::optional<AvcSlice> slice_;  // the last one of the primary picture
    SliceKind kind_ = SliceKind::kI;
    bool idr_ = false;
    bool recovers_ = false;       // a recovery point of no frames
    bool ended_ = false;          // the sequence, behind this picture
    bool seen_first_mb_ = false;  // the slice that begins with macroblock 0
};

}  // namespace

std::unique_ptr<INalRules> MakeAvcRules() {
    return std::make_unique<AvcRules>();
}

}  // namespace Orvane::Muxora
