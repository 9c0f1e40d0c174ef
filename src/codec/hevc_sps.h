#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// What the hvcC record wants of a sequence parameter set (ISO/IEC 14496-15 8.3.3.1.2).
struct HevcSpsSummary {
    uint8_t general_profile = 0;  // profile_space, tier_flag and profile_idc
    uint32_t general_profile_compatibility_flags = 0;
    uint16_t general_constraint_indicator_flags[3] = {};
    uint8_t general_level_idc = 0;
    uint8_t chromaFormat = 0xFD;
    uint8_t bitDepthLumaMinus8 = 0xF8;
    uint8_t bitDepthChromaMinus8 = 0xF8;

    bool operator==(const HevcSpsSummary&) const = default;
};

// Reads an H.265 SPS NAL unit, header included (ITU-T H.265 7.3.2.2); at most its first 256 bytes. All `len` bytes must
// be readable: a caller that passes the result of HevcGetSps, 2 above the unit's own length, keeps that much room.
// Returns 0, or -1 for no data or a NAL unit of another type, with `target` left alone.
int32_t ParseHevcSps(const uint8_t* in, uint32_t len, HevcSpsSummary* target);

}  // namespace Orvane::Muxora
