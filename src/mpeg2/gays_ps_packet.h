#pragma once

#include "mpeg2/ps_packaging.h"

namespace Orvane::Muxora {

// The GAYS dialect: the base's stream with stream types of its own, and audio at 8000 Hz only.
class CGaysPsPacket : public CPSPackaging {
  public:
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    int64_t packageVideo(const MXFrameInfo* frame, CGrowBuffer* out) override;
    int64_t packageAudio(const MXFrameInfo* frame, CGrowBuffer* out) override;
};

}  // namespace Orvane::Muxora
