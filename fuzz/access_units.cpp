// Access units of any bytes in any pieces, or as NAL units. The first byte says which stream and which flags, the
// second how the rest is cut. A stream comes to the same units as one piece and in many; where memory runs out, the
// call says so, and the object stays sound.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "MuxoraExt.h"
#include "support/allocation_counter.h"

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

// As Cut; an allocation now and then fails.
void CutWithoutMemory(const Stream& stream, uint32_t flags, const uint8_t* data, size_t size, size_t step) {
    const std::unique_ptr<MXAccessUnitsObject, uint32_t (*)(MXAccessUnits)> handle(
        MX_CreateAccessUnits(stream.frame_type, stream.encode_type, flags), MX_DestroyAccessUnits);
    MXAccessUnit unit{};
    unit.size = sizeof unit;
    for (size_t at = 0; at < size; at += step) {
        const size_t length = std::min(step, size - at);
        const std::vector<uint8_t> piece(data + at, data + at + length);
        const auto drain = [&] {
            while (MX_GetAccessUnit(handle.get(), &unit) == MX_OK) {
                if (unit.length == 0) std::abort();
            }
        };
        {
            const test::FailingAllocations failing(piece[0] % 4, 1 + piece[0] % 3);
            const uint32_t put = MX_PutBytes(handle.get(), piece.data(), static_cast<uint32_t>(length));
            if (put != MX_OK && put != MX_NO_RESOURCES) std::abort();
            drain();
        }
        drain();
        if (piece[0] == 0) MX_EndAccessUnits(handle.get());
    }
}

// NAL units of `step` bytes; what a caller may get wrong is refused.
void GiveNals(const Stream& stream, const uint8_t* data, size_t size, size_t step) {
    const std::unique_ptr<MXAccessUnitsObject, uint32_t (*)(MXAccessUnits)> handle(
        MX_CreateAccessUnits(stream.frame_type, stream.encode_type, 0), MX_DestroyAccessUnits);
    Units units;
    MXAccessUnit unit{};
    for (size_t at = 0; at < size; at += step) {
        const auto length = static_cast<uint32_t>(std::min(step, size - at));
        switch (data[at]) {
            case 0xF0:
                if (MX_PutNal(handle.get(), nullptr, length) == MX_OK) std::abort();
                break;
            case 0xF1:
                if (MX_PutNal(handle.get(), data + at, 0) == MX_OK) std::abort();
                break;
            case 0xF2:
                if (MX_PutBytes(handle.get(), nullptr, length) == MX_OK) std::abort();
                break;
            case 0xF3:
                // A stream in pieces and as units is not to be mixed; either answer leaves the object sound.
                MX_PutBytes(handle.get(), data + at, length);
                break;
            case 0xF4:
                if (MX_GetAccessUnit(handle.get(), nullptr) != MX_FAILED) std::abort();
                if (unit.size = 4; MX_GetAccessUnit(handle.get(), &unit) != MX_FAILED) std::abort();
                if (MX_PutNal(nullptr, data + at, length) != MX_NULL_HANDLE) std::abort();
                if (MX_DestroyAccessUnits(nullptr) != MX_NULL_HANDLE) std::abort();
                break;
            case 0xF5: {
                const test::FailingAllocations failing(data[at + length - 1] % 3, 2);
                const uint32_t put = MX_PutNal(handle.get(), data + at, length);
                if (put != MX_OK && put != MX_FAILED && put != MX_NO_RESOURCES) std::abort();
                break;
            }
            default:
                MX_PutNal(handle.get(), data + at, length);
        }
        if (at % 3 == 0) Drain(handle.get(), units);
        if (at % 7 == 0) MX_EndAccessUnits(handle.get());
    }
    Drain(handle.get(), units);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    if (data[0] == 0xFF) {
        // No cutter, or one of these.
        MX_DestroyAccessUnits(MX_CreateAccessUnits(data[1] % 4, size > 2 ? data[2] : 0, 0));
        return 0;
    }
    const Stream& stream = kStreams[data[0] % std::size(kStreams)];
    const uint32_t flags = data[0] >> 7;
    const size_t step = data[1] % 64 + size_t{1};
    const bool nals = data[1] >= 192;
    const bool no_memory = (data[0] & 0x40) != 0;
    data += 2;
    size -= 2;
    if (nals) {
        GiveNals(stream, data, size, step);
    } else if (no_memory) {
        CutWithoutMemory(stream, flags, data, size, step);
    } else if (Cut(stream, flags, data, size, size + 1) != Cut(stream, flags, data, size, step)) {
        std::abort();
    }
    return 0;
}
