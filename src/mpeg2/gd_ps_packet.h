#pragma once

#include "mpeg2/ps_packaging.h"

namespace Orvane::Muxora {

// The GD dialect: a fixed map, no system header, packets padded to a multiple of 4 bytes, four-byte start codes only,
// and clocks that step evenly whatever the frames' timestamps say.
class CGDPsPacket : public CPSPackaging {
  public:
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    int64_t packageVideo(const MXFrameInfo* frame, CGrowBuffer* out) override;
    int64_t packageAudio(const MXFrameInfo* frame, CGrowBuffer* out) override;
    int64_t writePackHeader(const MXFrameInfo* frame, CGrowBuffer* out, bool stuffing) override;
    int64_t writeStreamMap(const MXFrameInfo* frame, CGrowBuffer* out) override;
    int64_t writeSystemHeader(const MXFrameInfo* frame, CGrowBuffer* out) override;
    int64_t writeVideoPes(const uint8_t* data, uint32_t length, CGrowBuffer* out, bool first) override;
    uint32_t videoPesHeaderSize(uint32_t length, bool first) const override;
    int64_t writeAudioPes(const uint8_t* data, uint32_t length, CGrowBuffer* out) override;
    int64_t writeVideoFrame(const MXFrameInfo* frame, CGrowBuffer* out) override;
    void computeVideoPts(const MXFrameInfo* frame) override;
    void computeAudioPts(const MXFrameInfo* frame) override;
};

}  // namespace Orvane::Muxora
