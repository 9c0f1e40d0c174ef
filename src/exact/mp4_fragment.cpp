#include "exact/mp4_fragment.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "core/clock.h"
#include "exact/fragment_flags.h"

namespace Orvane::Muxora {

namespace {

// tfhd
constexpr uint32_t kDefaultBaseIsMoof = 0x20000;
// sample flags, 8.8.3.1
constexpr uint32_t kKeySample = 0x02000000;    // depends on no other
constexpr uint32_t kOtherSample = 0x01010000;  // depends on others, is no sync sample

constexpr uint32_t kBoxHead = 8;
constexpr uint32_t kField = 4;
constexpr uint32_t kStartsWithKey = 0x90000000;  // starts_with_SAP, SAP_type 1
constexpr uint64_t kSecondsFrom1900To1970 = 2208988800;

uint32_t Flags(const Mp4Sample& sample) {
    return sample.key ? kKeySample : kOtherSample;
}

// What the samples of a run have in common needs no column.
struct Columns {
    bool durations = false;
    bool flags = false;
    bool first_flags = false;
    bool offsets = false;
    uint32_t default_flags = 0;

    explicit Columns(std::span<const Mp4Sample> samples) {
        const Mp4Sample& last = samples.back();
        default_flags = Flags(last);
        first_flags = Flags(samples.front()) != default_flags;
        for (size_t i = 0; i < samples.size(); ++i) {
            durations = durations || samples[i].duration != last.duration;
            offsets = offsets || samples[i].composition_offset != 0;
            flags = flags || (i != 0 && Flags(samples[i]) != default_flags);
        }
        if (flags) first_flags = false;
    }
};

// Returns where data_offset stands.
size_t WriteTraf(BoxWriter& out, const FragmentPart& part) {
    const std::span<const Mp4Sample> samples = part.samples->Samples();
    const Columns columns(samples);
    const auto traf = out.Box("traf");
    {
        uint32_t flags = kDefaultBaseIsMoof;
        if (part.description != 1) flags |= kHasDescriptionIndex;
        if (!columns.durations) flags |= kHasDefaultDuration;
        if (!columns.flags) flags |= kHasDefaultFlags;
        const auto tfhd = out.FullBox("tfhd", 0, flags);
        out.BE32(part.track->Id());
        if (part.description != 1) out.BE32(part.description);
        if (!columns.durations) out.BE32(samples.back().duration);
        if (!columns.flags) out.BE32(columns.default_flags);
    }
    {
        const auto tfdt = out.FullBox("tfdt", 1, 0);
        out.BE64(static_cast<uint64_t>(samples.front().dts));
    }
    uint32_t flags = kHasDataOffset | kHasSizes;
    if (columns.first_flags) flags |= kHasFirstFlags;
    if (columns.durations) flags |= kHasDurations;
    if (columns.flags) flags |= kHasFlags;
    if (columns.offsets) flags |= kHasCompositionOffsets;
    const auto trun = out.FullBox("trun", 1, flags);
    out.BE32(static_cast<uint32_t>(samples.size()));
    const size_t data_offset = out.Size();
    out.BE32(0);
    if (columns.first_flags) out.BE32(Flags(samples.front()));
    const uint32_t row = kField * (1u + columns.durations + columns.flags + columns.offsets);
    const auto size = static_cast<uint32_t>(row * samples.size());
    ByteCursor rows(out.Room(size), size);
    for (const Mp4Sample& sample : samples) {
        if (columns.durations) rows.BE32(sample.duration);
        rows.BE32(sample.size);
        if (columns.flags) rows.BE32(Flags(sample));
        if (columns.offsets) rows.BE32(static_cast<uint32_t>(sample.composition_offset));
    }
    return data_offset;
}

}  // namespace

void FragmentTrack::End(const int64_t* next) {
    Mp4Sample& last = samples_.back();
    if (next != nullptr) {
        last.duration = Between(last.dts, *next);
    } else if (last.duration == 0) {
        last.duration = std::max(last_duration_, 1u);
    }
    last_duration_ = last.duration;
}

uint64_t FragmentTrack::Duration() const {
    return static_cast<uint64_t>(samples_.back().dts - samples_.front().dts) + samples_.back().duration;
}

void FragmentTrack::Clear() {
    samples_.clear();
    media_.Clear();
    if (keeps_) std::swap(media_, spare_);
}

void WriteFragmentHead(BoxWriter& out, uint32_t sequence_number, std::span<const FragmentPart> parts) {
    size_t data_offsets[2] = {};
    const size_t begin = out.Size();
    {
        const auto moof = out.Box("moof");
        {
            const auto mfhd = out.FullBox("mfhd", 0, 0);
            out.BE32(sequence_number);
        }
        for (size_t i = 0; i < parts.size(); ++i)
            data_offsets[i] = WriteTraf(out, parts[i]);
    }
    uint64_t data = out.Size() - begin + kBoxHead;
    uint64_t media = 0;
    for (size_t i = 0; i < parts.size(); ++i) {
        out.PatchBE32(data_offsets[i], static_cast<uint32_t>(data + media));
        media += parts[i].samples->Media().Size();
    }
    out.BE32(static_cast<uint32_t>(media + kBoxHead)).Text("mdat");
}

// ISO/IEC 14496-12 8.16.3
void WriteSegmentIndex(BoxWriter& out, const FragmentPart& reference, uint64_t referenced_size) {
    const std::span<const Mp4Sample> samples = reference.samples->Samples();
    int64_t earliest = std::numeric_limits<int64_t>::max();
    for (const Mp4Sample& sample : samples)
        earliest = std::min(earliest, sample.dts + sample.composition_offset);
    const auto sidx = out.FullBox("sidx", 1, 0);
    out.BE32(reference.track->Id())
        .BE32(reference.track->time_scale)
        .BE64(static_cast<uint64_t>(std::max<int64_t>(earliest, 0)))
        .BE64(0)  // first_offset
        .BE16(0)  // reserved
        .BE16(1)  // reference_count
        .BE32(static_cast<uint32_t>(referenced_size & 0x7FFFFFFF))
        .BE32(static_cast<uint32_t>(reference.samples->Duration()))
        .BE32(samples.front().key ? kStartsWithKey : 0);  // starts_with_SAP, SAP_type, SAP_delta_time
}

// ISO/IEC 14496-12 8.16.5
void WriteProducerTime(BoxWriter& out, const FragmentPart& reference) {
    constexpr uint32_t kFinalised = 2;  // the time at which the fragment was ready
    constexpr int64_t kMicrosecond = 1000000;
    const int64_t now = CurrentMicroseconds();
    const uint64_t seconds = static_cast<uint64_t>(now / kMicrosecond) + kSecondsFrom1900To1970;
    const uint64_t fraction = (static_cast<uint64_t>(now % kMicrosecond) << 32) / kMicrosecond;
    const auto prft = out.FullBox("prft", 1, kFinalised);
    out.BE32(reference.track->Id())
        .BE64(seconds << 32 | fraction)  // NTP (RFC 5905 6)
        .BE64(static_cast<uint64_t>(reference.samples->Front().dts));
}

void WriteSegmentType(BoxWriter& out) {
    const auto styp = out.Box("styp");
    out.Text("msdh").BE32(0).Text("msdh").Text("msix").Text("cmfs");
}

}  // namespace Orvane::Muxora
