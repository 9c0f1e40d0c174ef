#include "codec/hevc_convert.h"

#include "codec/annexb.h"

namespace Orvane::Muxora {

namespace {

// nal_unit_type stands in bits 6 to 1 of the first byte; bit 0 belongs to the layer id and is not looked at.
constexpr uint8_t kNalTypeMask = 0x7E;
constexpr uint8_t kNalTypeVps = 32 << 1;
constexpr uint8_t kNalTypeSps = 33 << 1;
constexpr uint8_t kNalTypePps = 34 << 1;
constexpr uint8_t kNalTypePrefixSei = 39 << 1;
constexpr int32_t kBadArguments = -1;

int32_t CopyFirst(uint8_t type, const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    const NalUnit nal = FindFirstNal(in, inLen, kNalTypeMask, type);
    return static_cast<int32_t>(CopyNal(nal, 2, out, outCap));
}

}  // namespace

uint32_t HevcConvertToLengthPrefixed(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    return AnnexBToLengthPrefixed(in, inLen, out, outCap);
}

int32_t HevcGetVps(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    if (out == nullptr || outCap == 0) return kBadArguments;
    return CopyFirst(kNalTypeVps, in, inLen, out, outCap);
}

int32_t HevcGetSps(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    if (out == nullptr || outCap == 0) return kBadArguments;
    return CopyFirst(kNalTypeSps, in, inLen, out, outCap);
}

// Callers rely on this: the next two refuse only a null `out` and an `outCap` of 0 together.

int32_t HevcGetPps(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    if (out == nullptr && outCap == 0) return kBadArguments;
    return CopyFirst(kNalTypePps, in, inLen, out, outCap);
}

int32_t HevcGetPrefixSei(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    if (out == nullptr && outCap == 0) return kBadArguments;
    return CopyFirst(kNalTypePrefixSei, in, inLen, out, outCap);
}

}  // namespace Orvane::Muxora
