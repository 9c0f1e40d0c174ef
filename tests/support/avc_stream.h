// H.264 streams of a few bytes a NAL unit, with the parameter sets and slice headers that a test wants.
#pragma once

#include <cstdint>

#include "support/bits.h"
#include "support/hex.h"

namespace test {

inline const ByteVector kStartCode = Bytes("00 00 00 01");

// ITU-T H.264 7.3.2.1.1: 640 by 480 in macroblocks, frame_num of 4 bits, picture order of type 0 in 4 bits, fields
// allowed where `fields` says so, 30000 / 1001 frames a second.
inline ByteVector AvcSps(bool fields = false, uint32_t id = 0, uint32_t width_in_mbs = 40) {
    BitString bits;
    bits.Put(77, 8).Put(0, 8).Put(30, 8).Ue(id).Ue(0).Ue(0).Ue(0).Ue(2).Put(0, 1);
    bits.Ue(width_in_mbs - 1).Ue(fields ? 14 : 29).Put(fields ? 0 : 1, 1);
    if (fields) bits.Put(0, 1);
    bits.Put(1, 1).Put(0, 1);  // direct_8x8_inference_flag, no cropping
    bits.Put(1, 1).Put(0, 4);  // VUI without aspect, overscan, signal type, chroma location
    bits.Put(1, 1).Put(1001, 32).Put(60000, 32).Put(1, 1);
    bits.Put(0, 2).Put(0, 1).Put(0, 1).Put(1, 1);  // no HRD, pic_struct, restriction; stop bit
    return kStartCode + Bytes("67") + bits.Bytes();
}
inline ByteVector AvcPps(bool redundant = false) {
    BitString bits;
    bits.Ue(0).Ue(0).Put(0, 2).Ue(0).Ue(0).Ue(0).Put(0, 3).Ue(0).Ue(0).Ue(0).Put(0, 2).Put(redundant ? 1 : 0, 1);
    return kStartCode + Bytes("68") + bits.Put(1, 1).Bytes();
}

struct AvcSliceFields {
    uint8_t header = 0x41;  // nal_ref_idc 2, type 1
    uint32_t first_mb = 0;
    uint32_t type = 5;  // P
    uint32_t frame_num = 0;
    int field = -1;  // -1: the SPS has none, 0: frame, 1: top, 2: bottom
    uint32_t idr_pic_id = 0;
    uint32_t poc = 0;
    int redundant = -1;  // -1: the PPS has none
};

inline ByteVector AvcSlice(const AvcSliceFields& slice) {
    BitString bits;
    bits.Ue(slice.first_mb).Ue(slice.type).Ue(0).Put(slice.frame_num, 4);
    if (slice.field >= 0) bits.Put(slice.field != 0 ? 1 : 0, 1);
    if (slice.field > 0) bits.Put(slice.field == 2 ? 1 : 0, 1);
    if ((slice.header & 31) == 5) bits.Ue(slice.idr_pic_id);
    bits.Put(slice.poc, 4);
    if (slice.redundant >= 0) bits.Ue(static_cast<uint64_t>(slice.redundant));
    return kStartCode + ByteVector{slice.header} + bits.Put(0x2AAAAA, 23).Bytes('1') + ByteVector(60, 0x5A);
}
inline AvcSliceFields Idr(uint32_t idr_pic_id = 0) {
    return {.header = 0x65, .type = 7, .idr_pic_id = idr_pic_id};
}

}  // namespace test
