#include "exact/sample_index.h"

#include <algorithm>
#include <limits>

namespace Orvane::Muxora {

void SampleIndex::Add(std::span<const Mp4Sample> samples, uint32_t description) {
    if (Count() == 0) {
        first_ = samples.front().dts;
    } else {
        // What the fragment before took its last sample's duration for is known now.
        words_[words_.Size() - kWords + 1] =
            static_cast<uint32_t>(std::min<int64_t>(samples.front().dts - last_, std::numeric_limits<uint32_t>::max()));
    }
    last_ = samples.back().dts;
    if (descriptions_.empty() || descriptions_.back().second != description) {
        descriptions_.emplace_back(chunks_, description);
    }
    ++chunks_;
    uint32_t flag = kChunk;
    for (const Mp4Sample& sample : samples) {
        words_.Append(sample.size | flag | (sample.key ? kKey : 0));
        words_.Append(sample.duration);
        words_.Append(static_cast<uint32_t>(sample.composition_offset));
        flag = 0;
    }
}

SampleIndex::Sample SampleIndex::operator[](size_t index) const {
    const uint32_t first = words_[index * kWords];
    return {first & ~(kKey | kChunk), words_[index * kWords + 1], words_[index * kWords + 2], (first & kKey) != 0,
            (first & kChunk) != 0};
}

void RecordingIndex::Reserve(std::span<const FragmentSamples> parts) {
    fragments_.Reserve(1);
    for (const FragmentSamples& part : parts)
        (part.video ? video_ : audio_).Reserve(part.samples.size());
}

void RecordingIndex::Add(std::span<const FragmentSamples> parts, uint64_t position) {
    uint32_t entry = static_cast<uint32_t>(position - last_position_) & kDistance;
    for (const FragmentSamples& part : parts) {
        entry |= part.video ? kHasVideo : kHasAudio;
        (part.video ? video_ : audio_).Add(part.samples, part.description);
    }
    fragments_.Append(entry);
    last_position_ = position;
}

}  // namespace Orvane::Muxora
