#pragma once

#include <optional>

#include "containers/avi_writer.h"
#include "core/package.h"

namespace Orvane::Muxora {

// AVI: one video and one audio stream, a chunk a frame. The header list is completed at the end. A file that passes
// 1 GiB goes on in OpenDML form.
class CAviPacket : public CPackage {
  public:
    explicit CAviPacket(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t init() override { return MX_OK; }
    uint32_t uninit() override { return MX_OK; }
    // The streams that `info` announces are open from the start; null announces none.
    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) override;
    uint32_t createTailer(const void* info, uint32_t unused) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

  private:
    AviOutput Output();
    uint32_t InputFirstRiff(const MXFrameInfo& frame, const AviChunk& chunk);
    uint32_t InputAvix(const MXFrameInfo& frame, const AviChunk& chunk);
    bool StreamOpen(const MXFrameInfo& frame);
    void OpenAudio(const MXFrameInfo& frame);
    void Count(const MXFrameInfo& frame, const AviChunk& chunk);
    void EndRiff(const AviRiff& riff);
    void BeginAvix();

    AviWork work_;
    AviHeaderBlock header_;
    AviRiffWriter riff_;
    std::optional<AvixWriter> avix_;  // the RIFF that goes on past the first
    uint64_t next_riff_ = 0;          // position
    bool past_first_ = false;
    bool started_ = false;
};

}  // namespace Orvane::Muxora
