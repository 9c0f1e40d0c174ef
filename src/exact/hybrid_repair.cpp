#include "exact/hybrid_repair.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "exact/box_reader.h"
#include "exact/hybrid_front.h"
#include "exact/hybrid_layout.h"
#include "exact/index_boxes.h"

namespace Orvane::Muxora {

namespace {

constexpr uint64_t kFrontPosition = kHybridFileTypeSize + kMediaHeadSize;
// More than the packager ever writes.
constexpr uint64_t kLargestFront = 16u << 20;
constexpr uint64_t kLargestMoof = 256u << 20;
constexpr uint64_t kFarthestFragment = (1u << 30) - 1;
constexpr uint64_t kMostSamples = 1u << 27;

constexpr const char* kCannotRead = "cannot be read";
constexpr const char* kCannotWrite = "cannot be written";

}  // namespace

bool HybridRepair::BoxHead::Is(const char (&name)[5]) const {
    return std::memcmp(type, name, sizeof type) == 0;
}

MXHybridRepair HybridRepair::Run() {
    result_.length = file_.length;
    if (!IsGrowing() || !ReadFront() || !ReadFragments()) return result_;
    Write();
    return result_;
}

bool HybridRepair::IsGrowing() {
    if (file_.length < kFrontPosition + BoxView::kHead) return false;
    const BoxHead file_type = HeadAt(0);
    const BoxHead room = HeadAt(kHybridFileTypeSize);
    const BoxHead front = HeadAt(kFrontPosition);
    return result_.state == MX_HYBRID_OTHER && file_type.Is("ftyp") && file_type.size == kHybridFileTypeSize &&
           room.Is("free") && room.size == kMediaHeadSize && front.Is("moov");
}

// moov and the room behind it.
bool HybridRepair::ReadFront() {
    const BoxHead front = HeadAt(kFrontPosition);
    if (front.size < BoxView::kHead || front.size > kLargestFront || front.size > file_.length - kFrontPosition) {
        return Refuse(kFrontPosition, "the index in front is not whole");
    }
    const std::vector<uint8_t> bytes = BytesAt(kFrontPosition, front.size);
    const auto movie = std::span(bytes).subspan(BoxView::kHead);
    if (FindBox(movie, "mvex").empty()) return Refuse(kFrontPosition, "the index in front announces no fragments");
    auto tracks = ReadHybridTracks(movie);
    if (!tracks) return Refuse(kFrontPosition, "the index in front has other tracks than a hybrid MP4");
    tracks_ = std::move(*tracks);
    position_ = kFrontPosition + front.size;
    if (file_.length - position_ >= BoxView::kHead) {
        const BoxHead room = HeadAt(position_);
        if (room.Is("free") && room.size >= BoxView::kHead && room.size <= file_.length - position_) {
            position_ += room.size;
        }
    }
    return true;
}

bool HybridRepair::ReadFragments() {
    Found found = Found::kFragment;
    while (found == Found::kFragment)
        found = ReadFragment();
    if (found == Found::kTrouble || result_.state == MX_HYBRID_FAILED) return false;
    if (result_.fragments == 0) return Refuse(position_, "there is no whole fragment");
    result_.media_end = position_;
    return true;
}

// The guard ahead of a fragment, which is open where the recording ended before it was told to end.
uint64_t HybridRepair::BehindGuard(uint64_t at) {
    if (file_.length - at < kGuardSize) return at;
    const BoxHead guard = HeadAt(at);
    const bool is_guard = guard.Is("free") && (guard.size == kGuardSize || guard.size == kOpenGuard);
    return is_guard ? at + kGuardSize : at;
}

HybridRepair::Found HybridRepair::ReadFragment() {
    const uint64_t begin = BehindGuard(position_);
    const uint64_t rest = file_.length - begin;
    if (rest < BoxView::kHead) return Found::kEnd;
    const BoxHead moof = HeadAt(begin);
    // The tail had begun; or a file system gave the file its length, and lost its bytes; or nothing could be read.
    if (moof.Is("moov") || moof.IsZero()) return Found::kEnd;
    if (!moof.Is("moof")) {
        Refuse(begin, "there is something else than a fragment");
        return Found::kTrouble;
    }
    if (moof.size > rest) return Found::kEnd;
    if (moof.size > kLargestMoof || !ReadFragmentHead(BytesAt(begin, moof.size), head_)) {
        Refuse(begin, "the fragment does not hold together");
        return Found::kTrouble;
    }
    if (moof.size + BoxView::kHead > rest) return Found::kEnd;
    const BoxHead mdat = HeadAt(begin + moof.size);
    if (mdat.IsZero()) return Found::kEnd;
    if (!mdat.Is("mdat") || mdat.size != head_.media_size + BoxView::kHead) {
        Refuse(begin + moof.size, "the fragment's media does not follow its index");
        return Found::kTrouble;
    }
    if (mdat.size > rest - moof.size) return Found::kEnd;
    if (!Remember(begin + moof.size + BoxView::kHead)) return Found::kTrouble;
    position_ = begin + moof.size + mdat.size;
    ++result_.fragments;
    return Found::kFragment;
}

// Into the index, where the fragment fits the tracks and those before.
bool HybridRepair::Remember(uint64_t media) {
    std::array<FragmentSamples, 2> parts;
    size_t count = 0;
    for (const FragmentRun& run : head_.runs) {
        const auto track = std::ranges::find(tracks_, run.video, &Mp4Track::video);
        if (track == tracks_.end()) return Refuse(position_, "the fragment is of a track that was not announced");
        if (run.description > track->entries.size()) {
            return Refuse(position_, "how the fragment is coded stood in the index that was lost");
        }
        int64_t& last_dts = last_dts_[run.video ? 1 : 0];
        if (run.samples.front().dts <= last_dts) return Refuse(position_, "the fragment's times run backwards");
        last_dts = run.samples.back().dts;
        samples_ += run.samples.size();
        parts[count++] = {run.video, run.samples, run.description};
    }
    if (media - last_media_ > kFarthestFragment || samples_ > kMostSamples) {
        return Refuse(position_, "the fragment is too large");
    }
    last_media_ = media;
    index_.Reserve({parts.data(), count});
    index_.Add({parts.data(), count}, media);
    return true;
}

// The order lets a second run finish what a first one began.
void HybridRepair::Write() {
    std::vector<const Mp4Track*> tracks;
    for (const Mp4Track& track : tracks_)
        tracks.push_back(&track);
    uint64_t at = position_;
    WriteIndexedMovie(tracks, index_, NeedsLargeOffsets(position_), [&](std::span<const uint8_t> piece) {
        if (result_.state == MX_HYBRID_FAILED) return;
        if (file_.write(file_.user, at, piece.data(), static_cast<uint32_t>(piece.size())) != 0) Fail(at, kCannotWrite);
        at += piece.size();
    });
    if (result_.state == MX_HYBRID_FAILED) return;
    if (file_.cut(file_.user, at) != 0) return Fail(at, kCannotWrite);
    result_.length = at;
    uint8_t area[kMediaHeadSize];
    const uint32_t size = WriteMediaHead(area, position_);
    if (file_.write(file_.user, kHybridFileTypeSize, area, size) != 0) return Fail(kHybridFileTypeSize, kCannotWrite);
    result_.state = MX_HYBRID_REPAIRED;
}

HybridRepair::BoxHead HybridRepair::HeadAt(uint64_t at) {
    uint8_t bytes[BoxView::kHead] = {};
    Read(at, bytes, sizeof bytes);
    BoxHead head;
    head.size = FieldReader(bytes).BE32();
    std::memcpy(head.type, bytes + 4, sizeof head.type);
    return head;
}

std::vector<uint8_t> HybridRepair::BytesAt(uint64_t at, uint64_t size) {
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    Read(at, bytes.data(), bytes.size());
    return bytes;
}

// What can't be read is zeros, and ends the search; nothing is read behind it.
void HybridRepair::Read(uint64_t at, void* data, size_t size) {
    if (result_.state == MX_HYBRID_FAILED) return;
    if (file_.read(file_.user, at, data, static_cast<uint32_t>(size)) != 0) Fail(at, kCannotRead);
}

// Always false.
bool HybridRepair::Refuse(uint64_t at, const char* message) {
    // What could not be read makes no sense, either.
    if (result_.state != MX_HYBRID_FAILED) {
        result_.state = MX_HYBRID_REFUSED;
        result_.position = at;
        result_.message = message;
    }
    return false;
}

// Nothing is read or written behind it, so it comes once.
void HybridRepair::Fail(uint64_t at, const char* message) {
    result_.state = MX_HYBRID_FAILED;
    result_.position = at;
    result_.message = message;
}

}  // namespace Orvane::Muxora
