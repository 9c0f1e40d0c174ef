#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "core/grow_buffer.h"
#include "exact/exact_package.h"
#include "exact/flv_head.h"
#include "exact/video_config.h"

namespace Orvane::Muxora {

// FLV with the frames' own times in milliseconds (Video File Format, version 10; H.265 as Enhanced RTMP has it): each
// frame is one tag, or one for each of its ADTS frames, and one block of output. Sequence headers go ahead of the first
// frame of a stream and again whenever they change.
//
// The blocks have positions, and the tailer completes the head in place with the duration, the size and the places of
// the key frames. That is a block of the kind MX_BLOCK_PATCH; a sink that cannot go back leaves it out and has a stream
// that is whole. MXHeaderInfo::reserved_gap is the room for the index in bytes: 0 stands for kDefaultGap, less than one
// entry for no index. Without createHeader the head has no index, comes in one block with the first frame, and nothing
// is completed.
//
// Pictures ahead of the first key frame are refused, and so are rates that FLV cannot name.
class CXflvPacket : public CExactPackage {
  public:
    static constexpr uint32_t kDefaultGap = 8192;

    explicit CXflvPacket(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

  private:
    // What has to be known of a stream for the head.
    struct Tally {
        uint64_t frames = 0;
        uint64_t bytes = 0;
        int64_t begin = 0;  // ms
        int64_t end = 0;
        int64_t last = 0;  // decoding time of the frame before
        // A frame without a duration lasts as long as the one before.
        void Count(uint64_t size, const FrameTime& time);
        double Kilobits() const;
    };

    uint32_t PackVideo(const MXFrameInfo& frame) override;
    uint32_t PackAudio(const MXFrameInfo& frame, const AudioMeasure& measure) override;
    void Forget(bool picture) override;
    uint32_t Finish() override;

    // These write where there is room: HeadSize and the sizes below say how much they need.
    uint32_t HeadSize();
    void PutHead();
    void PutVideoConfig(uint32_t time, uint32_t size);
    void PutAudioConfig(uint32_t time);
    void PutPicture(const MXFrameInfo& frame, uint32_t skipped, bool key, const FrameTime& time);
    void PutSound(std::span<const uint8_t> bytes, int64_t time);
    void PutAdtsFrames(const AdtsHeader& first, std::span<const uint8_t> bytes, int64_t time);
    static std::optional<uint8_t> SoundByte(const MXFrameInfo& frame);
    void AddToIndex(const FrameTime& time);
    void EndHeader(int64_t time);
    void Emit(uint32_t kind, uint32_t flags, const FrameTime& time);

    CGrowBuffer work_;
    uint64_t position_ = 0;
    bool with_head_ = false;  // createHeader was called
    bool announced_ = false;  // ... and said which streams there are
    bool announced_video_ = false;
    bool announced_audio_ = false;
    bool head_written_ = false;
    std::optional<CFlvIndex> index_;
    FlvHead head_;

    CVideoConfig video_;
    bool video_begun_ = false;
    bool hevc_ = false;
    Tally video_tally_;

    bool audio_begun_ = false;
    uint8_t sound_ = 0;
    uint16_t aac_config_ = 0;
    Tally audio_tally_;
};

}  // namespace Orvane::Muxora
