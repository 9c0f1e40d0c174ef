// The C interface of the access units.
#include <new>

#include "MuxoraExt.h"
#include "core/frame_kinds.h"
#include "units/access_units.h"
#include "units/audio_cutter.h"
#include "units/video_cutter.h"

using Orvane::Muxora::AccessUnits;
using Orvane::Muxora::AudioCutter;
using Orvane::Muxora::IUnitCutter;
using Orvane::Muxora::VideoCutter;

static_assert(sizeof(MXAccessUnit) == 72);

struct MXAccessUnitsObject : AccessUnits {
    using AccessUnits::AccessUnits;
};

namespace {

// Null for a codec that has no cutter.
std::unique_ptr<IUnitCutter> MakeCutter(uint32_t frame_type, uint32_t encode_type) {
    if (frame_type == MX_FRAME_VIDEO) {
        if (Orvane::Muxora::IsH264(encode_type) || encode_type == MX_VIDEO_H264_STREAM) {
            return std::make_unique<VideoCutter>(Orvane::Muxora::MakeAvcRules());
        }
        if (encode_type == MX_VIDEO_H265) return std::make_unique<VideoCutter>(Orvane::Muxora::MakeHevcRules());
    } else if (frame_type == MX_FRAME_AUDIO) {
        if (encode_type == MX_AUDIO_AAC) return std::make_unique<AudioCutter>(Orvane::Muxora::kAdtsFraming);
        if (encode_type == MX_AUDIO_MPEG) return std::make_unique<AudioCutter>(Orvane::Muxora::kMpegAudioFraming);
    }
    return nullptr;
}

template <typename Call>
uint32_t WithUnits(MXAccessUnits units, Call call) noexcept {
    if (units == nullptr) return MX_NULL_HANDLE;
    try {
        return call(*units);
    } catch (...) {
        return MX_NO_RESOURCES;
    }
}

}  // namespace

extern "C" {

MXAccessUnits MX_CreateAccessUnits(uint32_t frame_type, uint32_t encode_type, uint32_t flags) noexcept {
    try {
        std::unique_ptr<IUnitCutter> cutter = MakeCutter(frame_type, encode_type);
        if (cutter == nullptr) return nullptr;
        const bool long_start_codes = (flags & MX_UNITS_LONG_START_CODES) != 0;
        return std::make_unique<MXAccessUnitsObject>(frame_type, encode_type, long_start_codes, std::move(cutter))
            .release();
    } catch (...) {
        return nullptr;
    }
}

uint32_t MX_DestroyAccessUnits(MXAccessUnits units) noexcept {
    if (units == nullptr) return MX_NULL_HANDLE;
    const std::unique_ptr<MXAccessUnitsObject> owner(units);
    return MX_OK;
}

uint32_t MX_PutBytes(MXAccessUnits units, const void* data, uint32_t length) noexcept {
    return WithUnits(units, [=](AccessUnits& object) { return object.PutBytes(data, length); });
}

uint32_t MX_PutNal(MXAccessUnits units, const void* nal, uint32_t length) noexcept {
    return WithUnits(units, [=](AccessUnits& object) { return object.PutNal(nal, length); });
}

uint32_t MX_EndAccessUnits(MXAccessUnits units) noexcept {
    return WithUnits(units, [](AccessUnits& object) { return object.End(); });
}

uint32_t MX_GetAccessUnit(MXAccessUnits units, MXAccessUnit* unit) noexcept {
    return WithUnits(units, [=](AccessUnits& object) -> uint32_t {
        if (unit == nullptr || unit->size < sizeof(MXAccessUnit)) return MX_FAILED;
        return object.Get(*unit);
    });
}

}  // extern "C"
