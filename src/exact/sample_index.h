// What is remembered of the samples of a growing recording: 12 bytes each, and 4 for each fragment.
#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "exact/ledger.h"
#include "exact/mp4_fragment.h"

namespace Orvane::Muxora {

// The samples of one track, in decoding order. A chunk is what a fragment holds of the track.
class SampleIndex {
  public:
    struct Sample {
        uint32_t size;
        uint32_t duration;
        uint32_t composition_offset;
        bool key;
        bool first_of_chunk;
    };

    // Room for a chunk of `count` samples. Throws std::bad_alloc.
    void Reserve(size_t count) {
        words_.Reserve(count * kWords);
        if (descriptions_.size() == descriptions_.capacity()) descriptions_.reserve(2 * descriptions_.size() + 4);
    }
    // A chunk of samples, one at least, with the sample entry that they need (from 1). Sizes stay below 1 GiB.
    void Add(std::span<const Mp4Sample> samples, uint32_t description);

    size_t Count() const { return words_.Size() / kWords; }
    Sample operator[](size_t index) const;
    uint32_t Chunks() const { return chunks_; }
    // (chunk, description): from which chunk on, from 0, which entry is needed.
    const std::vector<std::pair<uint32_t, uint32_t>>& Descriptions() const { return descriptions_; }
    // The media's time at which the first sample decodes.
    int64_t FirstTime() const { return first_; }
    size_t Capacity() const { return words_.Capacity(); }

  private:
    static constexpr size_t kWords = 3;
    static constexpr uint32_t kKey = 0x80000000;
    static constexpr uint32_t kChunk = 0x40000000;

    Ledger words_;  // size and two flags, duration, composition offset
    std::vector<std::pair<uint32_t, uint32_t>> descriptions_;
    uint32_t chunks_ = 0;
    int64_t first_ = 0;
    int64_t last_ = 0;  // the media's time of the last sample
};

// The samples that one fragment has of one track.
struct FragmentSamples {
    bool video = false;
    std::span<const Mp4Sample> samples;
    uint32_t description = 1;
};

// The index of a recording: both tracks, and where each fragment's media lies.
class RecordingIndex {
  public:
    // Room for a fragment; Add then cannot fail. Throws std::bad_alloc.
    void Reserve(std::span<const FragmentSamples> parts);
    // `position` of the first byte of the fragment's media, below 1 GiB behind that of the one before; the parts lie
    // one behind the other.
    void Add(std::span<const FragmentSamples> parts, uint64_t position);

    const SampleIndex& Track(bool video) const { return video ? video_ : audio_; }
    // Calls `use` with the position of each chunk of a track.
    template <typename Use>
    void ForEachChunk(bool video, Use use) const;
    size_t Capacity() const { return video_.Capacity() + audio_.Capacity() + fragments_.Capacity(); }

  private:
    static constexpr uint32_t kHasVideo = 0x80000000;
    static constexpr uint32_t kHasAudio = 0x40000000;
    static constexpr uint32_t kDistance = 0x3FFFFFFF;

    SampleIndex video_;
    SampleIndex audio_;
    Ledger fragments_;  // two flags, and the distance from the media of the fragment before
    uint64_t last_position_ = 0;
};

template <typename Use>
void RecordingIndex::ForEachChunk(bool video, Use use) const {
    uint64_t position = 0;
    size_t picture = 0;
    for (size_t i = 0; i < fragments_.Size(); ++i) {
        position += fragments_[i] & kDistance;
        uint64_t pictures = 0;  // bytes of them, which lie ahead of the sound
        if (!video && (fragments_[i] & kHasVideo) != 0) {
            do {
                pictures += video_[picture++].size;
            } while (picture < video_.Count() && !video_[picture].first_of_chunk);
        }
        if ((fragments_[i] & (video ? kHasVideo : kHasAudio)) != 0) use(position + pictures);
    }
}

}  // namespace Orvane::Muxora
