#pragma once

#include <cstdint>

#include "MuxoraAPI.h"
#include "mpeg2/stream_types.h"
#include "mpeg2/ts_tables.h"

namespace Orvane::Muxora {

// The transport stream (ISO/IEC 13818-1 2.4) of one program with at most one video and one audio stream: each frame is
// one PES packet, cut into transport packets straight from the frame. I frames and every tenth audio frame bring the
// tables.
//
// The writing operations fill `out`, at most `size` bytes of it, and return the number of bytes written, or kNotPacked.
// Clocks and counters have moved by then even if the frame comes to nothing.
class CTSPackageBase {
  public:
    // A PES packet in two pieces: the header with what goes in front of the frame, and the frame.
    struct Pes {
        const uint8_t* head;
        uint32_t head_size;
        const uint8_t* frame;
        uint32_t frame_size;
    };

    CTSPackageBase() = default;
    virtual ~CTSPackageBase() = default;
    CTSPackageBase(const CTSPackageBase&) = delete;
    CTSPackageBase& operator=(const CTSPackageBase&) = delete;

    virtual int64_t package(uint8_t* out, uint32_t size, const MXFrameInfo* frame);
    // What is known of the streams ahead of the first frame; null changes nothing. Always true.
    virtual bool setHeader(const MXHeaderInfo* info);
    virtual bool checkFrame(const MXFrameInfo* frame) const = 0;
    virtual uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const = 0;
    virtual uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const = 0;
    virtual int64_t packageVideo(uint8_t* out, uint32_t size, const MXFrameInfo* frame);
    virtual int64_t packageAudio(uint8_t* out, uint32_t size, const MXFrameInfo* frame);
    virtual int64_t packageIFrame(uint8_t* out, uint32_t size, const MXFrameInfo* frame);
    virtual int64_t packagePFrame(uint8_t* out, uint32_t size, const MXFrameInfo* frame);
    virtual int64_t writePat(uint8_t* out, uint32_t size);
    virtual int64_t writePmt(uint8_t* out, uint32_t size);
    // The packets that fit are written even if there is no room for all.
    virtual int64_t writeTsPackets(uint8_t* out, uint32_t size, const Pes& pes, bool video);
    virtual int64_t writeVideoPes(uint8_t* out, uint32_t size, const MXFrameInfo* frame);
    virtual int64_t writeAudioPes(uint8_t* out, uint32_t size, const MXFrameInfo* frame);
    // Takes over the frame's codec: 0, or kNotPacked if it has no stream type.
    virtual int64_t updateStreamType(const MXFrameInfo* frame);
    virtual void updateVideoInfo(const MXFrameInfo* frame);
    virtual void updateAudioInfo(const MXFrameInfo* frame);
    virtual void computeVideoPts(const MXFrameInfo* frame);
    virtual void computeAudioPts(const MXFrameInfo* frame);
    virtual StreamType videoStreamType(uint32_t encode_type) const;
    virtual StreamType audioStreamType(uint32_t encode_type) const;
    // The frame's time in milliseconds, repaired when it lies before the last one of its kind.
    virtual uint32_t fixTimestamp(const MXFrameInfo* frame) const;

  private:
    // How an audio clock comes back after a break: a marked audio frame, the next I frame, the next audio frame.
    enum class AudioBreak : uint8_t { kNone, kMarked, kResync };

    struct OtherStream {
        uint32_t count;
        uint32_t pts;
        uint32_t last_ts;
    };
    int64_t WriteTables(uint8_t* out, uint32_t size);
    uint32_t FirstPts(uint32_t timestamp, const OtherStream& other);
    uint32_t StepBySequence();

    // 90 kHz.
    uint32_t pcr_ = 0;
    uint32_t video_pts_ = 0;
    uint32_t video_dts_ = 0;
    uint32_t audio_pts_ = 0;

    uint8_t video_continuity_ = 0;
    uint8_t audio_continuity_ = 0;
    uint8_t pat_continuity_ = 0;
    uint8_t pmt_continuity_ = 0;
    uint8_t pmt_version_ = 0;

    uint32_t frame_rate_ = 0;
    StreamType video_stream_type_ = kStreamNone;
    StreamType audio_stream_type_ = kStreamNone;
    StreamType mapped_video_type_ = kStreamNone;  // as the last PMT had them
    StreamType mapped_audio_type_ = kStreamNone;
    // Composed when they change.
    const TsTable pat_ = MakePat();
    TsTable pmt_ = MakePmt(kStreamNone, kStreamNone, 0);

    uint32_t video_count_ = 0;  // frames that were packed
    uint32_t audio_count_ = 0;
    uint32_t audio_duration_ = 0;  // of the last audio frame, 90 kHz
    bool got_i_frame_ = false;
    uint32_t previous_sequence_ = 0;  // sequence numbers of the last two video frames
    uint32_t last_sequence_ = 0;
    uint32_t base_ms_ = 0;        // the start time, later the time of the last PTS
    bool base_given_ = false;     // the caller gave a start time that no frame has used yet
    uint32_t last_video_ts_ = 0;  // milliseconds
    uint32_t last_audio_ts_ = 0;
    AudioBreak audio_break_ = AudioBreak::kNone;
    float pts_residual_ = 0;  // the fraction of a tick that is carried over
};

}  // namespace Orvane::Muxora
