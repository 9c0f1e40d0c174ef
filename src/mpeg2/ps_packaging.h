#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>

#include "MuxoraAPI.h"
#include "core/byte_writer.h"
#include "core/grow_buffer.h"
#include "mpeg2/stream_types.h"

namespace Orvane::Muxora {

// The program stream (ISO/IEC 13818-1 2.5) that the four dialects share: each frame becomes a pack of its own, an I
// frame with a system header and a program stream map in front of its PES packets. A dialect states its stream types
// and replaces what it writes or times differently.
//
// The writing operations add to `out` and return the number of bytes written, or kNotPacked. The clocks have moved by
// then even if the frame comes to nothing.
class CPSPackaging {
  public:
    CPSPackaging() = default;
    virtual ~CPSPackaging() = default;
    CPSPackaging(const CPSPackaging&) = delete;
    CPSPackaging& operator=(const CPSPackaging&) = delete;

    // One frame. 0: video that is held back, because no I frame was seen yet.
    virtual int64_t package(const MXFrameInfo* frame, CGrowBuffer* out);
    virtual bool checkFrame(const MXFrameInfo* frame) const = 0;
    virtual uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const = 0;
    virtual uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const = 0;
    virtual int64_t packageIFrame(const MXFrameInfo* frame, CGrowBuffer* out);
    virtual int64_t packagePFrame(const MXFrameInfo* frame, CGrowBuffer* out);
    virtual int64_t packageVideo(const MXFrameInfo* frame, CGrowBuffer* out);
    virtual int64_t packageAudio(const MXFrameInfo* frame, CGrowBuffer* out);
    virtual int64_t writePackHeader(const MXFrameInfo* frame, CGrowBuffer* out, bool stuffing);
    virtual int64_t writeStreamMap(const MXFrameInfo* frame, CGrowBuffer* out);
    virtual int64_t writeSystemHeader(const MXFrameInfo* frame, CGrowBuffer* out);
    // `data` may be the bytes' place in `out` itself, behind a header of videoPesHeaderSize and ahead of being counted.
    virtual int64_t writeVideoPes(const uint8_t* data, uint32_t length, CGrowBuffer* out, bool first);
    // The size of the header that writeVideoPes puts in front of that many bytes.
    virtual uint32_t videoPesHeaderSize(uint32_t length, bool first) const;
    virtual int64_t writeAudioPes(const uint8_t* data, uint32_t length, CGrowBuffer* out);
    virtual int64_t writeVideoFrame(const MXFrameInfo* frame, CGrowBuffer* out);
    virtual void updateVideoInfo(const MXFrameInfo* frame);
    virtual void computeVideoPts(const MXFrameInfo* frame);
    virtual void computeAudioPts(const MXFrameInfo* frame);

  protected:
    // The frame's time in milliseconds, repaired when it lies before the last one of its kind.
    uint32_t fixTimestamp(const MXFrameInfo& frame) const;

    // Which start codes divide a video frame.
    enum class StartCodes { kThreeOrFourBytes, kFourBytesOnly };
    // PES packets of the frame: one or more for each unit behind a start code, or for the whole frame of a codec that
    // has none.
    int64_t WriteUnits(const MXFrameInfo& frame, StartCodes start_codes, CGrowBuffer* out);

    // Counts a change of the stream types since the last map. The first stream to appear is no change.
    void CountMapVersion(uint8_t modulo);
    // A map of the streams seen so far, each with its descriptors; 0 while there is none.
    int64_t WriteMap(uint8_t version_byte, std::span<const uint8_t> video_info, std::span<const uint8_t> audio_info,
                     CGrowBuffer* out) const;

    // The number of bytes of several parts, or kNotPacked if one of them failed.
    static int64_t Total(std::initializer_list<int64_t> parts);
    static int64_t AppendHeader(const ByteCursor& header, CGrowBuffer* out);
    // The data may lie in `out`, at or behind the place of the header.
    static int64_t AppendPes(const ByteCursor& header, const uint8_t* data, uint32_t length, CGrowBuffer* out);

    // Length of a frame period; 0 while no rate is known.
    uint32_t FramePeriod() const;

    // 90 kHz.
    uint32_t scr_ = 0;
    uint32_t video_pts_ = 0;
    uint32_t video_dts_ = 0;
    uint32_t audio_pts_ = 0;
    // Milliseconds.
    uint32_t last_video_ts_ = 0;
    uint32_t last_audio_ts_ = 0;

    uint32_t frame_rate_ = 0;
    StreamType video_stream_type_ = kStreamNone;
    StreamType audio_stream_type_ = kStreamNone;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
    uint32_t video_count_ = 0;  // frames that were packed
    uint32_t audio_count_ = 0;
    uint32_t audio_duration_ = 0;  // of the last audio frame, 90 kHz
    uint8_t map_version_ = 0;

  private:
    // How an audio clock comes back after a break: a marked audio frame, the next I frame, the next audio frame.
    enum class AudioBreak { kNone, kMarked, kResync };

    uint32_t FirstPts(uint32_t timestamp) const;
    void SetScr(uint32_t decode_time, uint32_t frame_size);

    bool got_i_frame_ = false;
    int64_t base_ms_ = 0;        // the time of the last PTS without the start offset
    int64_t last_sequence_ = 0;  // of the last video frame
    AudioBreak audio_break_ = AudioBreak::kNone;
    StreamType mapped_video_type_ = kStreamNone;  // as the last map had them
    StreamType mapped_audio_type_ = kStreamNone;
};

}  // namespace Orvane::Muxora
