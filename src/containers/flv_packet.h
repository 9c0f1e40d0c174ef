#pragma once

#include <optional>

#include "containers/flv_metadata.h"
#include "core/package.h"

namespace Orvane::Muxora {

// FLV version 1: H.264 with AAC or PCM. The file form goes back at its end to complete its head, the stream form never
// does. Everything ahead of the first key frame is dropped; that frame brings the head with it. Times are counted, not
// taken from the frames.
class CFlvPacket : public CPackage {
  public:
    explicit CFlvPacket(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t init() override { return MX_OK; }
    uint32_t uninit() override { return MX_OK; }
    uint32_t createHeader(MXHeaderInfo* /*info*/, uint32_t /*unused*/) override { return MX_OK; }
    uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) override;
    uint32_t createTailer(const void* info, uint32_t unused) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

  private:
    uint32_t InputVideo(const MXFrameInfo& frame);
    uint32_t InputAudio(const MXFrameInfo& frame);

    std::optional<uint32_t> ConvertFrame(const MXFrameInfo& frame, uint32_t at);
    uint32_t VideoTime() const;
    uint8_t TypeFlags() const;
    void EmitWork(uint32_t length);

    LargeBuffer work_;       // every tag is composed here
    uint64_t position_ = 0;  // where the next tag goes
    FlvMetadata metadata_;
    bool video_seen_ = false;
    bool audio_seen_ = false;
    uint32_t video_frames_ = 0;
    uint32_t audio_time_ = 0;   // ms
    uint32_t audio_bytes_ = 0;  // since the last video frame
    uint32_t audio_frames_ = 0;
    uint32_t channel_ = 0;  // the one that the first audio frame came on
};

}  // namespace Orvane::Muxora
