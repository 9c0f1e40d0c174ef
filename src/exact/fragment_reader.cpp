#include "exact/fragment_reader.h"

#include "exact/box_reader.h"
#include "exact/fragment_flags.h"
#include "exact/rescale.h"

namespace Orvane::Muxora {

namespace {

constexpr int64_t kLatestTime = kLongestTime * kFinestScale;
constexpr uint32_t kSizeLimit = 1u << 30;

// tfhd
constexpr uint32_t kHasBaseOffset = 0x1;
constexpr uint32_t kHasDefaultSize = 0x10;
// sample flags, 8.8.3.1
constexpr uint32_t kIsNoSyncSample = 0x10000;

constexpr uint32_t kFlags = 0xFFFFFF;  // of the version and the flags of a full box

struct Defaults {
    uint32_t duration = 0;
    uint32_t flags = 0;
};

bool ReadTrackFragmentHeader(std::span<const uint8_t> payload, FragmentRun& run, Defaults& defaults) {
    FieldReader in(payload);
    const uint32_t flags = in.BE32() & kFlags;
    if ((flags & kHasBaseOffset) != 0) return false;
    const uint32_t id = in.BE32();
    if (id != kMp4VideoTrack && id != kMp4AudioTrack) return false;
    run.video = id == kMp4VideoTrack;
    if ((flags & kHasDescriptionIndex) != 0) run.description = in.BE32();
    if ((flags & kHasDefaultDuration) != 0) defaults.duration = in.BE32();
    if ((flags & kHasDefaultSize) != 0) in.Skip(4);
    if ((flags & kHasDefaultFlags) != 0) defaults.flags = in.BE32();
    return in.Ok() && run.description != 0;
}

// `data` is where the samples have to begin, from the beginning of the moof on.
bool ReadRun(std::span<const uint8_t> payload, int64_t time, const Defaults& defaults, uint64_t data, FragmentRun& run,
             uint64_t& media_size) {
    FieldReader in(payload);
    const uint32_t flags = in.BE32() & kFlags;
    const uint32_t count = in.BE32();
    if ((flags & kHasDataOffset) == 0 || (flags & kHasSizes) == 0) return false;
    if (in.BE32() != data) return false;
    const bool first_flags = (flags & kHasFirstFlags) != 0;
    const uint32_t first = first_flags ? in.BE32() : 0;
    // Each sample has four bytes here at least: what is reserved is bounded by the box.
    if (count == 0 || count > in.Rest().size() / 4) return false;
    run.samples.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        Mp4Sample sample;
        sample.dts = time;
        sample.duration = (flags & kHasDurations) != 0 ? in.BE32() : defaults.duration;
        sample.size = in.BE32();
        uint32_t own = (flags & kHasFlags) != 0 ? in.BE32() : defaults.flags;
        if (first_flags && i == 0) own = first;
        sample.key = (own & kIsNoSyncSample) == 0;
        if ((flags & kHasCompositionOffsets) != 0) sample.composition_offset = static_cast<int32_t>(in.BE32());
        if (sample.size >= kSizeLimit || sample.composition_offset < 0) return false;
        if (sample.duration == 0 && i + 1 != count) return false;
        media_size += sample.size;
        time += sample.duration;
        run.samples.push_back(sample);
    }
    return in.Ok() && in.Rest().empty() && time <= kLatestTime;
}

bool ReadTrackFragment(std::span<const uint8_t> traf, uint64_t data, FragmentHead& head) {
    FragmentRun run;
    Defaults defaults;
    if (!ReadTrackFragmentHeader(FindBox(traf, "tfhd"), run, defaults)) return false;
    FieldReader tfdt(FindBox(traf, "tfdt"));
    const uint64_t time = tfdt.BE(tfdt.BE32() >> 24 == 1 ? 8 : 4);
    if (!tfdt.Ok() || time > static_cast<uint64_t>(kLatestTime)) return false;
    if (!ReadRun(FindBox(traf, "trun"), static_cast<int64_t>(time), defaults, data + head.media_size, run,
                 head.media_size)) {
        return false;
    }
    head.runs.push_back(std::move(run));
    return true;
}

}  // namespace

bool ReadFragmentHead(std::span<const uint8_t> moof, FragmentHead& head) {
    head.runs.clear();
    head.media_size = 0;
    if (moof.size() < BoxView::kHead) return false;
    std::span<const uint8_t> rest = moof.subspan(BoxView::kHead);
    while (const auto box = NextBox(rest)) {
        if (!box->Is("traf")) continue;
        if (!ReadTrackFragment(box->Payload(), moof.size() + BoxView::kHead, head)) return false;
    }
    if (!rest.empty()) return false;
    if (head.runs.size() == 2) return head.runs[0].video && !head.runs[1].video;
    return head.runs.size() == 1;
}

}  // namespace Orvane::Muxora
