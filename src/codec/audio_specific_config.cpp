#include "codec/audio_specific_config.h"

namespace Orvane::Muxora {

uint16_t AudioSpecificConfigFromAdts(const uint8_t* adts) {
    const uint32_t profile = adts[2] >> 6;
    const uint32_t frequency_index = (adts[2] >> 2) & 15u;
    const uint32_t channels = (adts[2] & 1u) << 2 | adts[3] >> 6;
    return static_cast<uint16_t>(profile << 11 | frequency_index << 7 | channels << 3);
}

}  // namespace Orvane::Muxora
