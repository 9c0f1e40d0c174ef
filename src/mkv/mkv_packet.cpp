#include "mkv/mkv_packet.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "codec/audio_measures.h"
#include "codec/audio_specific_config.h"
#include "codec/ebml.h"
#include "core/byte_writer.h"
#include "core/frame_kinds.h"
#include "mkv/mpeg4_header.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kWorkBufferSize = 0x200000;
constexpr uint32_t kIdSize = 4;             // of an element at the top of the file
constexpr uint32_t kSizeSize = 8;           // of a size in its 8-byte form
constexpr uint8_t kNoSize[kSizeSize] = {};  // until it is known
constexpr uint32_t kMasterHeadSize = kIdSize + kSizeSize;
constexpr uint32_t kVoidHeadSize = 1 + kSizeSize;
constexpr uint32_t kEbmlBodySize = 35;
constexpr uint32_t kEbmlHeaderSize = kMasterHeadSize + kEbmlBodySize;
constexpr uint32_t kSeekEntriesOffset = 5;  // behind the SeekHead's ID and its size of one byte
// Behind the SeekHead a second span of fixed size holds Info, Tracks and a Void that fills it up.
constexpr uint32_t kTracksSpan = 500;
constexpr uint32_t kTrackEntriesRoom = kTracksSpan - CSegInfo::kTotalSize - kMasterHeadSize - kVoidHeadSize;
constexpr uint32_t kClusterHeadSize = 16;  // ID, size and Timecode
constexpr uint32_t kTimecodeSize = 4;      // the Timecode element, the first bytes of a cluster's data
constexpr uint32_t kCuePointSize = 23;     // the whole element
constexpr uint32_t kCueTrackPositionsSize = 13;
// Readers rely on this: the size of a CuePoint counts the byte of the size, too.
constexpr uint32_t kCuePointBodySize = kCuePointSize - 1;

constexpr uint8_t kVideoTrack = 1;
constexpr uint8_t kAudioTrack = 2;
constexpr uint32_t kMillisecondsPerCluster = 1000;
constexpr uint64_t kAacFrameMilliseconds = 1024000;  // of a frame's 1024 samples, times the sample rate
constexpr uint32_t kMaxBitDepth = 16;

// Readers rely on this: the video names carry their terminating zero, the audio one does not.
constexpr char kAvcCodecId[] = "V_MPEG4/ISO/AVC";
constexpr char kMpeg4CodecId[] = "V_MPEG4/ISO/ASP";
constexpr std::string_view kAacCodecId = "A_AAC";

constexpr MXCapacityEntry kEncodeVideo[] = {{MX_VIDEO_H264_ALT, 0, 0, 0, {}}, {MX_VIDEO_MPEG4, 0, 0, 0, {}}};
constexpr MXCapacityEntry kEncodeAudio[] = {{MX_AUDIO_AAC, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecVideo[] = {{2, 0, 0, 0, {}}, {1, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecAudio[] = {{33, 0, 0, 0, {}}};

uint32_t WriteEbmlHeader(uint8_t (&out)[kEbmlHeaderSize]) {
    ByteCursor header(out);
    PutMaster(header, ElementId::kEbml, kEbmlBodySize);
    PutElement(header, ElementId::kEbmlVersion, 1).U8(1);
    PutElement(header, ElementId::kEbmlReadVersion, 1).U8(1);
    PutElement(header, ElementId::kEbmlMaxIdLength, 1).U8(4);
    PutElement(header, ElementId::kEbmlMaxSizeLength, 1).U8(8);
    PutElement(header, ElementId::kDocType, 8).Text("matroska");
    PutElement(header, ElementId::kDocTypeVersion, 1).U8(4);
    PutElement(header, ElementId::kDocTypeReadVersion, 1).U8(2);
    return header.Size();
}

}  // namespace

CMkvPacket::CMkvPacket(uint32_t format, const MXCreateParam* param)
    : CPackage(format, param), work_(AllocateLarge(kWorkBufferSize)) {
}

uint32_t CMkvPacket::init() {
    elements_.emplace();
    return MX_OK;
}

uint32_t CMkvPacket::createHeader(MXHeaderInfo* /*info*/, uint32_t /*unused*/) {
    const CMXAutoMutexLock lock(mutex_);
    if (work_ == nullptr || !elements_) return MX_FAILED;

    uint8_t ebml[kEbmlHeaderSize];
    Emit(ebml, WriteEbmlHeader(ebml));
    EmitId(ElementId::kSegment);
    segment_size_position_ = static_cast<uint32_t>(position_);
    Emit(kNoSize, sizeof kNoSize);
    segment_position_ = static_cast<uint32_t>(position_);
    uint8_t seek_head[CMetaseekBox::kTotalSize];
    Emit(seek_head, elements_->seek_head.WriteAll(seek_head));
    info_position_ = static_cast<uint32_t>(position_);
    uint8_t info[CSegInfo::kTotalSize];
    Emit(info, elements_->info.WriteAll(info));
    tracks_position_ = static_cast<uint32_t>(position_);
    uint8_t tracks[kIdSize];
    Emit(tracks, elements_->tracks.WriteId(tracks));
    position_ += kSizeSize;  // the tail fills it in
    first_cluster_position_ = segment_position_ + elements_->seek_head.GetTotalSize() + kTracksSpan;
    if (cluster_index_ == 0) cluster_.position = first_cluster_position_;
    return MX_OK;
}

uint32_t CMkvPacket::inputFrame(MXFrameInfo* frame, uint32_t /*reserved*/) {
    const CMXAutoMutexLock lock(mutex_);
    if (!HasData(frame)) return MX_FAILED;
    if (!checkFrame(frame)) return MX_FRAME_REFUSED;
    if (!elements_) return MX_OK;
    if (work_ == nullptr) return MX_NO_RESOURCES;
    return frame->frame_type == MX_FRAME_VIDEO ? InputVideo(*frame) : InputAudio(*frame);
}

uint32_t CMkvPacket::InputVideo(MXFrameInfo& frame) {
    const bool opens = !has_video_ && IsSyncFrame(frame.frame_sub_type);
    const bool taken = opens || (has_video_ && frame.encode_type == video_codec_);
    const bool is_avc = IsH264(frame.encode_type);
    // The configuration of an MPEG-4 stream moves out of its first key frame into the track entry.
    std::span<const uint8_t> header;
    if (opens && !is_avc) header = FindMpeg4Header(FrameBytes(frame), frame.frame_size);
    const auto header_size = static_cast<uint32_t>(header.size());
    // Asked before anything changes, the caller's frame included.
    if (taken && !Fits(frame.frame_sub_type, frame.frame_size - header_size)) return MX_FAILED;

    // Parameter sets are gathered from frames ahead of the first key frame, too. A frame that makes a block is copied
    // to its place there on the way; the others leave the last block where it is.
    uint8_t* in_place = nullptr;
    if (is_avc) {
        if (taken && CClusters::IsBlockKind(frame.frame_sub_type)) {
            in_place = work_.get() + CClusters::HeadSize(frame.frame_size);
        }
        avc_.ScanAvcFrame(static_cast<uint8_t*>(frame.frame_pointer), frame.frame_size, in_place);
    }
    if (!taken) return MX_OK;
    if (opens) {
        if (!OpenVideoTrack(frame, header)) return MX_FAILED;
        frame.frame_pointer = static_cast<uint8_t*>(frame.frame_pointer) + header_size;
        frame.frame_size -= header_size;
    }

    const uint32_t frame_rate = frame.frame_rate;
    if (frame_rate != 0 && video_frames_ % frame_rate == 0) StartCluster();
    // In 32 bits: when the rate rises in the middle of a recording this falls below zero and wraps.
    const uint32_t number = static_cast<uint32_t>(video_frames_) - cluster_index_ * frame_rate;
    const uint32_t time = frame_rate == 0 ? 0 : number * kMillisecondsPerCluster / frame_rate;
    if (IsSyncFrame(frame.frame_sub_type)) {
        last_key_time_ = uint64_t{time} + cluster_.timecode;
        AddCue(time);
    }
    ++video_frames_;
    const uint8_t* const bytes = in_place != nullptr ? in_place : FrameBytes(frame);
    WriteBlock(kVideoTrack, {bytes, frame.frame_size, frame.frame_sub_type, static_cast<uint16_t>(time)});
    return MX_OK;
}

uint32_t CMkvPacket::InputAudio(const MXFrameInfo& frame) {
    if (!has_video_) return MX_OK;
    if (!has_audio_ && !OpenAudioTrack(frame)) return MX_FAILED;
    if (frame.encode_type != audio_codec_) return MX_OK;

    ++audio_frames_;
    // Readers rely on this: the first time counts from the start of the file. The others count from the
    // cluster, on a clock of their own.
    uint64_t time = last_key_time_;
    if (audio_frames_ > 1) {
        const uint64_t elapsed = (audio_frames_ - 1) * kAacFrameMilliseconds;
        time = (frame.samples_per_sec == 0 ? 0 : elapsed / frame.samples_per_sec) - cluster_.timecode;
    }
    // Without a sound header the block has no data.
    const std::span<const uint8_t> payload = AdtsPayload(FrameBytes(frame), frame.frame_size);
    WriteBlock(kAudioTrack,
               {payload.data(), static_cast<uint32_t>(payload.size()), MX_FRAME_AUDIO, static_cast<uint16_t>(time)});
    return MX_OK;
}

// False, with nothing changed, if the track entry does not fit its span.
bool CMkvPacket::OpenVideoTrack(const MXFrameInfo& frame, std::span<const uint8_t> mpeg4_header) {
    MkvTrackInfo info;
    info.number = kVideoTrack;
    info.frame_rate = frame.frame_rate;
    info.width = static_cast<uint16_t>(frame.width);
    info.height = static_cast<uint16_t>(frame.height);
    info.codec_id = {kMpeg4CodecId, sizeof kMpeg4CodecId};
    info.codec_private = mpeg4_header;
    uint8_t avc_configuration[CAvcRecord::kMaxConfiguration];
    if (IsH264(frame.encode_type)) {
        info.codec_id = {kAvcCodecId, sizeof kAvcCodecId};
        info.codec_private = {avc_configuration, avc_.WriteConfiguration(avc_configuration)};
    }
    const uint64_t entry_size = CTracks::EntrySize(MkvTrackKind::kVideo, info);
    if (entry_size > kTrackEntriesRoom) return false;

    elements_->video.SetTrackInfo(MkvTrackKind::kVideo, &info);
    video_entry_size_ = entry_size;
    video_codec_ = frame.encode_type;
    has_video_ = true;
    return true;
}

// False, with nothing changed, if the track entry does not fit behind that of the video.
bool CMkvPacket::OpenAudioTrack(const MXFrameInfo& frame) {
    uint8_t adts[4] = {};  // a frame may be shorter than that
    std::memcpy(adts, frame.frame_pointer, std::min<size_t>(frame.frame_size, sizeof adts));
    uint8_t configuration[2];
    PutBE16(configuration, AudioSpecificConfigFromAdts(adts));
    MkvTrackInfo info;
    info.number = kAudioTrack;
    info.codec_id = kAacCodecId;
    info.codec_private = configuration;
    info.channels = static_cast<uint8_t>(frame.channels);
    info.bit_depth = static_cast<uint8_t>(std::min(frame.bits_per_sample, kMaxBitDepth));
    info.sample_rate = frame.samples_per_sec;
    if (video_entry_size_ + CTracks::EntrySize(MkvTrackKind::kAudio, info) > kTrackEntriesRoom) return false;

    elements_->audio.SetTrackInfo(MkvTrackKind::kAudio, &info);
    audio_codec_ = frame.encode_type;
    has_audio_ = true;
    return true;
}

void CMkvPacket::StartCluster() {
    if (video_frames_ != 0) {
        // Readers rely on this: positions have 32 bits. A file of 4 GiB goes on at its start.
        const uint32_t position = cluster_.position + static_cast<uint32_t>(cluster_.total);
        finished_clusters_ += cluster_.total;
        cluster_ = {};
        cluster_.position = position;
        ++cluster_index_;
    }
    cluster_.begun = true;
    cluster_.timecode = static_cast<uint16_t>(cluster_index_ * kMillisecondsPerCluster);
    position_ = cluster_.position;
    EmitId(ElementId::kCluster);
    cluster_.size_position = static_cast<uint32_t>(position_);
    Emit(kNoSize, sizeof kNoSize);
    uint8_t timecode[kTimecodeSize];
    ByteCursor out(timecode);
    PutElement(out, ElementId::kTimecode, sizeof cluster_.timecode).BE16(cluster_.timecode);
    Emit(timecode, 1);
    Emit(timecode + 1, 1);
    Emit(timecode + 2, 2);
}

// What comes behind the last row is not entered; players then seek to the last cue and read on.
void CMkvPacket::AddCue(uint32_t relative_time) {
    if (cue_count_ == kMaxCues) return;
    cues_[cue_count_++] = {cluster_.position, relative_time + cluster_index_ * kMillisecondsPerCluster,
                           static_cast<uint16_t>(cluster_.total + kTimecodeSize)};
}

// Is the work buffer large enough? A frame of a kind that makes no block repeats the last one, which had it.
bool CMkvPacket::Fits(uint32_t kind, uint32_t data_length) {
    return !CClusters::IsBlockKind(kind) || CClusters::BlockSize(data_length) <= kWorkBufferSize;
}

void CMkvPacket::WriteBlock(uint8_t track, const MkvBlock& block) {
    elements_->clusters.SetFrame(track, &block);
    const uint32_t length = elements_->clusters.WriteBody(work_.get());
    Emit(work_.get(), length);
    cluster_.data += length;
    if (cluster_.begun) EmitSize8(cluster_.data + kTimecodeSize, cluster_.size_position);
    cluster_.total = cluster_.data + kClusterHeadSize;
}

uint32_t CMkvPacket::createTailer(const void* /*info*/, uint32_t /*unused*/) {
    const CMXAutoMutexLock lock(mutex_);
    if (work_ == nullptr || !elements_) return MX_FAILED;

    // Ahead of everything else: when there is no memory for it, nothing has gone out.
    const std::vector<uint8_t> cues = ComposeCues();
    WriteTrackEntries();
    const uint64_t clusters = finished_clusters_ + cluster_.total;
    const uint64_t cues_position = first_cluster_position_ + clusters;
    uint8_t seek[CMetaseekBox::kBodySize];
    // Readers rely on this: a SeekPosition counts from where the Segment's data stands behind a head that was written
    // whole, also when the callback took less of it.
    constexpr uint32_t kSeekBase = kEbmlHeaderSize + kMasterHeadSize;
    const uint32_t seek_size = WriteSeekEntries(seek, info_position_ - kSeekBase, tracks_position_ - kSeekBase,
                                                static_cast<uint32_t>(cues_position - kSeekBase));
    EmitAt(seek, seek_size, uint64_t{segment_position_} + kSeekEntriesOffset);
    EmitAt(cues.data(), static_cast<uint32_t>(cues.size()), cues_position);
    EmitSize8(clusters + cues.size() + CMetaseekBox::kTotalSize + kTracksSpan, segment_size_position_);
    return MX_OK;
}

void CMkvPacket::WriteTrackEntries() {
    uint8_t entries[2 * CTracks::kMaxEntrySize];
    uint32_t size = 0;
    if (has_video_) size += elements_->video.WriteBody(entries);
    if (has_audio_) size += elements_->audio.WriteBody(entries + size);
    const uint64_t position = uint64_t{tracks_position_} + kMasterHeadSize;
    EmitAt(entries, size, position);
    EmitSize8(size, position - kSizeSize);

    constexpr auto kVoid = static_cast<uint8_t>(ElementId::kVoid);
    EmitAt(&kVoid, 1, position + size);
    EmitSize8(kTrackEntriesRoom - size, position + size + 1);
}

std::vector<uint8_t> CMkvPacket::ComposeCues() const {
    std::vector<uint8_t> bytes(kMasterHeadSize + size_t{cue_count_} * kCuePointSize);
    const auto size = static_cast<uint32_t>(bytes.size());
    ByteCursor out(bytes.data(), size);
    PutMaster(out, ElementId::kCues, size - kMasterHeadSize);
    for (uint32_t i = 0; i < cue_count_; ++i) {
        PutElement(out, ElementId::kCuePoint, kCuePointBodySize);
        PutElement(out, ElementId::kCueTime, 4).BE32(cues_[i].time);
        PutElement(out, ElementId::kCueTrackPositions, kCueTrackPositionsSize);
        PutElement(out, ElementId::kCueTrack, 1).U8(kVideoTrack);
        // Readers rely on this: the position counts from the start of the file, not of the Segment's data.
        PutElement(out, ElementId::kCueClusterPosition, 4).BE32(cues_[i].cluster_position);
        PutElement(out, ElementId::kCueRelativePosition, 2).BE16(cues_[i].relative_position);
    }
    return bytes;
}

uint32_t CMkvPacket::getBackup(MXOutputBlock* /*block*/) {
    return 0;
}

bool CMkvPacket::checkFrame(const MXFrameInfo* frame) const {
    if (frame->frame_type == MX_FRAME_VIDEO) {
        return IsH264(frame->encode_type) || frame->encode_type == MX_VIDEO_MPEG4;
    }
    return frame->frame_type == MX_FRAME_AUDIO && frame->encode_type == MX_AUDIO_AAC;
}

uint32_t CMkvPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CMkvPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

void CMkvPacket::Emit(const void* data, uint32_t length) {
    position_ += EmitAt(data, length, position_);
}

void CMkvPacket::EmitId(ElementId id) {
    uint8_t bytes[kIdSize];
    Emit(bytes, PutBE32(bytes, static_cast<uint32_t>(id)));
}

void CMkvPacket::EmitSize8(uint64_t size, uint64_t position) {
    uint8_t bytes[kSizeSize];
    EmitAt(bytes, PutBE64(bytes, EbmlSize8(size)), position);
}

}  // namespace Orvane::Muxora
