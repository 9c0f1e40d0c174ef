#pragma once

#include <cstdint>

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

// How much sound a frame holds.
struct AudioMeasure {
    uint32_t samples = 0;      // a channel; 0: not known
    uint32_t sample_rate = 0;  // from the frame's own header where it has one; never 0 once measured
    uint32_t channels = 0;     // likewise
};

// AAC and MPEG audio are asked themselves, all frames of the input one behind the other; PCM and G.711 are counted.
// Safe on any bytes.
AudioMeasure MeasureAudio(const MXFrameInfo& frame);

// samplingFrequencyIndex of a rate (ISO/IEC 14496-3 1.6.3.4); 15 if it has none.
uint8_t SamplingFrequencyIndex(uint32_t sample_rate);

}  // namespace Orvane::Muxora
