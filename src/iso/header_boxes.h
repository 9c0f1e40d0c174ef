// The boxes of fixed layout inside moov: movie, track and media headers, handler, media headers of the two kinds, data
// reference (ISO/IEC 14496-12 8.2.2, 8.3.2, 8.4.2, 8.4.3, 8.4.5, 8.7.1, 8.7.2). All are of version 0 in every file
// form, with times and durations of 32 bits.
#pragma once

#include <cstdint>

#include "iso/box.h"
#include "iso/track_records.h"

namespace Orvane::Muxora {

// The movie's time-scale, and that of video media: milliseconds.
constexpr uint32_t kMovieTimeScale = 1000;

// Seconds since 1904, the epoch of ISO media files.
uint32_t CurrentBoxTime();

class CBox_mvhd final : public CBox {
  public:
    CBox_mvhd();
    void Init(uint32_t trackCount) { next_track_ID_ = trackCount + 1; }
    void SetDuration(uint32_t milliseconds) { duration_ = milliseconds; }

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    uint32_t creation_time_ = CurrentBoxTime();
    uint32_t modification_time_ = CurrentBoxTime();
    uint32_t duration_ = 0;
    uint32_t next_track_ID_ = 1;
};

class CBox_tkhd final : public CBox {
  public:
    CBox_tkhd();
    void Init(uint32_t trackType, const TrackInfo* info);
    void SetDuration(uint32_t milliseconds) { duration_ = milliseconds; }

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    uint32_t flags_ = 0;
    uint32_t creation_time_ = 0;
    uint32_t modification_time_ = 0;
    uint32_t track_ID_ = 0;
    uint32_t duration_ = 0;
    uint16_t volume_ = 0;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
};

class CBox_mdhd final : public CBox {
  public:
    CBox_mdhd();
    void Init(uint32_t trackType, const TrackInfo* info);
    // In the track's time-scale.
    void SetDuration(uint32_t duration) { duration_ = duration; }

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    uint32_t creation_time_ = CurrentBoxTime();
    uint32_t modification_time_ = CurrentBoxTime();
    uint32_t timescale_ = 0;
    uint32_t duration_ = 0;
};

class CBox_hdlr final : public CBox {
  public:
    CBox_hdlr() : CBox("hdlr") {}
    void Init(uint32_t trackType, const TrackInfo* info);

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    const char* handler_type_ = "\0\0\0\0";
    const char* name_ = "";
};

class CBox_vmhd final : public CBox {
  public:
    CBox_vmhd();

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
};

class CBox_smhd final : public CBox {
  public:
    CBox_smhd();

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
};

// The media is in this very file.
class CBox_url final : public CBox {
  public:
    CBox_url();

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
};

class CBox_dref final : public CBox {
  public:
    CBox_dref();

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    CBox_url url_;
};

class CBox_dinf final : public CBox {
  public:
    CBox_dinf();

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    CBox_dref dref_;
};

}  // namespace Orvane::Muxora
