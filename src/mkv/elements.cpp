#include "mkv/elements.h"

#include <cstring>

#include "MuxoraAPI.h"
#include "codec/ebml.h"
#include "core/byte_writer.h"
#include "core/clock.h"
#include "core/frame_kinds.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kIdSize = 4;           // of an element at the top of the file
constexpr uint32_t kMasterHeadSize = 12;  // such an ID and an 8-byte size
constexpr uint32_t kEntryHeadSize = 9;    // TrackEntry: an ID of one byte and an 8-byte size
constexpr uint32_t kSeekSize = 14;        // body of a Seek element
constexpr uint32_t kVoidSize = 435;       // what fills the SeekHead up to its total size
constexpr uint32_t kInfoBodySize = 50;
constexpr uint32_t kTimecodeScale = 1000000;  // ns in a unit of time: milliseconds
constexpr uint8_t kBlockHeadSize = 4;         // track, timecode and flags of a SimpleBlock
constexpr uint8_t kTrackMarker = 0x80;        // a track number is coded like a size
constexpr uint8_t kKeyFrameFlag = 0x80;
constexpr uint32_t kVideoBodySize = 8;
constexpr uint32_t kAudioBodySize = 17;
constexpr double kNanosecondsPerSecond = 1000000000.0;
constexpr char kApplication[] = "Lavf55.33.100";
constexpr char kUndefinedLanguage[] = "und";
constexpr std::string_view kAacCodecId = "A_AAC";

uint32_t WriteTopId(uint8_t* out, ElementId id) {
    if (out == nullptr) return MX_FAILED;
    return PutBE32(out, static_cast<uint32_t>(id));
}

ByteCursor& PutSeek(ByteCursor& out, ElementId target, uint32_t position) {
    PutElement(out, ElementId::kSeek, kSeekSize);
    PutElement(out, ElementId::kSeekId, 4).BE32(static_cast<uint32_t>(target));
    return PutElement(out, ElementId::kSeekPosition, 4).BE32(position);
}

bool HasCodecPrivate(MkvTrackKind kind, std::string_view codec_id) {
    return kind == MkvTrackKind::kVideo || codec_id.starts_with(kAacCodecId);
}

uint32_t DefaultDuration(uint32_t frame_rate) {
    return frame_rate == 0 ? 0 : static_cast<uint32_t>(kNanosecondsPerSecond / frame_rate);
}

void PutVideoEntry(ByteCursor& out, const MkvTrackInfo& info) {
    PutElement(out, ElementId::kTrackNumber, 1).U8(info.number);
    PutElement(out, ElementId::kTrackUid, 1).U8(1);
    PutElement(out, ElementId::kTrackType, 1).U8(static_cast<uint8_t>(MkvTrackKind::kVideo));
    PutElement(out, ElementId::kCodecId, info.codec_id.size())
        .Bytes(info.codec_id.data(), static_cast<uint32_t>(info.codec_id.size()));
    PutElement(out, ElementId::kDefaultDuration, 4).BE32(DefaultDuration(info.frame_rate));
    PutElement(out, ElementId::kLanguage, 3).Text(kUndefinedLanguage);
    PutElement(out, ElementId::kCodecPrivate, info.codec_private.size())
        .Bytes(info.codec_private.data(), static_cast<uint32_t>(info.codec_private.size()));
    PutElement(out, ElementId::kVideo, kVideoBodySize);
    PutElement(out, ElementId::kPixelWidth, 2).BE16(info.width);
    PutElement(out, ElementId::kPixelHeight, 2).BE16(info.height);
}

void PutAudioEntry(ByteCursor& out, const MkvTrackInfo& info) {
    PutElement(out, ElementId::kTrackNumber, 1).U8(info.number);
    PutElement(out, ElementId::kTrackUid, 1).U8(2);
    PutElement(out, ElementId::kFlagLacing, 1).U8(0);
    PutElement(out, ElementId::kTrackType, 1).U8(static_cast<uint8_t>(MkvTrackKind::kAudio));
    PutElement(out, ElementId::kCodecId, info.codec_id.size())
        .Bytes(info.codec_id.data(), static_cast<uint32_t>(info.codec_id.size()));
    PutElement(out, ElementId::kLanguage, 3).Text(kUndefinedLanguage);
    if (HasCodecPrivate(MkvTrackKind::kAudio, info.codec_id)) {
        PutElement(out, ElementId::kCodecPrivate, info.codec_private.size())
            .Bytes(info.codec_private.data(), static_cast<uint32_t>(info.codec_private.size()));
    }
    PutElement(out, ElementId::kAudio, kAudioBodySize);
    PutElement(out, ElementId::kSamplingFrequency, 8).BEDouble(info.sample_rate);
    PutElement(out, ElementId::kChannels, 1).U8(info.channels);
    PutElement(out, ElementId::kBitDepth, 1).U8(info.bit_depth);
}

}  // namespace

// ------------------------------------------------------------------------------------------------ CBasicatom

uint32_t CBasicatom::WriteAll(uint8_t* out) {
    if (out == nullptr) return MX_FAILED;
    const uint32_t id_size = WriteId(out);
    return id_size + WriteBody(out + id_size);
}

uint32_t CBasicatom::WriteId(uint8_t* out) {
    if (out == nullptr) return MX_FAILED;
    return PutBE32(out, 0);
}

// ---------------------------------------------------------------------------------------------- CMetaseekBox

uint32_t CMetaseekBox::WriteAll(uint8_t* out) {
    if (out == nullptr) return MX_FAILED;
    ByteCursor box(out, kTotalSize);
    PutElement(box, ElementId::kSeekHead, kBodySize);
    uint8_t entries[kBodySize];
    box.Bytes(entries, WriteBody(entries));
    PutMaster(box, ElementId::kVoid, kVoidSize).Zeros(kVoidSize);
    if (box.Size() != kTotalSize) return MX_FAILED;
    return kTotalSize;
}

uint32_t CMetaseekBox::WriteBody(uint8_t* out) {
    return WriteSeekEntries(out, 0, 0, 0);
}

uint32_t WriteSeekEntries(uint8_t* out, uint32_t info_position, uint32_t tracks_position, uint32_t cues_position) {
    if (out == nullptr) return MX_FAILED;
    ByteCursor body(out, CMetaseekBox::kBodySize);
    PutSeek(body, ElementId::kInfo, info_position);
    PutSeek(body, ElementId::kTracks, tracks_position);
    PutSeek(body, ElementId::kCues, cues_position);
    return body.Size();
}

// -------------------------------------------------------------------------------------------------- CSegInfo

uint32_t CSegInfo::WriteAll(uint8_t* out) {
    if (out == nullptr) return MX_FAILED;
    ByteCursor info(out, kTotalSize);
    PutMaster(info, ElementId::kInfo, kInfoBodySize);
    PutElement(info, ElementId::kTimecodeScale, 3).BE24(kTimecodeScale);
    // Readers rely on this: seconds since 1970, not the nanoseconds since 2001 of the format.
    PutElement(info, ElementId::kDateUtc, 8).BE64(static_cast<uint64_t>(CurrentTime()));
    PutElement(info, ElementId::kMuxingApp, sizeof kApplication - 1).Text(kApplication);
    PutElement(info, ElementId::kWritingApp, sizeof kApplication - 1).Text(kApplication);
    body_size_ = info.Size() - kMasterHeadSize;
    return info.Size();
}

uint32_t CSegInfo::GetTotalSize() {
    total_size_ = body_size_ + kMasterHeadSize;
    return total_size_;
}

// ------------------------------------------------------------------------------------------------- CClusters

uint64_t CClusters::BlockSize(uint32_t data_length) {
    const uint64_t size = uint64_t{data_length} + kBlockHeadSize;
    return 1 + EbmlCodeLength(size) + size;
}

bool CClusters::IsBlockKind(uint32_t kind) {
    return IsSyncFrame(kind) || kind == MX_SUB_P || kind == MX_SUB_B || kind == MX_SUB_LAYERED_P;
}

void CClusters::SetFrame(uint8_t track, const MkvBlock* block) {
    if (block == nullptr || !IsBlockKind(block->kind)) return;
    has_block_ = true;
    block_ = *block;
    track_ = track | kTrackMarker;
    // Readers rely on this: a bi-predicted picture shares its number with audio and is flagged as a key frame, too.
    flags_ = IsSyncFrame(block->kind) || block->kind == MX_SUB_B ? kKeyFrameFlag : 0;
}

uint32_t CClusters::GetTotalSize() {
    total_size_ = body_size_ + kIdSize;
    return total_size_;
}

uint32_t CClusters::WriteId(uint8_t* out) {
    return WriteTopId(out, ElementId::kCluster);
}

uint32_t CClusters::WriteBody(uint8_t* out) {
    if (out == nullptr) return MX_FAILED;
    if (has_block_) {
        last_block_length_ = static_cast<uint32_t>(BlockSize(block_.length));
        const uint32_t head_size = HeadSize(block_.length);
        // The data first: when it is that of an earlier write, the head may go over it.
        uint8_t* const data = out + head_size;
        if (block_.length != 0 && block_.data != data) std::memmove(data, block_.data, block_.length);
        block_.data = data;
        ByteCursor head(out, head_size);
        PutElement(head, ElementId::kSimpleBlock, uint64_t{block_.length} + kBlockHeadSize);
        head.U8(track_).BE16(block_.timecode).U8(flags_);
    }
    AddBodySize();
    return last_block_length_;
}

// --------------------------------------------------------------------------------------------------- CTracks

uint64_t CTracks::EntrySize(MkvTrackKind kind, const MkvTrackInfo& info) {
    if (kind == MkvTrackKind::kNone) return kEntryHeadSize;
    const auto leaf_size = [](uint32_t id_size, uint64_t size) { return id_size + EbmlCodeLength(size) + size; };
    uint64_t size = kEntryHeadSize + 3 + 4 + 3 + 7;  // TrackNumber, TrackUID, TrackType, Language
    size += leaf_size(1, info.codec_id.size());
    if (HasCodecPrivate(kind, info.codec_id)) size += leaf_size(2, info.codec_private.size());
    if (kind == MkvTrackKind::kVideo) return size + 8 + 2 + kVideoBodySize;  // DefaultDuration, Video
    return size + 3 + 2 + kAudioBodySize;                                    // FlagLacing, Audio
}

void CTracks::SetTrackInfo(MkvTrackKind kind, const MkvTrackInfo* info) {
    kind_ = kind;
    info_ = {};
    if (info == nullptr) return;
    info_ = *info;
    const auto codec_id_size = info->codec_id.size() <= kMaxCodecId ? info->codec_id.size() : 0;
    info->codec_id.copy(codec_id_, codec_id_size);
    info_.codec_id = {codec_id_, codec_id_size};
    const auto private_size = info->codec_private.size() <= kMaxCodecPrivate ? info->codec_private.size() : 0;
    if (private_size != 0) std::memcpy(codec_private_, info->codec_private.data(), private_size);
    info_.codec_private = {codec_private_, private_size};
}

uint32_t CTracks::GetTotalSize() {
    total_size_ = body_size_ + kMasterHeadSize;
    return total_size_;
}

uint32_t CTracks::WriteId(uint8_t* out) {
    return WriteTopId(out, ElementId::kTracks);
}

uint32_t CTracks::WriteBody(uint8_t* out) {
    if (out == nullptr) return MX_FAILED;
    ByteCursor entry(out, kMaxEntrySize);
    PutMaster(entry, ElementId::kTrackEntry, 0);
    if (kind_ == MkvTrackKind::kVideo) PutVideoEntry(entry, info_);
    if (kind_ == MkvTrackKind::kAudio) PutAudioEntry(entry, info_);
    entry_length_ = entry.Size();
    PutBE64(out + 1, EbmlSize8(entry_length_ - kEntryHeadSize));
    AddBodySize();
    return entry_length_;
}

}  // namespace Orvane::Muxora
