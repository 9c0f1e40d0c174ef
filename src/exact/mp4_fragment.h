// A movie fragment in the making: samples and their bytes, and the boxes around them (ISO/IEC 14496-12 8.8).
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "exact/box_writer.h"
#include "exact/media_buffer.h"
#include "exact/mp4_track.h"

namespace Orvane::Muxora {

struct Mp4Sample {
    int64_t dts = 0;  // in the media's time
    int32_t composition_offset = 0;
    uint32_t duration = 0;
    uint32_t size = 0;
    bool key = false;
};

// The samples of one track.
class FragmentTrack {
  public:
    bool Empty() const { return samples_.empty(); }
    std::span<const Mp4Sample> Samples() const { return samples_; }
    MediaBuffer& Media() { return media_; }
    const MediaBuffer& Media() const { return media_; }
    const Mp4Sample& Front() const { return samples_.front(); }

    // Room for `count` samples that have so many bytes together, so that Add cannot fail. Throws std::bad_alloc with
    // nothing changed.
    void Reserve(size_t bytes, size_t count) {
        if (samples_.capacity() - samples_.size() < count) {
            samples_.reserve(samples_.size() + std::max(count, samples_.size() + kFirstSamples));
        }
        media_.Reserve(bytes);
        if (keeps_) spare_.Reserve(bytes);
    }
    // Where the bytes of the next sample go; Add takes them in with the sample.
    uint8_t* Place(size_t bytes) { return media_.Reserve(bytes); }
    // The sample before lasts until this one. `duration` 0: not known.
    void Add(const Mp4Sample& sample) {
        samples_.push_back(sample);
        if (samples_.size() > 1) {
            Mp4Sample& before = samples_[samples_.size() - 2];
            before.duration = Between(before.dts, sample.dts);
            last_duration_ = before.duration;
        }
        media_.Commit(sample.size);
    }
    // The four that follow are only for tracks that are not empty.
    // Ends the last sample: `next` is where the one behind it begins, if that is known. Without that, and without a
    // duration of its own, it lasts as long as the one before.
    void End(const int64_t* next);
    // Undoes End, with what Ending gave before it.
    struct LastDuration {
        uint32_t of_last = 0;
        uint32_t of_one_before = 0;
    };
    LastDuration Ending() const { return {samples_.back().duration, last_duration_}; }
    void Reopen(const LastDuration& before) {
        samples_.back().duration = before.of_last;
        last_duration_ = before.of_one_before;
    }
    // Ticks from the first sample to the end of the last.
    uint64_t Duration() const;
    void Clear();
    // Do bytes stay good behind Clear, until the next Reserve? At first they do; it takes a second buffer.
    void Keep(bool keeps) { keeps_ = keeps; }

  private:
    static constexpr size_t kFirstSamples = 16;

    // Decoding times rise, by a minute and the longest duration at most; only the finest scales reach 32 bits with
    // that.
    static uint32_t Between(int64_t from, int64_t to) {
        return static_cast<uint32_t>(std::min<int64_t>(to - from, std::numeric_limits<uint32_t>::max()));
    }

    std::vector<Mp4Sample> samples_;
    MediaBuffer media_;
    MediaBuffer spare_;
    bool keeps_ = true;
    uint32_t last_duration_ = 0;
};

// One traf's worth for moof.
struct FragmentPart {
    const Mp4Track* track;
    FragmentTrack* samples;
    uint32_t description = 1;  // sample_description_index
};

// moof, and the head of mdat: the samples of each part follow, one part behind the other.
void WriteFragmentHead(BoxWriter& out, uint32_t sequence_number, std::span<const FragmentPart> parts);

// sidx of one segment whose other boxes have `referenced_size` bytes.
void WriteSegmentIndex(BoxWriter& out, const FragmentPart& reference, uint64_t referenced_size);
// prft with the wall clock.
void WriteProducerTime(BoxWriter& out, const FragmentPart& reference);
void WriteSegmentType(BoxWriter& out);

}  // namespace Orvane::Muxora
