#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "codec/ebml.h"
#include "core/mutex.h"
#include "core/package.h"
#include "mkv/avc_record.h"
#include "mkv/elements.h"

namespace Orvane::Muxora {

// Matroska with one video track (H.264, MPEG-4 part 2) and at most one audio track (AAC), in a shape that is fixed
// beforehand: head, SeekHead, Info, room for Tracks, one Cluster for each second of video, Cues. Times come from the
// frame rate and from counters, never from the frames. What is known late is patched, so the sink must be able to seek.
class CMkvPacket : public CPackage {
  public:
    explicit CMkvPacket(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t init() override;
    uint32_t uninit() override { return MX_OK; }
    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) override;
    uint32_t createTailer(const void* info, uint32_t unused) override;
    uint32_t getBackup(MXOutputBlock* block) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

  private:
    static constexpr uint32_t kMaxCues = 102400;

    struct Elements {
        CClusters clusters;
        CMetaseekBox seek_head;
        CSegInfo info;
        CTracks video;
        CTracks audio;
        CTracks tracks;  // writes the ID only
    };

    // The cluster that blocks go into. Of those before it nothing but the sum of their sizes is needed.
    struct Cluster {
        bool begun = false;          // it is in the file; before the first one, blocks stand alone
        uint32_t position = 0;       // of its ID in the file; wraps at 4 GiB
        uint32_t size_position = 0;  // of its size; wraps as well
        uint16_t timecode = 0;       // ms; wraps
        uint64_t data = 0;           // bytes of its blocks
        uint64_t total = 0;          // bytes of the whole, 0 before the first block
    };

    struct Cue {
        uint32_t cluster_position;
        uint32_t time;  // ms
        uint16_t relative_position;
    };

    uint32_t InputVideo(MXFrameInfo& frame);
    uint32_t InputAudio(const MXFrameInfo& frame);
    bool OpenVideoTrack(const MXFrameInfo& frame, std::span<const uint8_t> mpeg4_header);
    bool OpenAudioTrack(const MXFrameInfo& frame);
    void StartCluster();
    void AddCue(uint32_t relative_time);
    static bool Fits(uint32_t kind, uint32_t data_length);
    void WriteBlock(uint8_t track, const MkvBlock& block);
    void WriteTrackEntries();
    std::vector<uint8_t> ComposeCues() const;
    // At the write position, which moves on.
    void Emit(const void* data, uint32_t length);
    void EmitId(ElementId id);
    void EmitSize8(uint64_t size, uint64_t position);

    CMXMutex mutex_;
    LargeBuffer work_;  // holds the last block, which may have to go out again
    std::optional<Elements> elements_;
    uint64_t position_ = 0;  // the write position
    uint32_t segment_size_position_ = 0;
    uint32_t segment_position_ = 0;  // of the Segment's data
    uint32_t info_position_ = 0;
    uint32_t tracks_position_ = 0;
    uint32_t first_cluster_position_ = 0;

    CAvcRecord avc_;
    bool has_video_ = false;
    bool has_audio_ = false;
    uint32_t video_codec_ = 0;
    uint32_t audio_codec_ = 0;
    uint64_t video_entry_size_ = 0;
    uint64_t video_frames_ = 0;
    uint64_t audio_frames_ = 0;
    uint64_t last_key_time_ = 0;  // ms

    Cluster cluster_;
    uint32_t cluster_index_ = 0;
    uint64_t finished_clusters_ = 0;  // bytes of the clusters before
    uint32_t cue_count_ = 0;
    std::array<Cue, kMaxCues> cues_;  // in the object, so that a recording of any length allocates nothing
};

}  // namespace Orvane::Muxora
