#include "codec/avc_convert.h"

#include "codec/annexb.h"

namespace Orvane::Muxora {

namespace {

constexpr uint8_t kNalTypeMask = 0x1F;
constexpr uint8_t kNalTypeSps = 7;
constexpr uint8_t kNalTypePps = 8;
constexpr int32_t kBadArguments = -1;

int32_t CopyFirst(uint8_t type, const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    const NalUnit nal = FindFirstNal(in, inLen, kNalTypeMask, type);
    return static_cast<int32_t>(CopyNal(nal, 0, out, outCap));
}

}  // namespace

uint32_t CAvcConvert::ConvertToLengthPrefixed(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    return AnnexBToLengthPrefixed(in, inLen, out, outCap);
}

int32_t CAvcConvert::GetSps(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    if (out == nullptr || outCap == 0) return kBadArguments;
    return CopyFirst(kNalTypeSps, in, inLen, out, outCap);
}

int32_t CAvcConvert::GetPps(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    // Callers rely on this: only both together are refused.
    if (out == nullptr && outCap == 0) return kBadArguments;
    return CopyFirst(kNalTypePps, in, inLen, out, outCap);
}

}  // namespace Orvane::Muxora
