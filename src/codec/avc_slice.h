// Slice headers of H.264, as far as they tell one picture from the next and a kind of picture from another (ITU-T H.264
// 7.3.3, 7.4.1.2.4).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "codec/sps_details.h"

namespace Orvane::Muxora {

// nal_unit_type (ITU-T H.264 Table 7-1).
enum AvcNalType : uint8_t {
    kAvcSliceNal = 1,
    kAvcPartitionANal = 2,
    kAvcIdrNal = 5,
    kAvcSeiNal = 6,
    kAvcSpsNal = 7,
    kAvcPpsNal = 8,
    kAvcDelimiterNal = 9,
    kAvcEndOfSequenceNal = 10,
    kAvcEndOfStreamNal = 11,
    kAvcPrefixNal = 14,
    kAvcSubsetSpsNal = 15,
    kAvcLastReservedStart = 18
};

constexpr uint8_t AvcNalTypeOf(uint8_t first_byte) {
    return first_byte & 0x1F;
}

// What slice headers need of a picture parameter set (7.3.2.2).
struct AvcPps {
    uint8_t sps_id = 0;
    bool bottom_field_pic_order_in_frame_present = false;
    bool redundant_pic_cnt_present = false;
};

// The parameter sets of a stream, by number.
struct AvcParameterSets {
    std::array<std::optional<SpsDetails>, 32> sps;
    std::array<std::optional<AvcPps>, 256> pps;

    // Enters a parameter set NAL unit, header included; one that can't be read, or of another kind, is passed over.
    void Enter(std::span<const uint8_t> nal);
};

// The kind of a slice, and of the picture whose most general slice it is.
enum class SliceKind : uint8_t { kI, kP, kB };

struct AvcSlice {
    uint8_t nal_type = 0;
    uint8_t nal_ref_idc = 0;
    uint32_t first_mb = 0;
    SliceKind kind = SliceKind::kI;
    uint32_t pps_id = 0;
    const SpsDetails* sps = nullptr;  // null: the parameter sets are not known, and what follows was not read
    uint32_t frame_num = 0;
    bool field = false;
    bool bottom = false;
    uint32_t idr_pic_id = 0;
    uint32_t pic_order_cnt_lsb = 0;
    int32_t delta_pic_order_cnt_bottom = 0;
    int32_t delta_pic_order_cnt[2] = {};
    uint32_t redundant_pic_cnt = 0;

    bool IsIdr() const { return nal_type == kAvcIdrNal; }
};

// Bytes of a slice that ReadAvcSlice may look at: a caller gives as many, or the whole of a shorter one.
constexpr uint32_t kSliceHeadSize = 48;

// Reads a NAL unit of type 1, 2 or 5 from its header byte on.
AvcSlice ReadAvcSlice(std::span<const uint8_t> nal, const AvcParameterSets& sets);

// Do two slices, one behind the other, belong to different primary coded pictures (7.4.1.2.4)?
bool AvcPicturesDiffer(const AvcSlice& before, const AvcSlice& slice);

// recovery_frame_cnt of a recovery point message (D.2.8) in an SEI NAL unit, if there is one.
std::optional<uint32_t> AvcRecoveryFrames(std::span<const uint8_t> nal);

}  // namespace Orvane::Muxora
