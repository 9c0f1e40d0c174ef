// The boxes that describe the samples of a track (ISO/IEC 14496-12 8.6.1, 8.6.2, 8.7). Each sample is a chunk of its
// own.
#pragma once

#include <cstdint>

#include "iso/box.h"
#include "iso/entry_table.h"
#include "iso/track_records.h"

namespace Orvane::Muxora {

// Durations, run-length coded. They come from the frame rate alone; the times of the frames play no part.
class CBox_stts final : public CBox {
  public:
    CBox_stts();
    void Init(uint32_t trackType, const TrackInfo* info);
    // Makes room for what Update will enter. False, with nothing changed, if there is no memory.
    bool Reserve(const SampleInfo& sample);
    void Update(const SampleInfo& sample);
    // The sum of all deltas so far, in the track's time-scale; wraps at 32 bits.
    uint32_t TotalDuration() const { return totalDuration_; }

  private:
    // The duration of a sample, and what is left of a millisecond behind it.
    struct Step {
        uint32_t delta;
        float fraction;
    };

    uint32_t WriteData(CGrowBuffer* buffer) const override;
    Step NextStep(const SampleInfo& sample) const;
    void OpenRun(uint32_t delta);

    uint32_t trackType_ = 0;
    uint32_t totalDuration_ = 0;
    uint32_t runCount_ = 0;  // samples in the open run
    uint32_t runDelta_ = 0;  // their delta
    float fraction_ = 0;     // of a millisecond, not yet given to a sample
    uint32_t closedRuns_ = 0;
    EntryTable runs_;
};

// A table with one value an entry.
class CTableBox : public CBox {
  public:
    // Makes room for one more entry. False, with nothing changed, if there is no memory.
    bool Reserve() { return entries_.Reserve(); }

  protected:
    // `head` is the size of the fixed fields: zeros, and the number of entries as the last of them.
    CTableBox(const char (&type)[5], uint32_t head, const char* complaint);
    void Append32(uint32_t value);
    void Append64(uint64_t value);

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
    void Count(uint32_t width);

    uint32_t head_;
    const char* complaint_;
    uint32_t entryCount_ = 0;
    EntryTable entries_;
};

// Numbers of the sync samples, from 1 (ISO/IEC 14496-12 8.6.2.2):
//     version, flags; entry_count; sample_number[entry_count]
class CBox_stss final : public CTableBox {
  public:
    CBox_stss() : CTableBox("stss", 8, "CBox_stss:WriteData error!\n") {}
    void Update(uint32_t sample_number) { Append32(sample_number); }
};

// Sample sizes (ISO/IEC 14496-12 8.7.3.2):
//     version, flags; sample_size = 0: each sample has its own; sample_count; entry_size[sample_count]
// Whoever watches for the message knows it under the name of stss.
class CBox_stsz final : public CTableBox {
  public:
    CBox_stsz() : CTableBox("stsz", 12, "CBox_stss:WriteData error!\n") {}
    void Update(uint32_t entry_size) { Append32(entry_size); }
};

// Chunk offsets of 32 bits (ISO/IEC 14496-12 8.7.5.2):
//     version, flags; entry_count; chunk_offset[entry_count]
// Readers rely on this: offsets behind 4 GiB are cut, and nothing warns.
class CBox_stco final : public CTableBox {
  public:
    CBox_stco() : CTableBox("stco", 8, "CBox_stco:WriteData error!\n") {}
    void Update(uint32_t chunk_offset) { Append32(chunk_offset); }
};

// Chunk offsets of 64 bits: the same with a wider chunk_offset. The message is that of stco.
class CBox_co64 final : public CTableBox {
  public:
    CBox_co64() : CTableBox("co64", 8, "CBox_stco:WriteData error!\n") {}
    void Update64(uint64_t chunk_offset) { Append64(chunk_offset); }
};

// Samples to chunks: one each.
class CBox_stsc final : public CBox {
  public:
    CBox_stsc();

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
};

}  // namespace Orvane::Muxora
