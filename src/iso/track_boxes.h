// The containers of the index, from the sample table up to the movie (ISO/IEC 14496-12 8.2.1, 8.3.1, 8.4.1, 8.4.4,
// 8.5.1). Init opens a track and flows down; Update takes a sample down into the tables. Both carry sizes and durations
// back up, so that the index can be serialised after any sample.
//
// A sample is entered into all tables or into none: Update is false, with nothing changed, when there is no memory for
// it. Init throws std::bad_alloc, and may be called again then.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "iso/box.h"
#include "iso/header_boxes.h"
#include "iso/sample_entries.h"
#include "iso/sample_tables.h"
#include "iso/track_records.h"
#include "iso/variant.h"

namespace Orvane::Muxora {

class CBox_stbl final : public CBox {
  public:
    explicit CBox_stbl(BoxVariant variant);
    void Init(uint32_t trackType, const TrackInfo* info);
    bool Update(const SampleInfo& sample);
    uint32_t TotalDuration() const { return stts_.TotalDuration(); }

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
    bool Reserve(const SampleInfo& sample, bool is_sync);
    bool ReserveEntry(bool is_sync);
    void Refresh();

    uint32_t trackType_ = 0;
    uint32_t nextSample_ = 1;
    CBox_stsd stsd_;
    CBox_stts stts_;
    CBox_stss stss_;  // written in a video track only
    CBox_stsc stsc_;
    CBox_stsz stsz_;
    std::optional<CBox_stco> stco_;  // one of the two
    std::optional<CBox_co64> co64_;
};

class CBox_minf final : public CBox {
  public:
    explicit CBox_minf(BoxVariant variant);
    void Init(uint32_t trackType, const TrackInfo* info);
    bool Update(const SampleInfo& sample);
    uint32_t TotalDuration() const { return stbl_.TotalDuration(); }

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
    void Refresh();

    std::unique_ptr<CBox> media_header_;  // vmhd or smhd; an ext track has none
    CBox_dinf dinf_;
    CBox_stbl stbl_;
};

class CBox_mdia final : public CBox {
  public:
    explicit CBox_mdia(BoxVariant variant);
    void Init(uint32_t trackType, const TrackInfo* info);
    bool Update(const SampleInfo& sample);
    uint32_t TotalDuration() const { return minf_.TotalDuration(); }

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
    void Refresh();

    CBox_mdhd mdhd_;
    CBox_hdlr hdlr_;
    CBox_minf minf_;
};

class CBox_trak final : public CBox {
  public:
    explicit CBox_trak(BoxVariant variant);
    // Once: a later call changes nothing.
    void Init(uint32_t trackType, const TrackInfo* info);
    // Narrows the sample to its raw AAC frame when it has an ADTS header without a CRC. Before Init nothing happens.
    bool Update(SampleInfo& sample);
    // In the movie's time-scale; 0 while the track has no time-scale.
    uint32_t Duration() const { return duration_; }
    bool IsPresent() const { return initialised_; }

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
    void Refresh();

    bool initialised_ = false;
    bool is_aac_ = false;
    uint32_t timescale_ = 0;
    uint32_t duration_ = 0;
    CBox_tkhd tkhd_;
    CBox_mdia mdia_;
};

class CBox_moov final : public CBox {
  public:
    explicit CBox_moov(BoxVariant variant);
    // Opens a track. A null record opens none, so an ext track is never there.
    void Init(uint32_t trackType, const TrackInfo* info);
    bool Update(uint32_t trackType, SampleInfo& sample);

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
    CBox_trak* Trak(uint32_t trackType);
    void Refresh();

    uint32_t trackCount_ = 0;
    uint32_t movieDuration_ = 0;  // of the longest track; never shrinks
    CBox_mvhd mvhd_;
    CBox_trak video_;
    CBox_trak audio_;
    CBox_trak ext_;
};

}  // namespace Orvane::Muxora
