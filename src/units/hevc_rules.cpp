// Access units of H.265 (ITU-T H.265 7.4.2.4.4, 7.4.2.4.5).
#include <algorithm>
#include <optional>

#include "MuxoraExt.h"
#include "codec/hevc_slice.h"
#include "units/video_cutter.h"

namespace Orvane::Muxora {

namespace {

constexpr size_t kHeaderSize = 2;
constexpr uint8_t kFirstSlice = 0x80;  // first_slice_segment_in_pic_flag, behind the header

// The types of the base layer that begin an access unit when they come behind a picture.
bool BeginsUnit(uint8_t type) {
    return (type >= kHevcVpsNal && type <= kHevcDelimiterNal) || type == kHevcPrefixSeiNal ||
           (type >= 41 && type <= 44) || (type >= 48 && type <= 55);
}

uint32_t FieldOf(uint32_t pic_struct) {
    switch (pic_struct) {  // Table D.2
        case 1:
        case 9:
        case 11:
            return MX_UNIT_TOP_FIELD;
        case 2:
        case 10:
        case 12:
            return MX_UNIT_BOTTOM_FIELD;
        default:
            return MX_UNIT_FRAME;
    }
}

class HevcRules : public INalRules {
  public:
    size_t HeadSize(std::span<const uint8_t> head) const override {
        return IsHevcSlice(HevcNalTypeOf(head[0])) ? kSliceHeadSize : kHeaderSize;
    }

    NalPlace Place(std::span<const uint8_t> head) const override {
        if (!IsBaseLayer(head)) return NalPlace::kInside;
        const uint8_t type = HevcNalTypeOf(head[0]);
        if (ended_) return type == kHevcEndOfBitstreamNal ? NalPlace::kInside : NalPlace::kFirst;
        if (IsHevcSlice(type)) {
            const bool first = head.size() > kHeaderSize && (head[kHeaderSize] & kFirstSlice) != 0;
            return first ? NalPlace::kFirst : NalPlace::kPicture;
        }
        return BeginsUnit(type) ? NalPlace::kFirst : NalPlace::kInside;
    }

    void Begin(std::span<const uint8_t> head) override {
        if (!IsBaseLayer(head)) return;
        const uint8_t type = HevcNalTypeOf(head[0]);
        if (type == kHevcEndOfSequenceNal || type == kHevcEndOfBitstreamNal) ended_ = true;
        if (!IsHevcSlice(type)) return;
        const HevcSlice slice = ReadHevcSlice(head, sets_);
        if (slice.kind) kind_ = kind_ ? std::max(*kind_, *slice.kind) : *slice.kind;
        random_access_ = type >= kHevcFirstIrapNal;
        has_picture_ = true;
        if (slice.sps != nullptr) Describe(*slice.sps);
    }

    void End(std::span<const uint8_t> nal) override {
        if (nal.size() <= kHeaderSize || !IsBaseLayer(nal)) return;
        if (HevcNalTypeOf(nal[0]) != kHevcPrefixSeiNal) {
            sets_.Enter(nal);
        } else if (const std::optional<uint32_t> pic_struct = HevcPicStruct(nal)) {
            pic_struct_ = *pic_struct;
        }
    }

    bool HasPicture() const override { return has_picture_; }

    UnitInfo Finish() override {
        UnitInfo info = stream_;
        if (has_picture_) {
            if (kind_) info.picture_kind = kPictureKinds[static_cast<uint8_t>(*kind_)];
            if (!kind_ && random_access_) info.picture_kind = MX_SUB_I;
            info.key_frame = random_access_;
        }
        has_picture_ = random_access_ = ended_ = false;
        kind_.reset();
        pic_struct_ = 0;
        return info;
    }

  private:
    static bool IsBaseLayer(std::span<const uint8_t> nal) {
        return nal.size() >= kHeaderSize && HevcLayerOf(nal[0], nal[1]) == 0;
    }

    void Describe(const SpsDetails& sps) {
        stream_.width = sps.width;
        stream_.height = sps.height;
        stream_.field = sps.frame_field_info_present ? FieldOf(pic_struct_) : uint32_t{MX_UNIT_FRAME};
        // A tick is the time of a picture, which may be a field (E.3.1).
        stream_.SetRate(sps.time_scale, sps.num_units_in_tick);
    }

    HevcParameterSets sets_;
    UnitInfo stream_;
    // The unit begun.
    bool has_picture_ = false;
    std::optional<SliceKind> kind_;
    bool random_access_ = false;
    bool ended_ = false;  // the sequence, behind this picture
    uint32_t pic_struct_ = 0;
};

}  // namespace

std::unique_ptr<INalRules> MakeHevcRules() {
    return std::make_unique<HevcRules>();
}

}  // namespace Orvane::Muxora
