#include "codec/sps_details.h"

#include <algorithm>

#include "codec/rbsp.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kAvcSps = 7;
constexpr uint32_t kHevcSps = 33;
constexpr uint32_t kLargestSide = 65535;
constexpr uint8_t kExtendedSar = 255;
constexpr uint32_t kLargestReorder = 16;
constexpr uint32_t kLargestLog2Minus4 = 12;  // of MaxFrameNum and MaxPicOrderCntLsb

struct Ratio {
    uint8_t width;
    uint8_t height;
};
// aspect_ratio_idc (ITU-T H.264 Table E-1, the same in H.265).
constexpr Ratio kSampleAspects[] = {{1, 1},   {1, 1},    {12, 11}, {10, 11}, {16, 11}, {40, 33},
                                    {24, 11}, {20, 11},  {32, 11}, {80, 33}, {18, 11}, {15, 11},
                                    {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1}};

struct Window {
    uint64_t left, right, top, bottom;
};

Window ReadWindow(CBitReader& bits) {
    Window window{};
    window.left = bits.ReadUe();
    window.right = bits.ReadUe();
    window.top = bits.ReadUe();
    window.bottom = bits.ReadUe();
    return window;
}

// The picture size, less the window. A window that leaves nothing is not believed.
void SetSize(SpsDetails& details, uint64_t width, uint64_t height, const Window& window, uint32_t unit_x,
             uint32_t unit_y) {
    const uint64_t cut_x = (window.left + window.right) * unit_x;
    const uint64_t cut_y = (window.top + window.bottom) * unit_y;
    if (cut_x < width) width -= cut_x;
    if (cut_y < height) height -= cut_y;
    details.width = static_cast<uint32_t>(width);
    details.height = static_cast<uint32_t>(height);
}

// The beginning of vui_parameters(), which both standards share (H.264 E.1.1, H.265 E.2.1).
void ReadVui(CBitReader& bits, SpsDetails& details) {
    if (bits.ReadBit() != 0) {  // aspect_ratio_info_present_flag
        const uint32_t aspect_ratio_idc = bits.Read(8);
        uint32_t width = 1;
        uint32_t height = 1;
        if (aspect_ratio_idc == kExtendedSar) {
            width = bits.Read(16);
            height = bits.Read(16);
        } else if (aspect_ratio_idc < std::size(kSampleAspects)) {
            width = kSampleAspects[aspect_ratio_idc].width;
            height = kSampleAspects[aspect_ratio_idc].height;
        }
        if (width != 0 && height != 0) {
            details.sar_width = width;
            details.sar_height = height;
        }
    }
    if (bits.ReadBit() != 0) bits.Skip(1);  // overscan_info_present_flag, overscan_appropriate_flag
    if (bits.ReadBit() != 0) {              // video_signal_type_present_flag
        bits.Skip(3);                       // video_format
        details.full_range = bits.ReadBit() != 0;
        if (bits.ReadBit() != 0) {  // colour_description_present_flag
            details.colour_primaries = static_cast<uint8_t>(bits.Read(8));
            details.transfer_characteristics = static_cast<uint8_t>(bits.Read(8));
            details.matrix_coefficients = static_cast<uint8_t>(bits.Read(8));
        }
        details.has_colour = true;
    }
}

void ReadTiming(CBitReader& bits, SpsDetails& details) {
    details.num_units_in_tick = bits.Read(32);
    details.time_scale = bits.Read(32);
}

// hrd_parameters() (ITU-T H.264 E.1.2).
void SkipAvcHrd(CBitReader& bits) {
    const uint32_t count = std::min(bits.ReadUe(), 31u) + 1;  // cpb_cnt_minus1
    bits.Skip(8);                                             // bit_rate_scale, cpb_size_scale
    for (uint32_t i = 0; i < count; ++i) {
        bits.ReadUe();  // bit_rate_value_minus1
        bits.ReadUe();  // cpb_size_value_minus1
        bits.Skip(1);   // cbr_flag
    }
    bits.Skip(20);  // lengths of the delays and of time_offset
}

// vui_parameters() from chroma_loc_info_present_flag on (ITU-T H.264 E.1.1): the reorder depth, if it is stated.
std::optional<uint32_t> ReadAvcReorder(CBitReader& bits, SpsDetails& details) {
    if (bits.ReadBit() != 0) {  // chroma_loc_info_present_flag
        bits.ReadUe();
        bits.ReadUe();
    }
    if (bits.ReadBit() != 0) {  // timing_info_present_flag
        ReadTiming(bits, details);
        bits.Skip(1);  // fixed_frame_rate_flag
    }
    const bool nal_hrd = bits.ReadBit() != 0;
    if (nal_hrd) SkipAvcHrd(bits);
    const bool vcl_hrd = bits.ReadBit() != 0;
    if (vcl_hrd) SkipAvcHrd(bits);
    if (nal_hrd || vcl_hrd) bits.Skip(1);          // low_delay_hrd_flag
    bits.Skip(1);                                  // pic_struct_present_flag
    if (bits.ReadBit() == 0) return std::nullopt;  // bitstream_restriction_flag
    bits.Skip(1);                                  // motion_vectors_over_pic_boundaries_flag
    bits.ReadUe();                                 // max_bytes_per_pic_denom
    bits.ReadUe();                                 // max_bits_per_mb_denom
    bits.ReadUe();                                 // log2_max_mv_length_horizontal
    bits.ReadUe();                                 // log2_max_mv_length_vertical
    return bits.ReadUe();                          // max_num_reorder_frames
}

// MaxDpbFrames, which max_num_reorder_frames is where it is not stated (ITU-T H.264 A.3.1, Table A-1).
uint32_t MaxDpbFrames(uint32_t level_idc, bool level_1b, uint64_t macroblocks) {
    struct Row {
        uint8_t level_idc;
        uint32_t max_dpb_macroblocks;
    };
    constexpr Row kRows[] = {{9, 396},     {10, 396},    {11, 900},    {12, 2376},   {13, 2376},
                             {20, 2376},   {21, 4752},   {22, 8100},   {30, 8100},   {31, 18000},
                             {32, 20480},  {40, 32768},  {41, 32768},  {42, 34816},  {50, 110400},
                             {51, 184320}, {52, 184320}, {60, 696320}, {61, 696320}, {62, 696320}};
    if (level_1b) level_idc = 9;
    const auto* const row = std::ranges::find(kRows, level_idc, &Row::level_idc);
    if (row == std::end(kRows)) return kLargestReorder;
    return static_cast<uint32_t>(std::min<uint64_t>(row->max_dpb_macroblocks / macroblocks, kLargestReorder));
}

bool HasChromaFormat(uint32_t profile_idc) {
    constexpr uint32_t kProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
    return std::ranges::find(kProfiles, profile_idc) != std::end(kProfiles);
}

// scaling_list() of `size` entries (ITU-T H.264 7.3.2.1.1.1).
void SkipAvcScalingList(CBitReader& bits, uint32_t size) {
    int32_t last = 8;
    int32_t next = 8;
    for (uint32_t i = 0; i < size; ++i) {
        if (next != 0) next = static_cast<int32_t>((static_cast<int64_t>(last) + bits.ReadSe() + 256) % 256);
        if (next != 0) last = next;
    }
}

// profile_tier_level() (ITU-T H.265 7.3.3).
void ReadProfile(CBitReader& bits, uint32_t max_sub_layers_minus1, HevcProfile& profile) {
    profile.general_profile = static_cast<uint8_t>(bits.Read(8));
    profile.compatibility_flags = bits.Read(32);
    profile.constraint_flags = uint64_t{bits.Read(16)} << 32;
    profile.constraint_flags |= bits.Read(32);
    profile.level_idc = static_cast<uint8_t>(bits.Read(8));
    if (max_sub_layers_minus1 == 0) return;
    const uint32_t present = bits.Read(16);  // two flags for each of eight sub-layers
    for (uint32_t i = 0; i < max_sub_layers_minus1; ++i) {
        if ((present >> (15 - 2 * i) & 1) != 0) {  // sub_layer_profile_present_flag
            bits.Skip(32);
            bits.Skip(32);
            bits.Skip(24);
        }
        if ((present >> (14 - 2 * i) & 1) != 0) bits.Skip(8);  // sub_layer_level_present_flag
    }
}

// scaling_list_data() (ITU-T H.265 7.3.4).
void SkipHevcScalingLists(CBitReader& bits) {
    for (uint32_t size = 0; size < 4; ++size) {
        for (uint32_t matrix = 0; matrix < 6; matrix += size == 3 ? 3 : 1) {
            if (bits.ReadBit() == 0) {  // scaling_list_pred_mode_flag
                bits.ReadUe();          // scaling_list_pred_matrix_id_delta
                continue;
            }
            if (size > 1) bits.ReadSe();  // scaling_list_dc_coef_minus8
            const uint32_t count = std::min(64u, 1u << (4 + (size << 1)));
            for (uint32_t i = 0; i < count; ++i)
                bits.ReadSe();  // scaling_list_delta_coef
        }
    }
}

// The short-term reference picture sets (ITU-T H.265 7.3.7). False for counts that no stream has.
bool SkipReferencePictureSets(CBitReader& bits) {
    constexpr uint32_t kMostSets = 64;
    constexpr uint32_t kMostPictures = 16;
    const uint32_t sets = bits.ReadUe();
    if (sets > kMostSets) return false;
    uint32_t pictures = 0;  // of the set before
    for (uint32_t set = 0; set < sets; ++set) {
        if (set != 0 && bits.ReadBit() != 0) {  // inter_ref_pic_set_prediction_flag
            bits.ReadBit();                     // delta_rps_sign
            bits.ReadUe();                      // abs_delta_rps_minus1
            uint32_t kept = 0;
            for (uint32_t i = 0; i <= pictures; ++i) {
                // used_by_curr_pic_flag, use_delta_flag
                if (bits.ReadBit() != 0 || bits.ReadBit() != 0) ++kept;
            }
            pictures = kept;
        } else {
            const uint32_t negative = bits.ReadUe();
            const uint32_t positive = bits.ReadUe();
            if (negative > kMostPictures || positive > kMostPictures) return false;
            pictures = negative + positive;
            for (uint32_t i = 0; i < pictures; ++i) {
                bits.ReadUe();   // delta_poc_minus1
                bits.ReadBit();  // used_by_curr_pic_flag
            }
        }
        if (pictures > kMostPictures) return false;
    }
    return true;
}

// What stands between the bit depths and the VUI of an H.265 SPS. False if it cannot be true.
bool ReadToHevcVui(CBitReader& bits, uint32_t max_sub_layers_minus1, SpsDetails& details) {
    const uint32_t log2_max_poc_lsb = bits.ReadUe() + 4;
    if (log2_max_poc_lsb > 16) return false;
    // sub_layer_ordering_info_present_flag: for each sub-layer, or for the last one alone
    const uint32_t first = bits.ReadBit() != 0 ? 0 : max_sub_layers_minus1;
    for (uint32_t i = first; i <= max_sub_layers_minus1; ++i) {
        bits.ReadUe();                                                   // sps_max_dec_pic_buffering_minus1
        details.max_reorder = std::min(bits.ReadUe(), kLargestReorder);  // sps_max_num_reorder_pics
        bits.ReadUe();                                                   // sps_max_latency_increase_plus1
    }
    const uint64_t log2_ctb_size = uint64_t{bits.ReadUe()} + 3 + bits.ReadUe();
    if (log2_ctb_size > 6) return false;
    details.log2_ctb_size = static_cast<uint8_t>(log2_ctb_size);
    for (int i = 0; i < 4; ++i)
        bits.ReadUe();  // transform block sizes and hierarchy depths
    // scaling_list_enabled_flag, sps_scaling_list_data_present_flag
    if (bits.ReadBit() != 0 && bits.ReadBit() != 0) SkipHevcScalingLists(bits);
    bits.Skip(2);               // amp_enabled_flag, sample_adaptive_offset_enabled_flag
    if (bits.ReadBit() != 0) {  // pcm_enabled_flag
        bits.Skip(8);           // bit depths
        bits.ReadUe();          // block sizes
        bits.ReadUe();
        bits.Skip(1);  // pcm_loop_filter_disabled_flag
    }
    if (!SkipReferencePictureSets(bits)) return false;
    if (bits.ReadBit() != 0) {  // long_term_ref_pics_present_flag
        const uint32_t count = bits.ReadUe();
        if (count > 32) return false;
        for (uint32_t i = 0; i < count; ++i)
            bits.Skip(log2_max_poc_lsb + 1);  // lt_ref_pic_poc_lsb_sps, used_by_curr_pic_lt_sps_flag
    }
    bits.Skip(2);  // sps_temporal_mvp_enabled_flag, strong_intra_smoothing_enabled_flag
    return true;
}

}  // namespace

std::optional<SpsDetails> ReadAvcSps(std::span<const uint8_t> nal) {
    Rbsp data(nal);
    CBitReader& bits = data.Bits();
    bits.Skip(3);                                      // forbidden_zero_bit, nal_ref_idc
    if (bits.Read(5) != kAvcSps) return std::nullopt;  // nal_unit_type
    const uint32_t profile_idc = bits.Read(8);
    const bool constraint_set3 = (bits.Read(8) & 0x10) != 0;
    const uint32_t level_idc = bits.Read(8);
    SpsDetails details;
    details.id = bits.ReadUe();
    if (HasChromaFormat(profile_idc)) {
        const uint32_t chroma_format_idc = bits.ReadUe();
        if (chroma_format_idc > 3) return std::nullopt;
        details.chroma_format_idc = static_cast<uint8_t>(chroma_format_idc);
        if (chroma_format_idc == 3) details.separate_planes = bits.ReadBit() != 0;
        details.bit_depth_luma = static_cast<uint8_t>(8 + (bits.ReadUe() & 7));
        details.bit_depth_chroma = static_cast<uint8_t>(8 + (bits.ReadUe() & 7));
        bits.Skip(1);               // qpprime_y_zero_transform_bypass_flag
        if (bits.ReadBit() != 0) {  // seq_scaling_matrix_present_flag
            const uint32_t lists = chroma_format_idc != 3 ? 8 : 12;
            for (uint32_t i = 0; i < lists; ++i) {
                if (bits.ReadBit() != 0) SkipAvcScalingList(bits, i < 6 ? 16 : 64);
            }
        }
    }
    const uint32_t log2_max_frame_num_minus4 = bits.ReadUe();
    const uint32_t pic_order_cnt_type = bits.ReadUe();
    if (log2_max_frame_num_minus4 > kLargestLog2Minus4 || pic_order_cnt_type > 2) return std::nullopt;
    details.log2_max_frame_num = static_cast<uint8_t>(log2_max_frame_num_minus4 + 4);
    details.pic_order_cnt_type = static_cast<uint8_t>(pic_order_cnt_type);
    if (pic_order_cnt_type == 0) {
        const uint32_t log2_max_pic_order_cnt_lsb_minus4 = bits.ReadUe();
        if (log2_max_pic_order_cnt_lsb_minus4 > kLargestLog2Minus4) return std::nullopt;
        details.log2_max_pic_order_cnt_lsb = static_cast<uint8_t>(log2_max_pic_order_cnt_lsb_minus4 + 4);
    } else if (pic_order_cnt_type == 1) {
        details.delta_pic_order_always_zero = bits.ReadBit() != 0;
        bits.ReadSe();  // offset_for_non_ref_pic
        bits.ReadSe();  // offset_for_top_to_bottom_field
        const uint32_t count = bits.ReadUe();
        if (count > 255) return std::nullopt;
        for (uint32_t i = 0; i < count; ++i)
            bits.ReadSe();  // offset_for_ref_frame
    }
    bits.ReadUe();  // max_num_ref_frames
    bits.Skip(1);   // gaps_in_frame_num_value_allowed_flag
    const uint64_t width = (uint64_t{bits.ReadUe()} + 1) * 16;
    const uint64_t map_units = (uint64_t{bits.ReadUe()} + 1) * 16;
    const bool frames_only = bits.ReadBit() != 0;  // frame_mbs_only_flag
    details.may_have_fields = !frames_only;
    const uint64_t height = map_units * (frames_only ? 1 : 2);
    if (width > kLargestSide || height > kLargestSide) return std::nullopt;
    if (!frames_only) bits.Skip(1);  // mb_adaptive_frame_field_flag
    bits.Skip(1);                    // direct_8x8_inference_flag
    Window window{};
    if (bits.ReadBit() != 0) window = ReadWindow(bits);  // frame_cropping_flag
    const uint32_t chroma = details.separate_planes ? 0 : details.chroma_format_idc;
    const uint32_t unit_x = chroma == 1 || chroma == 2 ? 2 : 1;
    const uint32_t unit_y = (chroma == 1 ? 2u : 1u) * (frames_only ? 1 : 2);
    SetSize(details, width, height, window, unit_x, unit_y);
    std::optional<uint32_t> reorder;
    if (bits.ReadBit() != 0) {  // vui_parameters_present_flag
        ReadVui(bits, details);
        reorder = ReadAvcReorder(bits, details);
    }
    if (!reorder) {
        // No picture order but that of decoding; all pictures intra; or as much as the level allows (E.2.1).
        const bool in_order = profile_idc == 66 || pic_order_cnt_type == 2;
        const bool intra = constraint_set3 && HasChromaFormat(profile_idc);
        const bool level_1b = level_idc == 11 && constraint_set3 && !HasChromaFormat(profile_idc);
        reorder = in_order || intra ? 0 : MaxDpbFrames(level_idc, level_1b, width / 16 * (height / 16));
    }
    details.max_reorder = std::min(*reorder, kLargestReorder);
    return details;
}

std::optional<SpsDetails> ReadHevcSps(std::span<const uint8_t> nal, HevcProfile* profile) {
    Rbsp data(nal);
    CBitReader& bits = data.Bits();
    bits.Skip(1);                                       // forbidden_zero_bit
    if (bits.Read(6) != kHevcSps) return std::nullopt;  // nal_unit_type
    bits.Skip(9 + 4);                                   // nuh_layer_id, nuh_temporal_id_plus1; video parameter set
    const uint32_t max_sub_layers_minus1 = bits.Read(3);
    HevcProfile read;
    read.sub_layers = static_cast<uint8_t>(max_sub_layers_minus1 + 1);
    read.temporal_id_nesting = bits.ReadBit() != 0;
    ReadProfile(bits, max_sub_layers_minus1, read);
    SpsDetails details;
    details.id = bits.ReadUe();
    const uint32_t chroma_format_idc = bits.ReadUe();
    if (chroma_format_idc > 3) return std::nullopt;
    details.chroma_format_idc = static_cast<uint8_t>(chroma_format_idc);
    const bool separate_planes = chroma_format_idc == 3 && bits.ReadBit() != 0;
    const uint64_t width = bits.ReadUe();
    const uint64_t height = bits.ReadUe();
    if (width == 0 || height == 0 || width > kLargestSide || height > kLargestSide) return std::nullopt;
    Window window{};
    if (bits.ReadBit() != 0) window = ReadWindow(bits);  // conformance_window_flag
    const uint32_t chroma = separate_planes ? 0 : chroma_format_idc;
    SetSize(details, width, height, window, chroma == 1 || chroma == 2 ? 2 : 1, chroma == 1 ? 2 : 1);
    details.coded_width = static_cast<uint32_t>(width);
    details.coded_height = static_cast<uint32_t>(height);
    details.bit_depth_luma = static_cast<uint8_t>(8 + (bits.ReadUe() & 7));
    details.bit_depth_chroma = static_cast<uint8_t>(8 + (bits.ReadUe() & 7));
    if (profile != nullptr) *profile = read;
    // vui_parameters_present_flag
    if (ReadToHevcVui(bits, max_sub_layers_minus1, details) && bits.ReadBit() != 0) {
        ReadVui(bits, details);
        if (bits.ReadBit() != 0) {  // chroma_loc_info_present_flag
            bits.ReadUe();
            bits.ReadUe();
        }
        bits.Skip(1);                                   // neutral_chroma_indication_flag
        details.may_have_fields = bits.ReadBit() != 0;  // field_seq_flag
        details.frame_field_info_present = bits.ReadBit() != 0;
        if (bits.ReadBit() != 0) ReadWindow(bits);           // default_display_window_flag
        if (bits.ReadBit() != 0) ReadTiming(bits, details);  // vui_timing_info_present_flag
    }
    return details;
}

}  // namespace Orvane::Muxora
