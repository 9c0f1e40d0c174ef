// Frames of AAC in ADTS framing and of MPEG audio.
#pragma once

#include <memory>

#include "units/unit_cutter.h"

namespace Orvane::Muxora {

// What a header tells of its frame; size 0 says that there is no header.
struct AudioFrameHeader {
    size_t size = 0;      // of the frame, header included
    uint32_t stream = 0;  // the same in all headers of a stream
    UnitInfo info;
};

// One framing: how long its headers are, and what they say.
struct AudioFraming {
    size_t header_size;
    // `header` has header_size bytes.
    AudioFrameHeader (*read)(const uint8_t* header);
};

extern const AudioFraming kAdtsFraming;
extern const AudioFraming kMpegAudioFraming;

// A frame counts when another of the same stream, or the end, stands behind it, or one stood before it. Between frames
// whatever is there is passed over.
class AudioCutter : public IUnitCutter {
  public:
    explicit AudioCutter(const AudioFraming& framing) : framing_(framing) {}

    std::optional<UnitCut> Next(std::span<const uint8_t> bytes, BytesEnd end) override;
    void Restart() override;
    const UnitInfo& Info() const override { return info_; }

  private:
    std::optional<AudioFrameHeader> HeaderAt(std::span<const uint8_t> bytes, size_t at) const;

    const AudioFraming& framing_;
    UnitInfo info_;
    uint32_t stream_ = 0;
    bool in_step_ = false;  // the bytes begin where a frame ended
};

}  // namespace Orvane::Muxora
