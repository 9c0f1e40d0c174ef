#pragma once

#include <cstdint>
#include <optional>

#include "MuxoraAPI.h"
#include "codec/audio_header.h"

namespace Orvane::Muxora {

// How much sound a frame holds.
struct AudioMeasure {
    uint32_t samples = 0;      // a channel; 0: not known
    uint32_t sample_rate = 0;  // from the frame's own header where it has one; never 0 once measured
    uint32_t channels = 0;     // likewise
    // AAC in ADTS: the header of the first frame, all of which is there.
    std::optional<AdtsHeader> adts = std::nullopt;
};

// AAC and MPEG audio are asked themselves, all frames of the input one behind the other; PCM and G.711 are counted.
// Safe on any bytes.
AudioMeasure MeasureAudio(const MXFrameInfo& frame);

}  // namespace Orvane::Muxora
