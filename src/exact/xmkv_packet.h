#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "core/grow_buffer.h"
#include "exact/exact_package.h"
#include "exact/mkv_head.h"
#include "exact/video_config.h"

namespace Orvane::Muxora {

// Matroska with absolute times (RFC 9559) in ticks of 200 us, one block of output a frame: whole milliseconds
// keep their value, no two frames of any rate fall together, and the 16 bits of a block's time hold a cluster of five
// seconds with room for reordering. Clusters begin at key frames; one that has come to five seconds ends ahead of the
// next frame.
//
// The tracks stand in the head, so frames wait until both streams have shown what they are: until then nothing goes
// out. A stream that has not come after a second of media (MXHeaderInfo tells which ones will) has no track, and its
// frames are refused from then on.
//
// All sizes are unknown at first. As positions are known, clusters and the head are completed in place by blocks of the
// kind MX_BLOCK_PATCH; a sink that cannot go back leaves them out and has a stream that is whole. Without createHeader
// there are no patches and no tail, and the head comes in one block with the frame that completes it.
//
// H.264 and H.265 frames keep the parameter sets that they bring. Once these have changed, every key frame has them, as
// the track can state only the first ones.
class CXmkvPacket : public CExactPackage {
  public:
    explicit CXmkvPacket(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

  private:
    // A frame as a block will hold it; its bytes stand in front_ or are still the caller's.
    struct Block {
        uint8_t track = MkvHead::kVideoTrack;
        bool key = true;
        FrameTime time;
    };
    struct Waiting {
        Block block;
        uint32_t offset;
        uint32_t size;
    };
    struct Cue {
        int64_t time;
        uint64_t cluster;
        uint32_t offset;
    };
    struct Cluster {
        bool open = false;
        int64_t time = 0;
        uint64_t position = 0;
        int64_t begun = 0;  // decoding time of its first frame
        uint64_t data = 0;  // bytes behind its size
    };
    // A stream on its way into the file.
    struct Stream {
        std::optional<MkvTrack> track;
        uint32_t codec = 0;
        int64_t delay = 0;  // ticks of CodecDelay
        int64_t last = 0;   // presentation of the frame before
        int64_t next = 0;   // decoding time of the frame to come
    };

    uint32_t PackVideo(const MXFrameInfo& frame) override;
    uint32_t PackAudio(const MXFrameInfo& frame, const AudioMeasure& measure) override;
    void Forget(bool picture) override;
    uint32_t Finish() override;

    void Begin();
    void OpenVideo(const MXFrameInfo& frame, const FrameTime& time);
    void OpenAudio(const MXFrameInfo& frame, const AudioMeasure& measure, const FrameTime& time);
    bool IsReady(int64_t now) const;
    bool ReserveStart();
    void Start();
    uint32_t BlockRoom(uint32_t bound) const;
    void ReserveCues(size_t count);
    template <typename Fill>
    uint32_t Put(const Block& block, uint32_t bound, Fill fill);
    template <typename Fill>
    void PutInCluster(const Block& block, uint32_t bound, Fill fill);
    bool NeedsCluster(const Block& block, int64_t time) const;
    int64_t ClusterTime(const Block& block, int64_t time) const;
    void EndCluster();
    void EmitCues();
    bool IsPlain(const Block& block) const;
    Stream& StreamOf(uint8_t track) { return track == MkvHead::kVideoTrack ? video_ : audio_; }
    const Stream& StreamOf(uint8_t track) const { return track == MkvHead::kVideoTrack ? video_ : audio_; }
    // What is in the work buffer.
    void Emit(const BlockNote& note);

    CGrowBuffer work_;   // of the frame that goes out
    CGrowBuffer front_;  // the frames that wait for the head
    std::vector<Waiting> waiting_;
    uint64_t position_ = 0;
    bool with_head_ = false;  // createHeader was called
    bool expects_video_ = true;
    bool expects_audio_ = true;
    bool started_ = false;  // the head is out
    std::optional<int64_t> first_time_;
    Stream video_;
    Stream audio_;
    CVideoConfig config_;
    bool sets_in_band_ = false;  // the parameter sets are no longer those of the head
    Cluster cluster_;
    std::vector<Cue> cues_;
    int64_t end_ = 0;                    // of the presentation, ticks
    std::vector<uint8_t> start_head_;    // for Start
    std::optional<MkvClosing> closing_;  // the cues are out

    // How things were before the frame at hand; what Forget goes back to.
    struct Before {
        Stream* opened = nullptr;  // by the frame
        std::optional<int64_t> first_time;
        size_t waiting = 0;
        uint32_t front = 0;
    };
    Before before_;
};

}  // namespace Orvane::Muxora
