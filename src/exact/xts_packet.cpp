#include "exact/xts_packet.h"

#include <algorithm>
#include <iterator>

#include "codec/audio_header.h"
#include "codec/mpeg_clock.h"
#include "codec/start_code.h"
#include "core/frame_kinds.h"

namespace Orvane::Muxora {

namespace {

// stream_type (ISO/IEC 13818-1 Table 2-34).
constexpr uint8_t kNoStream = 0x00;
constexpr uint8_t kMpeg2Video = 0x02;
constexpr uint8_t kMpeg1Audio = 0x03;
constexpr uint8_t kMpeg2Audio = 0x04;
constexpr uint8_t kAdtsAac = 0x0F;
constexpr uint8_t kMpeg4Video = 0x10;
constexpr uint8_t kAvc = 0x1B;
constexpr uint8_t kHevc = 0x24;

// stream_id (Table 2-22).
constexpr uint8_t kVideoStreamId = 0xE0;
constexpr uint8_t kAudioStreamId = 0xC0;

constexpr uint8_t kAlignedPes = 0x84;  // data_alignment_indicator
constexpr uint8_t kPtsFlag = 0x80;
constexpr uint8_t kPtsDtsFlags = 0xC0;
constexpr uint32_t kTimestampSize = 5;
constexpr uint32_t kPesHeaderSize = 19;   // with both time stamps
constexpr uint32_t kBehindPesLength = 3;  // bytes between PES_packet_length and the time stamps
constexpr uint32_t kLongestPes = 0xFFFF;
constexpr uint32_t kLongestAudio = kLongestPes - kBehindPesLength - kTimestampSize;
constexpr uint32_t kLowestMpeg1Rate = 32000;

// Access unit delimiters for any kind of slice (ITU-T H.264 7.3.2.4, H.265 7.3.2.5).
constexpr uint8_t kAvcDelimiter[] = {0, 0, 0, 1, 0x09, 0xF0};
constexpr uint8_t kHevcDelimiter[] = {0, 0, 0, 1, 0x46, 0x01, 0x50};

uint8_t VideoType(uint32_t encode_type) {
    switch (encode_type) {
        case MX_VIDEO_H264:
        case MX_VIDEO_H264_ALT:
        case MX_VIDEO_H264_STREAM:
            return kAvc;
        case MX_VIDEO_H265:
            return kHevc;
        case MX_VIDEO_MPEG4:
            return kMpeg4Video;
        case MX_VIDEO_MPEG2:
            return kMpeg2Video;
        default:
            return kNoStream;
    }
}

uint8_t AudioType(uint32_t encode_type, uint32_t sample_rate) {
    if (encode_type == MX_AUDIO_AAC) return kAdtsAac;
    if (encode_type == MX_AUDIO_MPEG) return sample_rate < kLowestMpeg1Rate ? kMpeg2Audio : kMpeg1Audio;
    return kNoStream;
}

// A PES packet's header (2.4.3.6). A length that does not fit is not stated, which video may do.
void PutPesHeader(std::vector<uint8_t>& out, uint8_t stream_id, uint64_t payload, const FrameTime& time) {
    const bool with_dts = time.pts != time.dts;
    const uint32_t times = with_dts ? 2 * kTimestampSize : kTimestampSize;
    const uint64_t length = kBehindPesLength + times + payload;
    uint8_t area[kPesHeaderSize];
    ByteCursor header(area);
    header
        .BE24(1)  // packet_start_code_prefix
        .U8(stream_id)
        .BE16(static_cast<uint16_t>(length <= kLongestPes ? length : 0))  // PES_packet_length
        .U8(kAlignedPes)
        .U8(with_dts ? kPtsDtsFlags : kPtsFlag)
        .U8(static_cast<uint8_t>(times));  // PES_header_data_length
    const auto ticks = [](int64_t value) { return static_cast<uint64_t>(value + CTsMultiplex::kTimeOffset); };
    PutTimestamp(header, with_dts ? TimestampPrefix::kPtsBeforeDts : TimestampPrefix::kPtsAlone, ticks(time.pts));
    if (with_dts) PutTimestamp(header, TimestampPrefix::kDts, ticks(time.dts));
    out.insert(out.begin(), area, area + header.Size());
}

constexpr MXCapacityEntry kEncodeVideo[] = {{MX_VIDEO_H264_ALT, 0, 0, 0, {}},
                                            {MX_VIDEO_H265, 0, 0, 0, {}},
                                            {MX_VIDEO_MPEG4, 0, 0, 0, {}},
                                            {MX_VIDEO_MPEG2, 0, 0, 0, {}}};
constexpr MXCapacityEntry kEncodeAudio[] = {{MX_AUDIO_AAC, 0, 0, 0, {}}, {MX_AUDIO_MPEG, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecVideo[] = {{2, 0, 0, 0, {}}, {5, 0, 0, 0, {}}, {1, 0, 0, 0, {}}, {6, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecAudio[] = {{33, 0, 0, 0, {}}, {38, 0, 0, 0, {}}};

}  // namespace

CXtsPacket::CXtsPacket(uint32_t format, const MXCreateParam* param) : CExactPackage(format, param, kTicksPerSecond) {
}

uint32_t CXtsPacket::createHeader(MXHeaderInfo* info, uint32_t unused) {
    const uint32_t result = CExactPackage::createHeader(info, unused);
    if (result != MX_OK || info == nullptr) return result;
    if (!multiplex_.Reserve({})) return MX_NO_RESOURCES;
    SetStreams(info->video_present != 0 ? VideoType(info->video_encode_type) : kNoStream,
               info->audio_present != 0 ? AudioType(info->audio_encode_type, info->samples_per_sec) : kNoStream);
    return MX_OK;
}

bool CXtsPacket::checkFrame(const MXFrameInfo* frame) const {
    if (frame->frame_type == MX_FRAME_VIDEO) return VideoType(frame->encode_type) != kNoStream;
    if (frame->frame_type != MX_FRAME_AUDIO) return false;
    return AudioType(frame->encode_type, 0) != kNoStream && frame->frame_size <= kLongestAudio;
}

uint32_t CXtsPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CXtsPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

// Tells a new map of streams ahead of the frame that brings it.
void CXtsPacket::SetStreams(uint8_t video, uint8_t audio) {
    if (!multiplex_.SetStreams(video, audio)) return;
    const auto tables = multiplex_.Tables();
    BlockNote note;
    note.kind = MX_BLOCK_HEADER;
    note.time_scale = kTicksPerSecond;
    EmitExact(tables.data(), static_cast<uint32_t>(tables.size()), note);
}

uint32_t CXtsPacket::PackVideo(const MXFrameInfo& frame) {
    const uint8_t type = VideoType(frame.encode_type);
    const bool key = IsKeyFrame(frame.frame_sub_type);
    if (!begun_ && !key) return MX_FRAME_REFUSED;
    const auto bytes = ComposeVideo(frame, key);
    if (!bytes) return MX_FAILED;
    if (bytes->empty()) return MX_OK;
    const FrameTime time = VideoTime(frame, config_.ReorderDepth());
    PutPesHeader(head_, kVideoStreamId, head_.size() + bytes->size(), time);
    const CTsMultiplex::Unit unit{head_, *bytes, CTsMultiplex::kVideoPid, time.dts, key};
    if (!multiplex_.Reserve(unit)) return MX_NO_RESOURCES;
    SetStreams(type, multiplex_.audio());
    begun_ = true;
    Emit(unit, MX_BLOCK_VIDEO | (key ? uint32_t{MX_BLOCK_KEY} : 0), time);
    return MX_OK;
}

void CXtsPacket::Forget(bool picture) {
    if (picture) config_.Undo();
}

// Gives what is to be written of the frame, behind what goes into head_: nothing if it has no start code, an empty
// stretch if it has no picture.
std::optional<std::span<const uint8_t>> CXtsPacket::ComposeVideo(const MXFrameInfo& frame, bool key) {
    const auto taken = config_.Take(frame);
    if (!taken) return std::nullopt;
    const FrameNals& found = *taken;
    const std::span<const uint8_t> bytes(FrameBytes(frame), frame.frame_size);
    head_.clear();
    if (!config_.IsNal()) {
        const auto headers = config_.Mpeg4Headers();
        if (key && !found.has_parameter_sets) head_.assign(headers.begin(), headers.end());
        return bytes;
    }
    if (!found.has_picture) return std::span<const uint8_t>{};
    const CParameterSets& sets = config_.Sets();
    const bool add_sets = key && !found.has_parameter_sets && sets.Complete();
    if (found.has_delimiter && !add_sets) return bytes;

    const auto delimiter = sets.codec() == NalCodec::kAvc ? std::span<const uint8_t>(kAvcDelimiter) : kHevcDelimiter;
    const uint32_t size = static_cast<uint32_t>(delimiter.size()) + (add_sets ? sets.UnitsSize() : 0);
    head_.resize(size);
    ByteCursor out(head_.data(), size);
    out.Bytes(delimiter.data(), static_cast<uint32_t>(delimiter.size()));
    if (add_sets) sets.WriteAnnexB(out);
    // All the sets stand there now: those of the frame, too.
    if (add_sets) return bytes.subspan(found.rest);
    // Nothing but zeros may stand between two units.
    const uint8_t* const start = FindStartCode(bytes.data(), bytes.data() + bytes.size());
    const auto skipped = static_cast<size_t>(start - bytes.data());
    return bytes.subspan(skipped != 0 && start[-1] == 0 ? skipped - 1 : skipped);
}

uint32_t CXtsPacket::PackAudio(const MXFrameInfo& frame, const AudioMeasure& measure) {
    const uint8_t type = AudioType(frame.encode_type, measure.sample_rate);
    const FrameTime time = AudioTime(frame, measure);
    const bool alone = multiplex_.video() == kNoStream;
    head_.clear();
    PutPesHeader(head_, kAudioStreamId, frame.frame_size, time);
    const CTsMultiplex::Unit unit{
        head_, {FrameBytes(frame), frame.frame_size}, CTsMultiplex::kAudioPid, time.dts, false};
    if (!multiplex_.Reserve(unit)) return MX_NO_RESOURCES;
    SetStreams(multiplex_.video(), type);
    Emit(unit, MX_BLOCK_AUDIO | (alone ? uint32_t{MX_BLOCK_KEY} : 0), time);
    return MX_OK;
}

void CXtsPacket::Emit(const CTsMultiplex::Unit& unit, uint32_t flags, const FrameTime& time) {
    const auto packets = multiplex_.Packets(unit);
    EmitExact(packets.data(), static_cast<uint32_t>(packets.size()),
              {MX_BLOCK_MEDIA, flags, time.scale, time.dts, time.duration});
}

}  // namespace Orvane::Muxora
