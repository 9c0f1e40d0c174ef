#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace Orvane::Muxora {

// What containers tell of a sequence parameter set. Colour is in the numbers of ISO/IEC 23091-2; 2 is "unspecified".
struct SpsDetails {
    uint32_t id = 0;
    uint32_t width = 0;  // of the picture that is shown: cropping is taken off
    uint32_t height = 0;
    uint32_t sar_width = 1;  // shape of a pixel
    uint32_t sar_height = 1;
    uint8_t chroma_format_idc = 1;
    uint8_t bit_depth_luma = 8;
    uint8_t bit_depth_chroma = 8;
    bool may_have_fields = false;  // pictures may be coded as fields
    uint32_t max_reorder = 0;      // pictures that may be decoded ahead of one that is shown before them
    bool has_colour = false;       // the next four were stated
    bool full_range = false;
    uint8_t colour_primaries = 2;
    uint8_t transfer_characteristics = 2;
    uint8_t matrix_coefficients = 2;
    uint32_t num_units_in_tick = 0;  // of 1 / time_scale seconds; a tick is a field with H.264, a picture with H.265
    uint32_t time_scale = 0;         // 0: not stated

    // What slice headers are read with.
    uint8_t log2_max_frame_num = 4;  // H.264
    uint8_t pic_order_cnt_type = 0;
    uint8_t log2_max_pic_order_cnt_lsb = 4;
    bool delta_pic_order_always_zero = false;
    bool separate_planes = false;
    uint32_t coded_width = 0;  // H.265
    uint32_t coded_height = 0;
    uint8_t log2_ctb_size = 4;
    bool frame_field_info_present = false;
};

// The further fields of an H.265 SPS that hvcC repeats (ISO/IEC 14496-15 8.3.3.1.2).
struct HevcProfile {
    uint8_t general_profile = 0;  // profile_space, tier_flag and profile_idc
    uint32_t compatibility_flags = 0;
    uint64_t constraint_flags = 0;  // 48 bits
    uint8_t level_idc = 0;
    uint8_t sub_layers = 1;
    bool temporal_id_nesting = false;
};

// Read an SPS NAL unit, header included (ITU-T H.264 7.3.2.1.1, H.265 7.3.2.2). Nothing for a unit of another kind or
// one without a picture size. Whatever comes behind a field that cannot be true stays at its default.
std::optional<SpsDetails> ReadAvcSps(std::span<const uint8_t> nal);
std::optional<SpsDetails> ReadHevcSps(std::span<const uint8_t> nal, HevcProfile* profile = nullptr);

}  // namespace Orvane::Muxora
