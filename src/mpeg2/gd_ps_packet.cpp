#include "mpeg2/gd_ps_packet.h"

#include "core/package.h"
#include "mpeg2/clock_90khz.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kVideoCodecs[] = {MX_VIDEO_H264_ALT, MX_VIDEO_H264, MX_VIDEO_MPEG4};
constexpr uint32_t kAudioCodecs[] = {MX_AUDIO_ALAW, MX_AUDIO_MULAW};
constexpr AcceptedCodecs kAccepted{kVideoCodecs, kAudioCodecs};

constexpr StreamTypeRow kVideoTypes[] = {
    {MX_VIDEO_H264_ALT, kStreamH264},
    {MX_VIDEO_H264_STREAM, kStreamH264},
    {MX_VIDEO_H264, kStreamH264},
    {MX_VIDEO_MPEG4, kStreamMpeg4},
};
constexpr StreamTypeRow kAudioTypes[] = {{MX_AUDIO_ALAW, kStreamG711}, {MX_AUDIO_MULAW, kStreamG711}};

constexpr MXCapacityEntry kEncodeVideo[] = {Codec(MX_VIDEO_H264_ALT), Codec(MX_VIDEO_MPEG4)};
constexpr MXCapacityEntry kEncodeAudio[] = {Codec(MX_AUDIO_ALAW), Codec(MX_AUDIO_MULAW)};
constexpr MXCapacityEntry kCodecVideo[] = {Codec(2), Codec(1)};
constexpr MXCapacityEntry kCodecAudio[] = {Codec(28), Codec(31)};

constexpr uint32_t kAudioStep = 3240;  // 36 ms at 90 kHz
constexpr uint32_t kHeaderArea = 64;
constexpr uint32_t kMapSize = 36;

constexpr uint32_t kFixedPesHeader = 9;  // up to PES_header_data_length

// Bytes that make header and payload together a multiple of 4.
uint32_t PesPadding(uint32_t payload, uint32_t fields) {
    return (4 - (kFixedPesHeader + fields + payload) % 4) % 4;
}

// PES_packet_length, flags and PES_header_data_length of a header with `fields` bytes of optional fields. Returns the
// number of padding bytes to come.
uint32_t PutPesLengths(ByteCursor& header, uint32_t payload, uint8_t pts_dts_flags, uint32_t fields) {
    const uint32_t padding = PesPadding(payload, fields);
    header
        .BE16(static_cast<uint16_t>(3 + fields + padding + payload))  // PES_packet_length
        .U8(0x80)
        .U8(pts_dts_flags)
        .U8(static_cast<uint8_t>(fields + padding));  // PES_header_data_length
    return padding;
}

constexpr uint8_t kNoTimes = 0x00;
constexpr uint8_t kPtsOnly = 0x80;
constexpr uint32_t kTimestampSize = 5;

}  // namespace

bool CGDPsPacket::checkFrame(const MXFrameInfo* frame) const {
    return kAccepted.Take(*frame);
}

uint32_t CGDPsPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return CPackage::Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CGDPsPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return CPackage::Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

int64_t CGDPsPacket::packageVideo(const MXFrameInfo* frame, CGrowBuffer* out) {
    const StreamType type = FindStreamType(kVideoTypes, frame->encode_type);
    if (type == kStreamNone) return kNotPacked;
    video_stream_type_ = type;
    return CPSPackaging::packageVideo(frame, out);
}

int64_t CGDPsPacket::packageAudio(const MXFrameInfo* frame, CGrowBuffer* out) {
    const StreamType type = FindStreamType(kAudioTypes, frame->encode_type);
    if (type == kStreamNone) return kNotPacked;
    audio_stream_type_ = type;
    return CPSPackaging::packageAudio(frame, out);
}

int64_t CGDPsPacket::writePackHeader(const MXFrameInfo* frame, CGrowBuffer* out, bool /*stuffing*/) {
    return CPSPackaging::writePackHeader(frame, out, true);
}

// Readers rely on this: the map always has the same size and both entries, the video entry always names H.264, the
// lengths count what stands in the place of the CRC, and no CRC is computed.
int64_t CGDPsPacket::writeStreamMap(const MXFrameInfo* /*frame*/, CGrowBuffer* out) {
    if (out == nullptr) return kNotPacked;
    CountMapVersion(32);
    uint8_t area[kMapSize];
    ByteCursor map(area);
    map.BE32(0x000001BC)
        .BE16(kMapSize - 6)  // program_stream_map_length
        .U8(static_cast<uint8_t>(0xE1 | map_version_ << 1))
        .U8(0xFF)
        .BE16(0)     // program_stream_info_length
        .BE16(0x18)  // elementary_stream_map_length
        .U8(kStreamH264)
        .U8(kVideoStreamId)
        .BE16(12)  // elementary_stream_info_length
        .U8(0x2A)  // descriptor_tag
        .U8(10)    // descriptor_length
        .BE16(0x7FFF)
        .BE32(frame_rate_ != 0 ? static_cast<uint32_t>(kTicksPerSecond / (uint64_t{frame_rate_} * 2)) : 0)
        .BE16(0x1FFE)
        .U8(static_cast<uint8_t>(width_ / 8))
        .U8(static_cast<uint8_t>(height_ / 8))
        .U8(kStreamG711)
        .U8(kAudioStreamId)
        .Zeros(6);
    return AppendHeader(map, out);
}

int64_t CGDPsPacket::writeSystemHeader(const MXFrameInfo* /*frame*/, CGrowBuffer* /*out*/) {
    return 0;
}

int64_t CGDPsPacket::writeVideoPes(const uint8_t* data, uint32_t length, CGrowBuffer* out, bool first) {
    uint8_t area[kHeaderArea];
    ByteCursor header(area);
    header.BE32(kVideoPesStart);
    if (first) {
        const uint32_t padding = PutPesLengths(header, length, kPtsOnly, kTimestampSize);
        PutTimestamp(header, TimestampPrefix::kPtsAlone, video_pts_);
        header.Fill(0xFF, padding);
    } else {
        header.Fill(0xFF, PutPesLengths(header, length, kNoTimes, 0));
    }
    return AppendPes(header, data, length, out);
}

uint32_t CGDPsPacket::videoPesHeaderSize(uint32_t length, bool first) const {
    const uint32_t fields = first ? kTimestampSize : 0;
    return kFixedPesHeader + fields + PesPadding(length, fields);
}

int64_t CGDPsPacket::writeAudioPes(const uint8_t* data, uint32_t length, CGrowBuffer* out) {
    uint8_t area[kHeaderArea];
    ByteCursor header(area);
    header.BE32(kAudioPesStart);
    const uint32_t padding = PutPesLengths(header, length, kPtsOnly, kTimestampSize);
    PutTimestamp(header, TimestampPrefix::kPtsAlone, audio_pts_);
    header.Fill(0xFF, padding);
    return AppendPes(header, data, length, out);
}

int64_t CGDPsPacket::writeVideoFrame(const MXFrameInfo* frame, CGrowBuffer* out) {
    if (out == nullptr) return kNotPacked;
    return WriteUnits(*frame, StartCodes::kFourBytesOnly, out);
}

void CGDPsPacket::computeVideoPts(const MXFrameInfo* /*frame*/) {
    video_pts_ += FramePeriod();
    video_dts_ = video_pts_;
    scr_ = video_pts_ - FramePeriod();
}

void CGDPsPacket::computeAudioPts(const MXFrameInfo* /*frame*/) {
    audio_pts_ += kAudioStep;
    scr_ = audio_pts_ - kAudioStep;
}

}  // namespace Orvane::Muxora
