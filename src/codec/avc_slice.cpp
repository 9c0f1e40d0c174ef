#include "codec/avc_slice.h"

#include <algorithm>

#include "codec/rbsp.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kSliceKinds = 5;  // slice_type counts them twice
constexpr uint32_t kRecoveryPoint = 6;

// P, B, I, SP, SI (Table 7-6).
SliceKind KindOf(uint32_t slice_type) {
    constexpr SliceKind kKinds[kSliceKinds] = {SliceKind::kP, SliceKind::kB, SliceKind::kI, SliceKind::kP,
                                               SliceKind::kI};
    return kKinds[slice_type % kSliceKinds];
}

// Slice groups (7.3.2.2). False for what cannot be true.
bool SkipSliceGroups(CBitReader& bits, uint32_t num_slice_groups_minus1) {
    if (num_slice_groups_minus1 > 7) return false;
    const uint32_t map_type = bits.ReadUe();
    if (map_type == 0) {
        for (uint32_t i = 0; i <= num_slice_groups_minus1; ++i)
            bits.ReadUe();  // run_length_minus1
    } else if (map_type == 2) {
        for (uint32_t i = 0; i < 2 * num_slice_groups_minus1; ++i)
            bits.ReadUe();  // top_left, bottom_right
    } else if (map_type >= 3 && map_type <= 5) {
        bits.Skip(1);   // slice_group_change_direction_flag
        bits.ReadUe();  // slice_group_change_rate_minus1
    } else if (map_type == 6) {
        const uint32_t units = bits.ReadUe();
        if (units > 8 * kRbspCapacity) return false;
        const uint32_t width = num_slice_groups_minus1 > 3 ? 3 : num_slice_groups_minus1 > 1 ? 2 : 1;
        for (uint32_t i = 0; i <= units; ++i)
            bits.Skip(width);  // slice_group_id
    }
    return map_type <= 6;
}

}  // namespace

void AvcParameterSets::Enter(std::span<const uint8_t> nal) {
    if (nal.empty()) return;
    if (AvcNalTypeOf(nal[0]) == kAvcSpsNal) {
        const std::optional<SpsDetails> read = ReadAvcSps(nal);
        if (read && read->id < sps.size()) sps[read->id] = read;
        return;
    }
    if (AvcNalTypeOf(nal[0]) != kAvcPpsNal) return;
    Rbsp data(nal.subspan(1));
    CBitReader& bits = data.Bits();
    const uint32_t id = bits.ReadUe();
    const uint32_t sps_id = bits.ReadUe();
    if (id >= pps.size() || sps_id >= sps.size()) return;
    AvcPps read;
    read.sps_id = static_cast<uint8_t>(sps_id);
    bits.Skip(1);  // entropy_coding_mode_flag
    read.bottom_field_pic_order_in_frame_present = bits.ReadBit() != 0;
    const uint32_t num_slice_groups_minus1 = bits.ReadUe();
    if (num_slice_groups_minus1 != 0 && !SkipSliceGroups(bits, num_slice_groups_minus1)) return;
    bits.ReadUe();  // num_ref_idx_l0_default_active_minus1
    bits.ReadUe();  // num_ref_idx_l1_default_active_minus1
    bits.Skip(3);   // weighted_pred_flag, weighted_bipred_idc
    bits.ReadSe();  // pic_init_qp_minus26
    bits.ReadSe();  // pic_init_qs_minus26
    bits.ReadSe();  // chroma_qp_index_offset
    bits.Skip(2);   // deblocking_filter_control_present_flag, constrained_intra_pred_flag
    read.redundant_pic_cnt_present = bits.ReadBit() != 0;
    pps[id] = read;
}

AvcSlice ReadAvcSlice(std::span<const uint8_t> nal, const AvcParameterSets& sets) {
    AvcSlice slice;
    if (nal.empty()) return slice;
    slice.nal_type = AvcNalTypeOf(nal[0]);
    slice.nal_ref_idc = nal[0] >> 5 & 3;
    Rbsp data(nal.subspan(1, std::min<size_t>(nal.size(), kSliceHeadSize) - 1));
    CBitReader& bits = data.Bits();
    slice.first_mb = bits.ReadUe();
    slice.kind = KindOf(bits.ReadUe());
    slice.pps_id = bits.ReadUe();
    if (slice.pps_id >= sets.pps.size() || !sets.pps[slice.pps_id]) return slice;
    const AvcPps& pps = *sets.pps[slice.pps_id];
    if (!sets.sps[pps.sps_id]) return slice;
    const SpsDetails& sps = *sets.sps[pps.sps_id];
    slice.sps = &sps;
    if (sps.separate_planes) bits.Skip(2);  // colour_plane_id
    slice.frame_num = bits.Read(sps.log2_max_frame_num);
    if (sps.may_have_fields) {
        slice.field = bits.ReadBit() != 0;
        if (slice.field) slice.bottom = bits.ReadBit() != 0;
    }
    if (slice.IsIdr()) slice.idr_pic_id = bits.ReadUe();
    const bool both = pps.bottom_field_pic_order_in_frame_present && !slice.field;
    if (sps.pic_order_cnt_type == 0) {
        slice.pic_order_cnt_lsb = bits.Read(sps.log2_max_pic_order_cnt_lsb);
        if (both) slice.delta_pic_order_cnt_bottom = bits.ReadSe();
    } else if (sps.pic_order_cnt_type == 1 && !sps.delta_pic_order_always_zero) {
        slice.delta_pic_order_cnt[0] = bits.ReadSe();
        if (both) slice.delta_pic_order_cnt[1] = bits.ReadSe();
    }
    if (pps.redundant_pic_cnt_present) slice.redundant_pic_cnt = bits.ReadUe();
    return slice;
}

bool AvcPicturesDiffer(const AvcSlice& before, const AvcSlice& slice) {
    const bool reference_differs = (before.nal_ref_idc == 0) != (slice.nal_ref_idc == 0);
    if (reference_differs || before.IsIdr() != slice.IsIdr() || before.pps_id != slice.pps_id) return true;
    if (before.sps == nullptr || slice.sps == nullptr) return slice.first_mb <= before.first_mb;
    return before.frame_num != slice.frame_num || before.field != slice.field || before.bottom != slice.bottom ||
           (slice.IsIdr() && before.idr_pic_id != slice.idr_pic_id) ||
           before.pic_order_cnt_lsb != slice.pic_order_cnt_lsb ||
           before.delta_pic_order_cnt_bottom != slice.delta_pic_order_cnt_bottom ||
           before.delta_pic_order_cnt[0] != slice.delta_pic_order_cnt[0] ||
           before.delta_pic_order_cnt[1] != slice.delta_pic_order_cnt[1];
}

std::optional<uint32_t> AvcRecoveryFrames(std::span<const uint8_t> nal) {
    if (nal.empty() || AvcNalTypeOf(nal[0]) != kAvcSeiNal) return std::nullopt;
    Rbsp data(nal.subspan(1));
    const std::optional<std::span<const uint8_t>> payload = FindSeiMessage(data.Bytes(), kRecoveryPoint);
    if (!payload) return std::nullopt;
    CBitReader bits;
    bits.Init(payload->data(), static_cast<uint32_t>(payload->size()));
    return bits.ReadUe();
}

}  // namespace Orvane::Muxora
