// What a unit of OVX says of the frame in it, in the library's numbers.
#pragma once

#include <cstdint>
#include <optional>

#include "ovx_reader/reader.h"

namespace Orvane::Muxora::Tools {

// Of a picture from which a player can start; the others go on with it.
struct OvxPicture {
    uint32_t codec = 0;      // MXVideoCodec; 0: one that no format takes
    uint8_t codec_byte = 0;  // as the unit has it
    uint32_t frame_rate = 0;
    uint32_t width = 0;
    uint32_t height = 0;
};
// Nothing where the unit does not say.
std::optional<OvxPicture> PictureOf(const OvxReader::Piece& unit);

struct OvxSound {
    uint32_t codec = 0;      // MXAudioCodec; 0: one that no format takes
    uint8_t codec_byte = 0;  // as the unit has it
    uint32_t channels = 1;
    uint32_t bits_per_sample = 16;
    uint32_t samples_per_sec = 0;  // 0: one that the list of the format lacks
};
OvxSound SoundOf(const OvxReader::Piece& unit);

// MXFrameSubType of a unit of video.
uint32_t SubTypeOf(const OvxReader::Piece& unit);

}  // namespace Orvane::Muxora::Tools
