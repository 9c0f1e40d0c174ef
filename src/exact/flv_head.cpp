#include "exact/flv_head.h"

#include <algorithm>

#include "codec/amf.h"
#include "codec/flv_tag.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kNumberOfNumbers = 12;
constexpr uint32_t kNumberOfBooleans = 3;
// The names of all properties, then their markers and values, then what is around them.
constexpr uint32_t kNames = 8 + 5 + 6 + 9 + 12 + 13 + 12 + 15 + 15 + 13 + 8 + 13 + 6 + 8 + 8;
constexpr uint32_t kProperties =
    kNames + (kNumberOfNumbers + kNumberOfBooleans) * 2 + kNumberOfNumbers * 9 + kNumberOfBooleans * 2;
constexpr uint32_t kAround = 1 + 2 + 10 + 1 + 4 + 3;
// "keyframes" with two arrays without entries, and the filler behind it.
constexpr uint32_t kEmptyKeyframes = 2 + 9 + 1 + (2 + 13 + 1 + 4) + (2 + 5 + 1 + 4) + 3;
constexpr uint32_t kSpacerHead = 2 + 6 + 1 + 2;
constexpr uint32_t kSpacerPiece = 1000;

uint32_t IndexSize(const CFlvIndex& index) {
    if (index.Capacity() == 0) return 0;
    return kEmptyKeyframes + index.Capacity() * FlvHead::kEntrySize + kSpacerHead;
}

uint32_t BodySize(const CFlvIndex& index) {
    return kAround + kProperties + IndexSize(index);
}

template <uint32_t N, typename Value>
void PutArray(ByteCursor& out, const char (&name)[N], const std::vector<CFlvIndex::Entry>& entries, Value value) {
    PutAmfKey(out, name).U8(kAmfStrictArray).BE32(static_cast<uint32_t>(entries.size()));
    for (const CFlvIndex::Entry& entry : entries)
        PutAmfNumber(out, value(entry));
}

}  // namespace

CFlvIndex::CFlvIndex(uint32_t capacity) : capacity_(std::min(capacity, FlvHead::kMostEntries)) {
    entries_.reserve(capacity_);
}

void CFlvIndex::Add(double time, uint64_t position) {
    if (capacity_ == 0 || offered_++ % stride_ != 0) return;
    if (entries_.size() == capacity_) {
        size_t kept = 0;
        for (size_t i = 0; i < entries_.size(); i += 2)
            entries_[kept++] = entries_[i];
        entries_.resize(kept);
        stride_ *= 2;
        if ((offered_ - 1) % stride_ != 0) return;
    }
    entries_.push_back({time, static_cast<double>(position)});
}

uint32_t FlvHead::Size(const CFlvIndex& index) {
    return kFlvFileHeaderSize + FlvTagSize(BodySize(index)) + kFlvPreviousTagSize;
}

void FlvHead::Write(ByteCursor& out, const CFlvIndex& index) const {
    const uint32_t body = BodySize(index);
    PutFlvFileHeader(out, static_cast<uint8_t>((has_video ? kFlvHasVideo : 0) | (has_audio ? kFlvHasAudio : 0)));
    PutFlvTagHeader(out, FlvTagType::Script, body, 0);
    PutAmfKey(out.U8(kAmfString), "onMetaData");
    out.U8(kAmfEcmaArray).BE32(kNumberOfNumbers + kNumberOfBooleans + (index.Capacity() != 0 ? 2 : 0));
    PutAmfNumber(out, "duration", duration);
    PutAmfNumber(out, "width", width);
    PutAmfNumber(out, "height", height);
    PutAmfNumber(out, "framerate", framerate);
    PutAmfNumber(out, "videocodecid", videocodecid);
    PutAmfNumber(out, "videodatarate", videodatarate);
    PutAmfNumber(out, "audiocodecid", audiocodecid);
    PutAmfNumber(out, "audiosamplerate", audiosamplerate);
    PutAmfNumber(out, "audiosamplesize", audiosamplesize);
    PutAmfNumber(out, "audiodatarate", audiodatarate);
    PutAmfNumber(out, "filesize", filesize);
    PutAmfNumber(out, "lasttimestamp", duration);
    PutAmfBoolean(out, "stereo", stereo);
    PutAmfBoolean(out, "hasVideo", has_video);
    PutAmfBoolean(out, "hasAudio", has_audio);
    if (index.Capacity() != 0) {
        const auto& entries = index.Entries();
        auto spare = static_cast<uint32_t>(kSpacerHead + (index.Capacity() - entries.size()) * kEntrySize);
        if (entries.empty()) {
            // Readers take an index without entries for one.
            spare += kEmptyKeyframes;
        } else {
            PutAmfKey(out, "keyframes").U8(kAmfObject);
            PutArray(out, "filepositions", entries, [](const auto& entry) { return entry.position; });
            PutArray(out, "times", entries, [](const auto& entry) { return entry.time; });
            out.BE24(kAmfObjectEnd);
        }
        // In pieces: readers do not take longer strings.
        while (spare != 0) {
            const uint32_t piece = spare > 2 * kSpacerHead + kSpacerPiece ? kSpacerPiece : spare - kSpacerHead;
            PutAmfKey(out, "spacer").U8(kAmfString).BE16(static_cast<uint16_t>(piece)).Fill(' ', piece);
            spare -= kSpacerHead + piece;
        }
    }
    out.BE24(kAmfObjectEnd);
    out.BE32(FlvTagSize(body));  // PreviousTagSize
}

}  // namespace Orvane::Muxora
