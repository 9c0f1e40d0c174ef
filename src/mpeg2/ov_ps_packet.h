#pragma once

#include "mpeg2/ps_packaging.h"

namespace Orvane::Muxora {

// The dialect with descriptors: each stream in a map is followed by 20 bytes that describe the picture or the sound and
// tell the wall clock. A map also comes with the first P frame of each second.
class COvPsPacket : public CPSPackaging {
  public:
    COvPsPacket();

    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    int64_t packagePFrame(const MXFrameInfo* frame, CGrowBuffer* out) override;
    int64_t packageVideo(const MXFrameInfo* frame, CGrowBuffer* out) override;
    int64_t packageAudio(const MXFrameInfo* frame, CGrowBuffer* out) override;
    int64_t writeStreamMap(const MXFrameInfo* frame, CGrowBuffer* out) override;

  private:
    struct VideoRecord {
        uint16_t codec_code = 0;
        uint16_t width = 0;
        uint16_t height = 0;
        uint16_t rate = 0;
        uint16_t rate_scale = 0;
        uint32_t date_word = 0;
    };
    struct AudioRecord {
        uint16_t codec_code = 0;
        uint32_t sample_rate = 0;
        uint16_t bits = 0;
        uint16_t channels = 0;
        uint32_t date_word = 0;
    };

    uint32_t DateWord(const MXFrameInfo& frame) const;

    VideoRecord video_;
    AudioRecord audio_;
    int64_t start_time_;    // seconds since 1970: when the object was made
    int64_t current_time_;  // seconds since 1970: the start time, moved on by video
    uint32_t date_word_sent_ = 0;
};

}  // namespace Orvane::Muxora
