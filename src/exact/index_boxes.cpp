#include "exact/index_boxes.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <vector>

#include "exact/mp4_boxes.h"
#include "exact/rescale.h"

namespace Orvane::Muxora {

namespace {

constexpr size_t kPiece = size_t{64} << 10;

// Boxes into a stream of pieces. The tree is walked twice: the first walk only counts, and so knows the sizes that the
// second one has to put ahead.
class BoxStream {
  public:
    class Scope {
      public:
        explicit Scope(BoxStream& stream, size_t number) : stream_(stream), number_(number) {}
        ~Scope() { stream_.Close(number_); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

      private:
        BoxStream& stream_;
        size_t number_;
    };

    explicit BoxStream(const PieceFunction& take) : take_(take) {}

    void BeginWriting() {
        counting_ = false;
        next_ = 0;
        piece_.reserve(kPiece + kSlack);
    }
    [[nodiscard]] Scope Box(const char (&type)[5]) {
        const size_t number = next_++;
        if (counting_) sizes_.push_back(count_);
        BE32(counting_ ? 0 : static_cast<uint32_t>(sizes_[number]));
        Small([&](BoxWriter& out) { out.Text(type); });
        return Scope(*this, number);
    }
    [[nodiscard]] Scope FullBox(const char (&type)[5]) {
        const size_t number = next_++;
        if (counting_) sizes_.push_back(count_);
        BE32(counting_ ? 0 : static_cast<uint32_t>(sizes_[number]));
        Small([&](BoxWriter& out) { out.Text(type).BE32(0); });
        return Scope(*this, number);
    }
    void BE32(uint32_t value) {
        if (counting_) {
            count_ += 4;
            return;
        }
        Room(4);
        piece_.resize(piece_.size() + 4);
        PutBE32(piece_.data() + piece_.size() - 4, value);
    }
    void BE64(uint64_t value) {
        BE32(static_cast<uint32_t>(value >> 32));
        BE32(static_cast<uint32_t>(value));
    }
    // Boxes that are composed in memory.
    template <typename Write>
    void Small(Write write) {
        scratch_.clear();
        BoxWriter out(scratch_);
        write(out);
        if (counting_) {
            count_ += scratch_.size();
            return;
        }
        Room(scratch_.size());
        piece_.insert(piece_.end(), scratch_.begin(), scratch_.end());
    }
    void Flush() {
        take_(piece_);
        piece_.clear();
    }

  private:
    static constexpr size_t kSlack = 4096;

    void Close(size_t number) {
        if (counting_) sizes_[number] = count_ - sizes_[number];
    }
    void Room(size_t count) {
        if (piece_.size() + count > kPiece) Flush();
    }

    const PieceFunction& take_;
    bool counting_ = true;
    uint64_t count_ = 0;
    std::vector<uint64_t> sizes_;  // in the order of the boxes; while one is open, where it began
    size_t next_ = 0;
    std::vector<uint8_t> piece_;
    std::vector<uint8_t> scratch_;
};

// Calls `use` with (length, value) for each run of samples that have the same value.
template <typename Value, typename Use>
void ForEachRun(const SampleIndex& samples, Value value, Use use) {
    const size_t count = samples.Count();
    for (size_t begin = 0; begin < count;) {
        const uint32_t common = value(samples[begin]);
        size_t end = begin + 1;
        while (end < count && value(samples[end]) == common)
            ++end;
        use(static_cast<uint32_t>(end - begin), common);
        begin = end;
    }
}

// stts or ctts: (sample_count, value).
template <typename Value>
void WriteRuns(BoxStream& out, const char (&type)[5], const SampleIndex& samples, Value value) {
    uint32_t runs = 0;
    ForEachRun(samples, value, [&](uint32_t, uint32_t) { ++runs; });
    const auto box = out.FullBox(type);
    out.BE32(runs);
    ForEachRun(samples, value, [&](uint32_t length, uint32_t common) {
        out.BE32(length);
        out.BE32(common);
    });
}

// 8.6.2; not where all samples are sync samples.
void WriteSyncSamples(BoxStream& out, const SampleIndex& samples) {
    uint32_t keys = 0;
    for (size_t i = 0; i < samples.Count(); ++i)
        keys += samples[i].key ? 1 : 0;
    if (keys == samples.Count()) return;
    const auto stss = out.FullBox("stss");
    out.BE32(keys);
    for (size_t i = 0; i < samples.Count(); ++i) {
        if (samples[i].key) out.BE32(static_cast<uint32_t>(i + 1));
    }
}

// Calls `use` with (first_chunk, samples_per_chunk, sample_description_index) of each run of chunks.
template <typename Use>
void ForEachChunkRun(const SampleIndex& samples, Use use) {
    const auto& descriptions = samples.Descriptions();
    size_t description = 0;
    uint32_t last_length = 0;
    uint32_t last_entry = 0;
    uint32_t chunk = 0;
    for (size_t begin = 0; begin < samples.Count(); ++chunk) {
        size_t end = begin + 1;
        while (end < samples.Count() && !samples[end].first_of_chunk)
            ++end;
        while (description + 1 < descriptions.size() && descriptions[description + 1].first <= chunk)
            ++description;
        const auto length = static_cast<uint32_t>(end - begin);
        const uint32_t entry = descriptions[description].second;
        if (length != last_length || entry != last_entry) use(chunk + 1, length, entry);
        last_length = length;
        last_entry = entry;
        begin = end;
    }
}

// 8.7.4
void WriteSamplesToChunks(BoxStream& out, const SampleIndex& samples) {
    uint32_t runs = 0;
    ForEachChunkRun(samples, [&](uint32_t, uint32_t, uint32_t) { ++runs; });
    const auto stsc = out.FullBox("stsc");
    out.BE32(runs);
    ForEachChunkRun(samples, [&](uint32_t first, uint32_t length, uint32_t entry) {
        out.BE32(first);
        out.BE32(length);
        out.BE32(entry);
    });
}

// 8.7.3.2
void WriteSizes(BoxStream& out, const SampleIndex& samples) {
    const auto stsz = out.FullBox("stsz");
    out.BE32(0);  // sample_size: each has its own
    out.BE32(static_cast<uint32_t>(samples.Count()));
    for (size_t i = 0; i < samples.Count(); ++i)
        out.BE32(samples[i].size);
}

// 8.7.5
void WriteChunkOffsets(BoxStream& out, const RecordingIndex& index, bool video, bool large) {
    const uint32_t chunks = index.Track(video).Chunks();
    if (large) {
        const auto co64 = out.FullBox("co64");
        out.BE32(chunks);
        index.ForEachChunk(video, [&](uint64_t position) { out.BE64(position); });
    } else {
        const auto stco = out.FullBox("stco");
        out.BE32(chunks);
        index.ForEachChunk(video, [&](uint64_t position) { out.BE32(static_cast<uint32_t>(position)); });
    }
}

// Where a track's time begins and ends, in ticks of its media.
struct Span {
    int64_t begin = 0;   // the clock's time of the earliest presentation; negative: priming
    int64_t first = 0;   // media time of that
    int64_t end = 0;     // media time behind the last presentation
    int64_t length = 0;  // of the media
};

Span Measure(const Mp4Track& track, const SampleIndex& samples) {
    Span span;
    if (samples.Count() == 0) return span;  // a track whose frames were empty
    span.first = std::numeric_limits<int64_t>::max();
    int64_t time = 0;
    for (size_t i = 0; i < samples.Count(); ++i) {
        const SampleIndex::Sample sample = samples[i];
        span.first = std::min(span.first, time + sample.composition_offset);
        span.end = std::max(span.end, time + sample.composition_offset + sample.duration);
        time += sample.duration;
    }
    span.length = time;
    span.begin = span.first + samples.FirstTime() - track.edit_shift;
    return span;
}

// A scale in which the edits of all tracks are exact, where there is one.
uint32_t MovieScale(std::span<const Mp4Track* const> tracks) {
    uint64_t scale = 1;
    for (const Mp4Track* track : tracks)
        scale = std::lcm(scale, uint64_t{track->time_scale});
    return scale <= kFinestScale ? static_cast<uint32_t>(scale) : tracks.front()->time_scale;
}

struct Edits {
    Mp4Edit edits[2];
    size_t count = 0;
    uint64_t duration = 0;  // of all, in the movie's scale
};

Edits MakeEdits(const Mp4Track& track, const Span& span, uint32_t movie_scale) {
    Edits out;
    const auto in_movie = [&](int64_t ticks) {
        return static_cast<uint64_t>(std::max<int64_t>(Rescale(ticks, track.time_scale, movie_scale), 0));
    };
    int64_t media_time = span.first;
    if (span.begin > 0) {
        out.edits[out.count++] = {in_movie(span.begin), -1};
        out.duration = in_movie(span.begin);
    } else {
        media_time -= span.begin;
    }
    const uint64_t shown = in_movie(span.end - media_time);
    out.duration += shown;
    if (out.count != 0 || media_time != 0) out.edits[out.count++] = {shown, media_time};
    return out;
}

void WriteTrack(BoxStream& out, const Mp4Track& track, const RecordingIndex& index, const Span& span,
                const Edits& edits, bool large) {
    const SampleIndex& samples = index.Track(track.video);
    const auto trak = out.Box("trak");
    out.Small([&](BoxWriter& small) {
        WriteTrackHeader(small, track, edits.duration);
        WriteEdits(small, {edits.edits, edits.count});
    });
    const auto mdia = out.Box("mdia");
    out.Small([&](BoxWriter& small) { WriteMediaHeader(small, track, static_cast<uint64_t>(span.length)); });
    const auto minf = out.Box("minf");
    out.Small([&](BoxWriter& small) { WriteMediaInformation(small, track); });
    const auto stbl = out.Box("stbl");
    out.Small([&](BoxWriter& small) { WriteSampleDescriptions(small, track, true); });
    WriteRuns(out, "stts", samples, [](const SampleIndex::Sample& sample) { return sample.duration; });
    bool reordered = false;
    for (size_t i = 0; i < samples.Count() && !reordered; ++i)
        reordered = samples[i].composition_offset != 0;
    if (reordered) {
        WriteRuns(out, "ctts", samples, [](const SampleIndex::Sample& sample) { return sample.composition_offset; });
    }
    WriteSyncSamples(out, samples);
    WriteSamplesToChunks(out, samples);
    WriteSizes(out, samples);
    WriteChunkOffsets(out, index, track.video, large);
}

}  // namespace

void WriteIndexedMovie(std::span<const Mp4Track* const> tracks, const RecordingIndex& index, bool large_offsets,
                       const PieceFunction& take) {
    const uint32_t movie_scale = MovieScale(tracks);
    std::vector<Span> spans;
    std::vector<Edits> edits;
    uint64_t duration = 0;
    for (const Mp4Track* track : tracks) {
        spans.push_back(Measure(*track, index.Track(track->video)));
        edits.push_back(MakeEdits(*track, spans.back(), movie_scale));
        duration = std::max(duration, edits.back().duration);
    }
    BoxStream out(take);
    const auto write = [&] {
        const auto moov = out.Box("moov");
        out.Small([&](BoxWriter& small) { WriteMovieHeader(small, movie_scale, duration); });
        for (size_t i = 0; i < tracks.size(); ++i)
            WriteTrack(out, *tracks[i], index, spans[i], edits[i], large_offsets);
    };
    write();
    out.BeginWriting();
    write();
    out.Flush();
}

}  // namespace Orvane::Muxora
