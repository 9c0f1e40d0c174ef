#include "exact/xmkv_packet.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "codec/annexb.h"
#include "codec/audio_header.h"
#include "codec/wave_tag.h"
#include "core/frame_kinds.h"
#include "exact/ebml_tree.h"
#include "exact/rescale.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kScale = 1000000000 / MkvHead::kTimestampScale;
constexpr int64_t kNanosecondsPerTick = MkvHead::kTimestampScale;
constexpr int64_t kLongestCluster = 5 * int64_t{kScale};
constexpr int64_t kLongestWait = kScale;
constexpr uint32_t kMostWaiting = 8u << 20;  // bytes
constexpr uint32_t kLargestFrame = 0x0C000000;
constexpr size_t kFirstCues = 4096;

constexpr uint32_t kSizeSize = 8;
constexpr uint32_t kClusterHeadSize = 4 + kSizeSize;
constexpr uint32_t kTimestampSize = 1 + 1 + 8;
constexpr uint32_t kBlockHeadSize = 4;        // track, time, flags
constexpr uint32_t kElementHeadSize = 1 + 4;  // an ID of one byte, a size of four
constexpr uint32_t kBlockDurationSize = 1 + 1 + 4;
constexpr uint32_t kReferenceSize = 1 + 1 + 8;
constexpr uint32_t kSizeMarker4 = 0x10000000;
constexpr uint8_t kKeyFlag = 0x80;

constexpr MXCapacityEntry kEncodeVideo[] = {{MX_VIDEO_H264_ALT, 0, 0, 0, {}},
                                            {MX_VIDEO_H265, 0, 0, 0, {}},
                                            {MX_VIDEO_MPEG4, 0, 0, 0, {}},
                                            {MX_VIDEO_MJPEG, 0, 0, 0, {}}};
constexpr MXCapacityEntry kEncodeAudio[] = {{MX_AUDIO_AAC, 0, 0, 0, {}},  {MX_AUDIO_MPEG, 0, 0, 0, {}},
                                            {MX_AUDIO_ALAW, 0, 0, 0, {}}, {MX_AUDIO_MULAW, 0, 0, 0, {}},
                                            {MX_AUDIO_PCM8, 0, 0, 0, {}}, {MX_AUDIO_PCM16, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecVideo[] = {{2, 0, 0, 0, {}}, {5, 0, 0, 0, {}}, {1, 0, 0, 0, {}}, {3, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecAudio[] = {{33, 0, 0, 0, {}}, {38, 0, 0, 0, {}}, {28, 0, 0, 0, {}},
                                           {31, 0, 0, 0, {}}, {21, 0, 0, 0, {}}, {30, 0, 0, 0, {}}};

// The name of a codec whose frames need no look inside; empty for the others.
std::string_view PictureCodecId(uint32_t encode_type) {
    if (IsAvc(encode_type)) return "V_MPEG4/ISO/AVC";
    switch (encode_type) {
        case MX_VIDEO_H265:
            return "V_MPEGH/ISO/HEVC";
        case MX_VIDEO_MPEG4:
            return "V_MPEG4/ISO/ASP";
        case MX_VIDEO_MJPEG:
            return "V_MJPEG";
        default:
            return {};
    }
}

bool IsSound(uint32_t encode_type) {
    return std::ranges::any_of(kEncodeAudio, [=](const MXCapacityEntry& entry) { return entry.codec == encode_type; });
}

// WAVEFORMATEX of a codec with one byte a sample.
std::vector<uint8_t> WaveFormat(uint16_t tag, uint32_t channels, uint32_t rate) {
    uint8_t area[18];
    ByteCursor out(area);
    out.LE16(tag)                               // wFormatTag
        .LE16(static_cast<uint16_t>(channels))  // nChannels
        .LE32(rate)                             // nSamplesPerSec
        .LE32(rate * channels)                  // nAvgBytesPerSec
        .LE16(static_cast<uint16_t>(channels))  // nBlockAlign
        .LE16(8)                                // wBitsPerSample
        .LE16(0);                               // cbSize
    return {area, area + out.Size()};
}

// Nanoseconds of what a frame's record gives as its duration.
uint64_t Nanoseconds(const MXFrameInfo& frame) {
    const auto times = ReadFrameTimes(frame);
    if (!times || times->duration <= 0) return 0;
    return static_cast<uint64_t>(std::max<int64_t>(Rescale(times->duration, times->time_scale, 1000000000), 0));
}

// Nanoseconds that the first frame of sound lies ahead of 0, which are finer than its ticks where the record has them.
uint64_t CodecDelay(const MXFrameInfo& frame, const FrameTime& time) {
    const auto times = ReadFrameTimes(frame);
    const bool as_given = times && Rescale(times->pts, times->time_scale, kScale) == time.pts;
    return static_cast<uint64_t>(as_given ? -Rescale(times->pts, times->time_scale, 1000000000)
                                          : -time.pts * kNanosecondsPerTick);
}

}  // namespace

CXmkvPacket::CXmkvPacket(uint32_t format, const MXCreateParam* param) : CExactPackage(format, param, kScale) {
    cues_.reserve(kFirstCues);
}

uint32_t CXmkvPacket::createHeader(MXHeaderInfo* info, uint32_t unused) {
    const uint32_t result = CExactPackage::createHeader(info, unused);
    if (result != MX_OK || started_) return result;
    with_head_ = true;
    if (info != nullptr && (info->video_present != 0 || info->audio_present != 0)) {
        expects_video_ = info->video_present != 0;
        expects_audio_ = info->audio_present != 0;
    }
    return MX_OK;
}

bool CXmkvPacket::checkFrame(const MXFrameInfo* frame) const {
    if (frame->frame_type == MX_FRAME_VIDEO) return !PictureCodecId(frame->encode_type).empty();
    return frame->frame_type == MX_FRAME_AUDIO && IsSound(frame->encode_type);
}

uint32_t CXmkvPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CXmkvPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

// ------------------------------------------------------------------------------------------------- frames

uint32_t CXmkvPacket::PackVideo(const MXFrameInfo& frame) {
    const bool key = IsKeyFrame(frame.frame_sub_type);
    const uint32_t codec = IsAvc(frame.encode_type) ? uint32_t{MX_VIDEO_H264} : frame.encode_type;
    const bool opens = !video_.track;
    if (frame.frame_size > kLargestFrame) return MX_FRAME_REFUSED;
    // Another codec, or a track that came too late.
    if (opens ? started_ : codec != video_.codec) return MX_FRAME_REFUSED;
    Begin();
    const auto found = config_.Take(frame);
    if (!found) return MX_FAILED;
    if (opens && !key) return MX_FRAME_REFUSED;
    if (!found->has_picture) return MX_OK;
    if (!config_.Complete()) return MX_FRAME_REFUSED;

    const FrameTime time = VideoTime(frame, config_.ReorderDepth());
    if (time.pts < std::numeric_limits<int16_t>::min()) return MX_FRAME_REFUSED;
    const bool in_band = config_.Changed() ? !opens : sets_in_band_;
    if (opens) {
        before_.opened = &video_;
        video_.codec = codec;
        OpenVideo(frame, time);
    }
    const auto taken = [&](uint32_t result) {
        if (result == MX_OK) {
            config_.Told();
            sets_in_band_ = in_band;
        }
        return result;
    };
    const Block block{MkvHead::kVideoTrack, key, time};
    const uint8_t* const bytes = FrameBytes(frame);
    const uint32_t size = frame.frame_size;
    if (!config_.IsNal()) {
        return taken(Put(block, size, [=](uint8_t* out, uint32_t) {
            std::memcpy(out, bytes, size);
            return size;
        }));
    }
    const bool add_sets = key && in_band && !found->has_parameter_sets;
    const uint32_t sets_size = add_sets ? config_.Sets().UnitsSize() : 0;
    // Start codes of three bytes become lengths of four.
    const uint32_t bound = sets_size + size + size / 3 + 4;
    return taken(Put(block, bound, [&](uint8_t* out, uint32_t room) {
        if (add_sets) {
            ByteCursor sets(out, sets_size);
            config_.Sets().WriteLengthPrefixed(sets);
        }
        return sets_size + AnnexBToLengthPrefixed(bytes, size, out + sets_size, room - sets_size);
    }));
}

// A frame begins.
void CXmkvPacket::Begin() {
    before_ = {nullptr, first_time_, waiting_.size(), front_.Size()};
}

void CXmkvPacket::Forget(bool picture) {
    if (picture) config_.Undo();
    if (before_.opened != nullptr) *before_.opened = {};
    first_time_ = before_.first_time;
    if (waiting_.size() > before_.waiting) waiting_.resize(before_.waiting);
    if (front_.Size() > before_.front) front_.Shrink(front_.Size() - before_.front);
}

uint32_t CXmkvPacket::PackAudio(const MXFrameInfo& frame, const AudioMeasure& measure) {
    const bool opens = !audio_.track;
    if (frame.frame_size > kLargestFrame) return MX_FRAME_REFUSED;
    if (opens ? started_ : frame.encode_type != audio_.codec) return MX_FRAME_REFUSED;
    std::span<const uint8_t> bytes(FrameBytes(frame), frame.frame_size);
    const bool aac = frame.encode_type == MX_AUDIO_AAC;
    if (aac && !measure.adts) return MX_FAILED;
    if (frame.encode_type == MX_AUDIO_MPEG && !ReadMpegAudioHeader(bytes)) return MX_FAILED;

    Begin();
    FrameTime time = AudioTime(frame, measure);
    if (opens) {
        before_.opened = &audio_;
        OpenAudio(frame, measure, time);
    }
    const auto put = [&](std::span<const uint8_t> data) {
        return Put({MkvHead::kAudioTrack, true, time}, static_cast<uint32_t>(data.size()), [=](uint8_t* out, uint32_t) {
            std::memcpy(out, data.data(), data.size());
            return static_cast<uint32_t>(data.size());
        });
    };
    if (!aac) return put(bytes);
    // A block for each of the frames; what stands behind the last whole one is left out.
    const uint32_t blocks = measure.samples / kLeastAdtsSamples;
    if (blocks > 1) {
        // A frame is whole or not there.
        work_.Reset();
        if (work_.Reserve(BlockRoom(frame.frame_size)) != MX_OK) return MX_NO_RESOURCES;
        ReserveCues(blocks);
    }
    const FrameTime whole = time;
    int64_t samples = 0;
    for (auto adts = measure.adts; adts; adts = ReadAdtsHeader(bytes)) {
        time.dts = whole.dts + Rescale(samples, adts->sample_rate, kScale);
        time.pts = whole.pts + (time.dts - whole.dts);
        samples += adts->samples;
        const bool alone = adts->frame_size == bytes.size() && samples == adts->samples;
        if (!alone) time.duration = whole.dts + Rescale(samples, adts->sample_rate, kScale) - time.dts;
        const uint32_t result = put(bytes.subspan(adts->header_size, adts->frame_size - adts->header_size));
        if (result != MX_OK) return result;
        bytes = bytes.subspan(adts->frame_size);
    }
    return MX_OK;
}

void CXmkvPacket::OpenVideo(const MXFrameInfo& frame, const FrameTime& time) {
    MkvTrack& track = video_.track.emplace();
    track.codec_id = PictureCodecId(frame.encode_type);
    track.video = config_.Details(frame);
    track.rotation = frame.rotation_angle;
    track.default_duration = Nanoseconds(frame);
    if (config_.IsNal()) {
        track.codec_private.resize(config_.Sets().ConfigurationSize());
        ByteCursor out(track.codec_private.data(), static_cast<uint32_t>(track.codec_private.size()));
        config_.Sets().WriteConfiguration(out);
    } else {
        track.codec_private.assign(config_.Mpeg4Headers().begin(), config_.Mpeg4Headers().end());
    }
    video_.next = time.dts;
    if (!first_time_) first_time_ = time.dts;
}

void CXmkvPacket::OpenAudio(const MXFrameInfo& frame, const AudioMeasure& measure, const FrameTime& time) {
    MkvTrack& track = audio_.track.emplace();
    audio_.codec = frame.encode_type;
    track.sample_rate = measure.sample_rate;
    track.channels = measure.channels;
    const std::span<const uint8_t> bytes(FrameBytes(frame), frame.frame_size);
    switch (frame.encode_type) {
        case MX_AUDIO_AAC: {
            track.codec_id = "A_AAC";
            track.codec_private.resize(2);
            PutBE16(track.codec_private.data(), measure.adts->AudioSpecificConfig());
            track.default_duration = uint64_t{measure.adts->samples} * 1000000000 / measure.adts->sample_rate;
            break;
        }
        case MX_AUDIO_MPEG: {
            constexpr std::string_view kLayers[] = {"A_MPEG/L1", "A_MPEG/L2", "A_MPEG/L3"};
            const MpegAudioHeader header = ReadMpegAudioHeader(bytes).value_or(MpegAudioHeader{});
            track.codec_id = kLayers[header.layer - 1];
            track.default_duration = uint64_t{header.samples} * 1000000000 / header.sample_rate;
            break;
        }
        case MX_AUDIO_ALAW:
        case MX_AUDIO_MULAW:
            track.codec_id = "A_MS/ACM";
            track.codec_private = WaveFormat(frame.encode_type == MX_AUDIO_ALAW ? kWaveTagAlaw : kWaveTagMulaw,
                                             std::max(measure.channels, 1u), measure.sample_rate);
            track.bit_depth = 8;
            break;
        default:
            track.codec_id = "A_PCM/INT/LIT";
            track.bit_depth = frame.encode_type == MX_AUDIO_PCM8 ? 8 : 16;
            break;
    }
    // Sound ahead of 0 is what the decoder takes to get going.
    if (time.pts < 0) {
        audio_.delay = -time.pts;
        track.codec_delay = CodecDelay(frame, time);
    }
    audio_.next = time.dts;
    if (!first_time_) first_time_ = time.dts;
}

// --------------------------------------------------------------------------------------------------- start

bool CXmkvPacket::IsReady(int64_t now) const {
    const bool all = (video_.track || !expects_video_) && (audio_.track || !expects_audio_);
    return all || now - first_time_.value_or(now) >= kLongestWait || front_.Size() >= kMostWaiting;
}

// Gives a frame its place: behind the others that wait for the head, or in the cluster.
template <typename Fill>
uint32_t CXmkvPacket::Put(const Block& block, uint32_t bound, Fill fill) {
    // Never where no header was asked for: both streams are waited for there.
    const bool starts = !started_ && waiting_.empty() && IsReady(block.time.dts);
    if (starts && !ReserveStart()) return MX_NO_RESOURCES;
    if (started_ || starts) {
        if (with_head_) work_.Reset();
        if (work_.Reserve(BlockRoom(bound)) != MX_OK) return MX_NO_RESOURCES;
        ReserveCues(1);
        if (starts) Start();
        PutInCluster(block, bound, fill);
        return MX_OK;
    }
    if (front_.Reserve(bound) != MX_OK) return MX_NO_RESOURCES;
    const uint32_t offset = front_.Size();
    waiting_.push_back({block, offset, 0});
    const uint32_t size = fill(front_.Extend(bound), bound);
    waiting_.back().size = size;
    front_.Shrink(bound - size);
    if (!IsReady(block.time.dts)) return MX_OK;
    if (!ReserveStart()) return MX_NO_RESOURCES;
    Start();
    return MX_OK;
}

// Room in the work buffer for a block of `bound` bytes with all that may stand around it.
uint32_t CXmkvPacket::BlockRoom(uint32_t bound) const {
    return kClusterHeadSize + kTimestampSize + 2 * kElementHeadSize + kBlockHeadSize + bound + kBlockDurationSize +
           kReferenceSize;
}

// Throws std::bad_alloc.
void CXmkvPacket::ReserveCues(size_t count) {
    if (cues_.capacity() - cues_.size() < count) cues_.reserve(cues_.size() + std::max(count, cues_.size() / 2));
}

// All that Start needs, so that it cannot fail.
bool CXmkvPacket::ReserveStart() {
    start_head_ = MkvHead::Write(video_.track, audio_.track, std::nullopt);
    uint64_t largest = 0;
    uint64_t all = start_head_.size();
    for (const Waiting& frame : waiting_) {
        largest = std::max<uint64_t>(largest, BlockRoom(frame.size));
        all += BlockRoom(frame.size);
    }
    const uint64_t room = with_head_ ? std::max<uint64_t>(start_head_.size(), largest) : all;
    ReserveCues(waiting_.size());
    work_.Reset();
    return room <= std::numeric_limits<int32_t>::max() && work_.Reserve(static_cast<uint32_t>(room)) == MX_OK;
}

// Writes the head and the frames that have waited for it. ReserveStart comes before.
void CXmkvPacket::Start() {
    started_ = true;
    work_.Reset();
    work_.Append(start_head_.data(), static_cast<uint32_t>(start_head_.size()));
    if (with_head_) {
        Emit({MX_BLOCK_HEADER, 0, kScale, first_time_.value_or(0), 0});
        work_.Reset();
    }
    for (const Waiting& frame : waiting_) {
        const uint8_t* const bytes = front_.Data() + frame.offset;
        PutInCluster(frame.block, frame.size, [&](uint8_t* out, uint32_t) {
            if (frame.size != 0) std::memcpy(out, bytes, frame.size);
            return frame.size;
        });
    }
    // All that waited goes out at once where a front end takes one block a call.
    if (!with_head_ && !waiting_.empty()) {
        const Waiting& first = waiting_.front();
        const bool video = first.block.track == MkvHead::kVideoTrack;
        Emit({MX_BLOCK_MEDIA, (video ? uint32_t{MX_BLOCK_VIDEO | MX_BLOCK_KEY} : uint32_t{MX_BLOCK_AUDIO}), kScale,
              first.block.time.dts, 0});
        work_.Reset();
    }
    waiting_ = {};
    front_ = {};
    start_head_ = {};
}

// ------------------------------------------------------------------------------------------------- clusters

bool CXmkvPacket::IsPlain(const Block& block) const {
    const int64_t duration = block.time.duration;
    if (duration == 0) return true;
    const auto stated = static_cast<int64_t>(StreamOf(block.track).track->default_duration);
    return std::abs(duration * kNanosecondsPerTick - stated) < kNanosecondsPerTick;
}

bool CXmkvPacket::NeedsCluster(const Block& block, int64_t time) const {
    if (!cluster_.open) return true;
    if (block.key && block.track == MkvHead::kVideoTrack) return true;
    const int64_t relative = time - cluster_.time;
    return relative > std::numeric_limits<int16_t>::max() || relative < std::numeric_limits<int16_t>::min() ||
           block.time.dts - cluster_.begun >= kLongestCluster;
}

// The time of a cluster is not behind that of any block to come: pictures are shown when they are decoded or later, and
// the sound that comes next is known.
int64_t CXmkvPacket::ClusterTime(const Block& block, int64_t time) const {
    int64_t base = std::min(block.time.dts, time);
    const Stream& other = block.track == MkvHead::kVideoTrack ? audio_ : video_;
    if (other.track && std::abs(other.next - base) < kScale) {
        base = std::min(base, block.track == MkvHead::kVideoTrack ? other.next + other.delay : other.next);
    }
    base = std::max<int64_t>(base, 0);
    return time - base > std::numeric_limits<int16_t>::max() ? time : base;
}

// There is room: see BlockRoom and ReserveCues.
template <typename Fill>
void CXmkvPacket::PutInCluster(const Block& block, uint32_t bound, Fill fill) {
    Stream& stream = StreamOf(block.track);
    const int64_t time = block.time.pts + stream.delay;
    const bool begins = NeedsCluster(block, time);
    const bool plain = IsPlain(block);
    const bool video = block.track == MkvHead::kVideoTrack;
    const uint32_t head_size = (plain ? 0 : kElementHeadSize) + kElementHeadSize + kBlockHeadSize;
    const uint32_t tail_size = plain ? 0 : kBlockDurationSize + (block.key ? 0 : kReferenceSize);
    const bool collects = !with_head_ && !waiting_.empty();
    if (begins && with_head_) EndCluster();
    if (with_head_) work_.Reset();
    const uint32_t cluster_head = begins ? kClusterHeadSize + kTimestampSize : 0;
    uint8_t* const place = work_.Extend(cluster_head + head_size + bound + tail_size);
    const uint32_t size = fill(place + cluster_head + head_size, bound);
    if (begins) {
        cluster_ = {true, ClusterTime(block, time), position_ + (with_head_ ? 0 : work_.Size()), block.time.dts,
                    kTimestampSize};
        ByteCursor out(place, cluster_head);
        out.BE32(static_cast<uint32_t>(ElementId::kCluster)).BE64(EbmlTree::kUnknownSize);
        PutElement(out, ElementId::kTimecode, 8).BE64(static_cast<uint64_t>(cluster_.time));
    }
    const auto relative = static_cast<uint16_t>(time - cluster_.time);
    ByteCursor out(place + cluster_head, head_size);
    if (plain) {
        out.U8(static_cast<uint8_t>(ElementId::kSimpleBlock)).BE32(kSizeMarker4 | (kBlockHeadSize + size));
    } else {
        out.U8(static_cast<uint8_t>(ElementId::kBlockGroup))
            .BE32(kSizeMarker4 | (kElementHeadSize + kBlockHeadSize + size + tail_size))
            .U8(static_cast<uint8_t>(ElementId::kBlock))
            .BE32(kSizeMarker4 | (kBlockHeadSize + size));
    }
    out.U8(0x80 | block.track).BE16(relative).U8(plain && block.key ? kKeyFlag : uint8_t{0});
    if (!plain) {
        ByteCursor tail(place + cluster_head + head_size + size, tail_size);
        PutElement(tail, ElementId::kBlockDuration, 4).BE32(static_cast<uint32_t>(block.time.duration));
        if (!block.key) {
            PutElement(tail, ElementId::kReferenceBlock, 8).BE64(static_cast<uint64_t>(stream.last - block.time.pts));
        }
    }
    work_.Shrink(bound - size);

    const uint32_t block_size = head_size + size + tail_size;
    const bool cue = video ? block.key : begins && !video_.track;
    if (cue && with_head_) cues_.push_back({time, cluster_.position, static_cast<uint32_t>(cluster_.data)});
    cluster_.data += block_size;
    stream.last = block.time.pts;
    stream.next = block.time.dts + std::max<int64_t>(block.time.duration, 1);
    end_ = std::max(end_, time + block.time.duration);
    if (collects) return;
    const bool key = video ? block.key : !video_.track;
    Emit({MX_BLOCK_MEDIA,
          (video ? uint32_t{MX_BLOCK_VIDEO} : uint32_t{MX_BLOCK_AUDIO}) | (key ? uint32_t{MX_BLOCK_KEY} : 0), kScale,
          block.time.dts, block.time.duration});
    work_.Reset();
}

// Its size goes in place; only where positions are known.
void CXmkvPacket::EndCluster() {
    if (!cluster_.open) return;
    uint8_t size[kSizeSize];
    PutBE64(size, EbmlSize8(cluster_.data));
    EmitExactAt(size, sizeof size, cluster_.position + kClusterHeadSize - kSizeSize,
                {MX_BLOCK_PATCH, 0, kScale, cluster_.time, 0});
    cluster_.open = false;
}

void CXmkvPacket::Emit(const BlockNote& note) {
    if (with_head_) {
        position_ += EmitExactAt(work_.Data(), work_.Size(), position_, note);
    } else {
        position_ += EmitExact(work_.Data(), work_.Size(), note);
    }
}

// ----------------------------------------------------------------------------------------------------- end

uint32_t CXmkvPacket::Finish() {
    if (!started_) {
        if (!ReserveStart()) return MX_NO_RESOURCES;
        Start();
    }
    if (!with_head_) return MX_OK;
    EndCluster();
    if (!closing_) EmitCues();
    const std::vector<uint8_t> head = MkvHead::Write(video_.track, audio_.track, closing_);
    EmitExactAt(head.data(), static_cast<uint32_t>(head.size()), 0, {MX_BLOCK_PATCH, 0, kScale, 0, 0});
    return MX_OK;
}

void CXmkvPacket::EmitCues() {
    const uint64_t segment = MkvHead::SegmentStart();
    const uint64_t cues_position = cues_.empty() ? 0 : position_ - segment;
    if (!cues_.empty()) {
        EbmlTree cues;
        cues.Begin(ElementId::kCues);
        for (const Cue& cue : cues_) {
            cues.Begin(ElementId::kCuePoint);
            cues.UInt(ElementId::kCueTime, static_cast<uint64_t>(std::max<int64_t>(cue.time, 0)));
            cues.Begin(ElementId::kCueTrackPositions);
            cues.UInt(ElementId::kCueTrack, video_.track ? MkvHead::kVideoTrack : MkvHead::kAudioTrack);
            cues.UInt(ElementId::kCueClusterPosition, cue.cluster - segment);
            cues.UInt(ElementId::kCueRelativePosition, cue.offset);
            cues.End();
            cues.End();
        }
        cues.End();
        position_ += EmitExactAt(cues.Bytes().data(), static_cast<uint32_t>(cues.Bytes().size()), position_,
                                 {MX_BLOCK_INDEX, 0, kScale, end_, 0});
    }
    closing_ = MkvClosing{position_ - segment, cues_position, static_cast<double>(end_)};
}

}  // namespace Orvane::Muxora
