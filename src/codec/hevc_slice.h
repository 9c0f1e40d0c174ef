// Slice headers of H.265, as far as they tell one picture from the next and a kind of picture from another (ITU-T H.265
// 7.3.6.1).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "codec/avc_slice.h"
#include "codec/sps_details.h"

namespace Orvane::Muxora {

// nal_unit_type (ITU-T H.265 Table 7-1).
enum HevcNalType : uint8_t {
    kHevcRaslRNal = 9,
    kHevcFirstIrapNal = 16,
    kHevcCraNal = 21,
    kHevcLastIrapNal = 23,
    kHevcVpsNal = 32,
    kHevcSpsNal = 33,
    kHevcPpsNal = 34,
    kHevcDelimiterNal = 35,
    kHevcEndOfSequenceNal = 36,
    kHevcEndOfBitstreamNal = 37,
    kHevcPrefixSeiNal = 39,
};

constexpr uint8_t HevcNalTypeOf(uint8_t first_byte) {
    return first_byte >> 1 & 0x3F;
}
constexpr uint8_t HevcLayerOf(uint8_t first_byte, uint8_t second_byte) {
    return static_cast<uint8_t>((first_byte & 1) << 5 | second_byte >> 3);
}
// Does a NAL unit of the type carry a slice segment?
constexpr bool IsHevcSlice(uint8_t nal_type) {
    return nal_type <= kHevcRaslRNal || (nal_type >= kHevcFirstIrapNal && nal_type <= kHevcCraNal);
}

// What slice headers need of a picture parameter set (7.3.2.3.1).
struct HevcPps {
    uint8_t sps_id = 0;
    bool dependent_slice_segments_enabled = false;
    uint8_t num_extra_slice_header_bits = 0;
};

// The parameter sets of the base layer, by number.
struct HevcParameterSets {
    std::array<std::optional<SpsDetails>, 16> sps;
    std::array<std::optional<HevcPps>, 64> pps;

    // Enters a parameter set NAL unit, header included; one that can't be read, or of another kind, is passed over.
    void Enter(std::span<const uint8_t> nal);
};

struct HevcSlice {
    uint8_t nal_type = 0;
    bool first_in_picture = false;
    const SpsDetails* sps = nullptr;  // null: the parameter sets are not known
    std::optional<SliceKind> kind;    // nothing where it is not stated here
};

// Reads a slice segment from the two bytes of its NAL unit header on, kSliceHeadSize bytes at most.
HevcSlice ReadHevcSlice(std::span<const uint8_t> nal, const HevcParameterSets& sets);

// pic_struct of a picture timing message (D.2.3) in an SEI NAL unit, if there is one. Only meant for streams whose SPS
// says that it is stated (frame_field_info_present_flag).
std::optional<uint32_t> HevcPicStruct(std::span<const uint8_t> nal);

}  // namespace Orvane::Muxora
