#include "codec/hevc_sps.h"

#include <algorithm>

#include "codec/bit_reader.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kLongest = 256;  // bytes of the unit that are looked at
constexpr uint32_t kNalTypeSps = 33;
constexpr uint32_t kMaxSubLayers = 8;
constexpr uint32_t kChroma444 = 3;

// Takes the emulation prevention bytes out of the first `count` bytes of a unit of `length` (ITU-T H.265 7.3.1.1). A
// pattern that begins with the last byte counts as well: `out` has room for one byte more than `count`.
uint32_t Unescape(const uint8_t* in, uint32_t count, uint32_t length, uint8_t* out) {
    uint32_t written = 0;
    for (uint32_t i = 0; i < count;) {
        if (length - i >= 3 && in[i] == 0 && in[i + 1] == 0 && in[i + 2] == 3) {
            out[written++] = 0;
            out[written++] = 0;
            i += 3;
        } else {
            out[written++] = in[i++];
        }
    }
    return written;
}

// profile_tier_level() behind the general fields: what the sub-layers say is passed over (ITU-T H.265 7.3.3).
void SkipSubLayers(CBitReader& bits, uint32_t max_sub_layers_minus1) {
    if (max_sub_layers_minus1 == 0) return;
    bool profile_present[kMaxSubLayers];
    bool level_present[kMaxSubLayers];
    for (uint32_t i = 0; i < max_sub_layers_minus1; ++i) {
        profile_present[i] = bits.ReadBit() != 0;  // sub_layer_profile_present_flag
        level_present[i] = bits.ReadBit() != 0;    // sub_layer_level_present_flag
    }
    for (uint32_t i = max_sub_layers_minus1; i < kMaxSubLayers; ++i)
        bits.Read(2);  // reserved_zero_2bits
    for (uint32_t i = 0; i < max_sub_layers_minus1; ++i) {
        if (profile_present[i]) {
            // Readers rely on this: the last step is longer than the reader's window, see CBitReader::Skip.
            for (const uint32_t width : {2u, 1u, 5u, 32u, 1u, 1u, 1u, 1u, 44u})
                bits.Read(width);
        }
        if (level_present[i]) bits.Read(8);  // sub_layer_level_idc
    }
}

}  // namespace

int32_t ParseHevcSps(const uint8_t* in, uint32_t len, HevcSpsSummary* target) {
    if (in == nullptr || len < 1) return -1;
    uint8_t scratch[kLongest + 1];
    CBitReader bits;
    bits.Init(scratch, Unescape(in, std::min(len, kLongest), len, scratch));

    bits.ReadBit();                              // forbidden_zero_bit
    if (bits.Read(6) != kNalTypeSps) return -1;  // nal_unit_type
    bits.Read(6);                                // nuh_layer_id
    bits.Read(3);                                // nuh_temporal_id_plus1
    bits.Read(4);                                // sps_video_parameter_set_id
    const uint32_t max_sub_layers_minus1 = bits.Read(3);
    bits.Read(1);  // sps_temporal_id_nesting_flag

    target->general_profile = static_cast<uint8_t>(bits.Read(8));
    target->general_profile_compatibility_flags = bits.Read(32);
    for (uint16_t& word : target->general_constraint_indicator_flags)
        word = static_cast<uint16_t>(bits.Read(16));
    target->general_level_idc = static_cast<uint8_t>(bits.Read(8));
    SkipSubLayers(bits, max_sub_layers_minus1);

    bits.ReadUe();  // sps_seq_parameter_set_id
    target->chromaFormat = static_cast<uint8_t>(bits.ReadUe() | 0xFC);
    // Readers rely on this: the stored byte is compared, with its upper bits set, so separate_colour_plane_flag is
    // never read, and in 4:4:4 streams what follows is one bit off.
    if (target->chromaFormat == kChroma444) bits.Read(1);
    bits.ReadUe();            // pic_width_in_luma_samples
    bits.ReadUe();            // pic_height_in_luma_samples
    if (bits.Read(1) != 0) {  // conformance_window_flag
        for (int side = 0; side < 4; ++side)
            bits.ReadUe();
    }
    target->bitDepthLumaMinus8 = static_cast<uint8_t>(bits.ReadUe() | 0xF8);
    target->bitDepthChromaMinus8 = static_cast<uint8_t>(bits.ReadUe() | 0xF8);
    return 0;
}

}  // namespace Orvane::Muxora
