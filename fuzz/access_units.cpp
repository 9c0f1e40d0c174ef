// Access units of any bytes in any pieces, or as NAL units. The first byte says which stream and which flags, the
// second how the rest is cut. A stream comes to the same units as one piece and in many.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "MuxoraExt.h"

namespace {

struct Stream {
    uint32_t frame_type;
    uint32_t encode_type;
};
constexpr Stream kStreams[] = {{MX_FRAME_VIDEO, MX_VIDEO_H264},
                               {MX_FRAME_VIDEO, MX_VIDEO_H265},
                               {MX_FRAME_AUDIO, MX_AUDIO_AAC},
                               {MX_FRAME_AUDIO, MX_AUDIO_MPEG}};

using Units = std::vector<std::string>;

void Drain(MXAccessUnits handle, Units& units) {
    MXAccessUnit unit{};
    unit.size = sizeof unit;
    while (MX_GetAccessUnit(handle, &unit) == MX_OK) {
        if (unit.length == 0) std::abort();
        units.emplace_back(static_cast<const char*>(unit.data), unit.length);
        units.back() += static_cast<char>('0' + unit.key_frame + 2 * unit.picture_kind + 8 * unit.field);
    }
}

// Pieces of `step` bytes, each in a block of its own.
Units Cut(const Stream& stream, uint32_t flags, const uint8_t* data, size_t size, size_t step) {
    const std::unique_ptr<MXAccessUnitsObject, uint32_t (*)(MXAccessUnits)> handle(
        MX_CreateAccessUnits(stream.frame_type, stream.encode_type, flags), MX_DestroyAccessUnits);
    Units units;
    for (size_t at = 0; at < size; at += step) {
        const std::vector<uint8_t> piece(data + at, data + at + std::min(step, size - at));
        if (MX_PutBytes(handle.get(), piece.data(), static_cast<uint32_t>(piece.size())) != MX_OK) std::abort();
        Drain(handle.get(), units);
    }
    MX_EndAccessUnits(handle.get());
    Drain(handle.get(), units);
    return units;
}

void GiveNals(const Stream& stream, const uint8_t* data, size_t size, size_t step) {
    const std::unique_ptr<MXAccessUnitsObject, uint32_t (*)(MXAccessUnits)> handle(
        MX_CreateAccessUnits(stream.frame_type, stream.encode_type, 0), MX_DestroyAccessUnits);
    Units units;
    for (size_t at = 0; at < size; at += step) {
        MX_PutNal(handle.get(), data + at, static_cast<uint32_t>(std::min(step, size - at)));
        if (at % 3 == 0) Drain(handle.get(), units);
        if (at % 7 == 0) MX_EndAccessUnits(handle.get());
    }
    Drain(handle.get(), units);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const Stream& stream = kStreams[data[0] % std::size(kStreams)];
    const uint32_t flags = data[0] >> 7;
    const size_t step = data[1] % 64 + size_t{1};
    const bool nals = data[1] >= 192;
    data += 2;
    size -= 2;
    if (nals) {
        GiveNals(stream, data, size, step);
    } else if (Cut(stream, flags, data, size, size + 1) != Cut(stream, flags, data, size, step)) {
        std::abort();
    }
    return 0;
}
