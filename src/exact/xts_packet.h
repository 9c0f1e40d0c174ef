#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "exact/exact_package.h"
#include "exact/ts_multiplex.h"
#include "exact/video_config.h"

namespace Orvane::Muxora {

// MPEG-2 transport stream with PTS and DTS (ISO/IEC 13818-1): each frame is one PES packet and one block of output.
//
// H.264 and H.265 pictures get an access unit delimiter where they have none, and key frames the parameter sets (MPEG-4
// part 2: the headers) that they lack. Pictures ahead of the first key frame are refused. A frame without a picture
// makes no output; what it says of the parameters comes with the next key frame.
class CXtsPacket : public CExactPackage {
  public:
    explicit CXtsPacket(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

  private:
    uint32_t PackVideo(const MXFrameInfo& frame) override;
    uint32_t PackAudio(const MXFrameInfo& frame, const AudioMeasure& measure) override;
    void Forget(bool picture) override;
    uint32_t Finish() override { return MX_OK; }

    std::optional<std::span<const uint8_t>> ComposeVideo(const MXFrameInfo& frame, bool key);
    void SetStreams(uint8_t video, uint8_t audio);
    void Emit(const CTsMultiplex::Unit& unit, uint32_t flags, const FrameTime& time);

    CTsMultiplex multiplex_;
    bool begun_ = false;  // the first key frame was there
    CVideoConfig config_;
    std::vector<uint8_t> head_;  // what goes in front of the frame's bytes
};

}  // namespace Orvane::Muxora
