#include "mpeg2/ts_package_base.h"

#include <algorithm>
#include <cstring>

#include "codec/full_packets.h"
#include "core/byte_writer.h"
#include "core/frame_kinds.h"
#include "core/package.h"
#include "mpeg2/clock_90khz.h"

namespace Orvane::Muxora {

namespace {

constexpr uint8_t kPcrFlag = 0x10;

// What the first packet carries of a PES packet: the PCR in its adaptation field takes the rest.
constexpr uint32_t kFirstCapacity = 176;

constexpr uint32_t kTablePeriod = 10;  // audio frames from table to table
constexpr uint32_t kPcrLead = 900;     // 10 ms
constexpr uint32_t kCloseMs = 128;     // a first frame this near to the other stream is placed beside it

constexpr uint32_t kPesArea = 32;
constexpr uint8_t kAlignedPes = 0x84;  // data_alignment_indicator

// nal_unit_type 9 (ITU-T H.264 7.3.2.4) with primary_pic_type 7: any slice.
constexpr uint8_t kAccessUnitDelimiter[] = {0x00, 0x00, 0x00, 0x01, 0x09, 0xF0};

constexpr StreamTypeRow kVideoTypes[] = {
    {MX_VIDEO_MPEG4, kStreamMpeg4},      {MX_VIDEO_H264, kStreamH264},        {MX_VIDEO_H264_ALT, kStreamH264},
    {MX_VIDEO_H264_STREAM, kStreamH264}, {MX_VIDEO_MPEG2, kStreamMpeg2Video}, {MX_VIDEO_H265, kStreamH265},
};
constexpr StreamTypeRow kAudioTypes[] = {
    {MX_AUDIO_ALAW, kStreamG711},
    {MX_AUDIO_MULAW, kStreamG711},
    {MX_AUDIO_AAC, kStreamAac},
    {MX_AUDIO_MPEG, kStreamMpegAudio},
};

// The next copy of a table.
int64_t CopyIfItFits(const TsTable& table, uint8_t& continuity, uint8_t* out, uint32_t size) {
    if (size < kTsPacketSize) return kNotPacked;
    CopyTable(table, continuity, out);
    return kTsPacketSize;
}

bool BeginsWithoutDelimiter(const MXFrameInfo& frame) {
    if (frame.frame_size < 5) return false;
    const uint8_t* const data = FrameBytes(frame);
    return std::memcmp(data, kAccessUnitDelimiter, 4) == 0 && data[4] != kAccessUnitDelimiter[4];
}

}  // namespace

int64_t CTSPackageBase::package(uint8_t* out, uint32_t size, const MXFrameInfo* frame) {
    if (out == nullptr || size == 0 || frame == nullptr) return kNotPacked;
    if (frame->frame_type == MX_FRAME_VIDEO) {
        const int64_t written = packageVideo(out, size, frame);
        if (written >= 0) ++video_count_;
        return written;
    }
    if (frame->frame_type == MX_FRAME_AUDIO) {
        const int64_t written = packageAudio(out, size, frame);
        if (written >= 0) ++audio_count_;
        return written;
    }
    return kNotPacked;
}

bool CTSPackageBase::setHeader(const MXHeaderInfo* info) {
    if (info == nullptr) return true;
    if (info->video_present != 0) {
        video_stream_type_ = videoStreamType(info->video_encode_type);
        frame_rate_ = info->frame_rate >= 1 ? static_cast<uint32_t>(info->frame_rate) : 0;
    }
    if (info->audio_present != 0) audio_stream_type_ = audioStreamType(info->audio_encode_type);
    if (info->start_time_ms != MX_NO_START_TIME) {
        base_ms_ = info->start_time_ms;
        base_given_ = true;
    }
    return true;
}

int64_t CTSPackageBase::packageVideo(uint8_t* out, uint32_t size, const MXFrameInfo* frame) {
    if (updateStreamType(frame) < 0) return kNotPacked;
    updateVideoInfo(frame);
    computeVideoPts(frame);
    if (IsSyncFrame(frame->frame_sub_type)) {
        got_i_frame_ = true;
        return packageIFrame(out, size, frame);
    }
    if (!got_i_frame_) return kNotPacked;
    if (frame->frame_sub_type == MX_SUB_P || frame->frame_sub_type == MX_SUB_B) return packagePFrame(out, size, frame);
    return kNotPacked;
}

int64_t CTSPackageBase::packageAudio(uint8_t* out, uint32_t size, const MXFrameInfo* frame) {
    if (updateStreamType(frame) < 0) return kNotPacked;
    updateAudioInfo(frame);
    computeAudioPts(frame);
    int64_t tables = 0;
    if (audio_count_ % kTablePeriod == 0) {
        tables = WriteTables(out, size);
        if (tables < 0) return kNotPacked;
    }
    const int64_t media = writeAudioPes(out + tables, size - static_cast<uint32_t>(tables), frame);
    if (media < 0) return kNotPacked;
    audio_duration_ = AudioTicks(*frame);
    return tables + media;
}

int64_t CTSPackageBase::packageIFrame(uint8_t* out, uint32_t size, const MXFrameInfo* frame) {
    const int64_t tables = WriteTables(out, size);
    if (tables < 0) return kNotPacked;
    const int64_t media = writeVideoPes(out + tables, size - static_cast<uint32_t>(tables), frame);
    return media < 0 ? kNotPacked : tables + media;
}

int64_t CTSPackageBase::packagePFrame(uint8_t* out, uint32_t size, const MXFrameInfo* frame) {
    return writeVideoPes(out, size, frame);
}

int64_t CTSPackageBase::writePat(uint8_t* out, uint32_t size) {
    return CopyIfItFits(pat_, pat_continuity_, out, size);
}

int64_t CTSPackageBase::writePmt(uint8_t* out, uint32_t size) {
    if (size < kTsPacketSize) return kNotPacked;
    if (video_stream_type_ != mapped_video_type_ || audio_stream_type_ != mapped_audio_type_) {
        // The first stream to appear is no new version.
        const bool had_streams = mapped_video_type_ != kStreamNone || mapped_audio_type_ != kStreamNone;
        if (had_streams) pmt_version_ = (pmt_version_ + 1) & 0x1F;
        mapped_video_type_ = video_stream_type_;
        mapped_audio_type_ = audio_stream_type_;
        pmt_ = MakePmt(video_stream_type_, audio_stream_type_, pmt_version_);
    }
    return CopyIfItFits(pmt_, pmt_continuity_, out, size);
}

int64_t CTSPackageBase::writeTsPackets(uint8_t* out, uint32_t size, const Pes& pes, bool video) {
    uint32_t room = size / kTsPacketSize;
    if (room == 0) return kNotPacked;
    const uint16_t pid = video ? kVideoPid : kAudioPid;
    uint8_t& continuity = video ? video_continuity_ : audio_continuity_;
    uint8_t* at = out;
    const uint8_t* from = pes.frame;
    uint32_t left = pes.frame_size;
    const auto advance = [&](uint32_t packets, uint32_t bytes) {
        continuity = static_cast<uint8_t>((continuity + packets) & kContinuityMask);
        room -= packets;
        at += packets * kTsPacketSize;
        from += bytes;
        left -= bytes;
    };

    // The first packet has a PCR and the whole of the head.
    const uint32_t in_first = std::min(left, kFirstCapacity - pes.head_size);
    const uint32_t first_stuffing = kFirstCapacity - pes.head_size - in_first;
    PutTsHeader(at, true, pid, AdaptationControl::kFieldAndPayload, continuity);
    ByteCursor first = BehindTsHeader(at);
    first
        .U8(static_cast<uint8_t>(7 + first_stuffing))  // adaptation_field_length
        .U8(kPcrFlag);
    PutPcr(first, pcr_);
    first.Fill(0xFF, first_stuffing).Bytes(pes.head, pes.head_size).Bytes(from, in_first);
    advance(1, in_first);

    const uint32_t full = std::min(left / kFullPayload, room);
    CutFullPackets(at, from, full, pid, continuity);
    advance(full, full * kFullPayload);

    if (left == 0) return at - out;
    if (room == 0) return kNotPacked;
    const uint32_t stuffing = kFullPayload - left;
    PutTsHeader(at, false, pid, AdaptationControl::kFieldAndPayload, continuity);
    BehindTsHeader(at)
        .U8(static_cast<uint8_t>(1 + stuffing))  // adaptation_field_length
        .U8(0)
        .Fill(0xFF, stuffing)
        .Bytes(from, left);
    advance(1, left);
    return at - out;
}

// 2.4.3.6
int64_t CTSPackageBase::writeVideoPes(uint8_t* out, uint32_t size, const MXFrameInfo* frame) {
    constexpr uint32_t kPesHeader = 19;
    const bool delimited = IsH264(frame->encode_type) && BeginsWithoutDelimiter(*frame);
    const uint32_t head_size = kPesHeader + (delimited ? uint32_t{sizeof kAccessUnitDelimiter} : 0);
    const uint64_t length = uint64_t{head_size} + frame->frame_size - 6;
    uint8_t area[kPesArea];
    ByteCursor head(area);
    head.BE32(kVideoPesStart)
        .BE16(static_cast<uint16_t>(length < 0x10000 ? length : 0))  // PES_packet_length; 0 is "not stated"
        .U8(kAlignedPes)
        .U8(0xC0)   // PTS_DTS_flags
        .U8(0x0A);  // PES_header_data_length
    PutTimestamp(head, TimestampPrefix::kPtsBeforeDts, video_pts_);
    PutTimestamp(head, TimestampPrefix::kDts, video_dts_);
    if (delimited) head.Bytes(kAccessUnitDelimiter, sizeof kAccessUnitDelimiter);
    return writeTsPackets(out, size, {area, head.Size(), FrameBytes(*frame), frame->frame_size}, true);
}

int64_t CTSPackageBase::writeAudioPes(uint8_t* out, uint32_t size, const MXFrameInfo* frame) {
    if (!HasData(frame)) return kNotPacked;
    constexpr uint32_t kPesHeader = 14;
    uint8_t area[kPesArea];
    ByteCursor head(area);
    head.BE32(kAudioPesStart)
        .BE16(static_cast<uint16_t>(kPesHeader + frame->frame_size - 6))  // PES_packet_length; wraps
        .U8(kAlignedPes)
        .U8(0x80)   // PTS_DTS_flags
        .U8(0x05);  // PES_header_data_length
    PutTimestamp(head, TimestampPrefix::kPtsAlone, audio_pts_);
    return writeTsPackets(out, size, {area, head.Size(), FrameBytes(*frame), frame->frame_size}, false);
}

int64_t CTSPackageBase::updateStreamType(const MXFrameInfo* frame) {
    if (frame->frame_type != MX_FRAME_VIDEO && frame->frame_type != MX_FRAME_AUDIO) return 0;
    const bool video = frame->frame_type == MX_FRAME_VIDEO;
    const StreamType type = video ? videoStreamType(frame->encode_type) : audioStreamType(frame->encode_type);
    if (type == kStreamNone) return kNotPacked;
    (video ? video_stream_type_ : audio_stream_type_) = type;
    return 0;
}

void CTSPackageBase::updateVideoInfo(const MXFrameInfo* frame) {
    frame_rate_ = NextFrameRate(frame_rate_, frame->frame_rate);
    previous_sequence_ = last_sequence_;
    last_sequence_ = frame->frame_seq;
    if (audio_break_ == AudioBreak::kMarked && IsSyncFrame(frame->frame_sub_type)) audio_break_ = AudioBreak::kResync;
    if (!base_given_ && video_count_ == 0 && audio_count_ == 0) base_ms_ = frame->timestamp;
}

void CTSPackageBase::updateAudioInfo(const MXFrameInfo* frame) {
    if (!base_given_ && video_count_ == 0 && audio_count_ == 0) base_ms_ = frame->timestamp;
    if (frame->ps_clock_rebase == 1) audio_break_ = AudioBreak::kMarked;
}

void CTSPackageBase::computeVideoPts(const MXFrameInfo* frame) {
    if (video_count_ == 0) {
        video_pts_ = FirstPts(frame->timestamp, {audio_count_, audio_pts_, last_audio_ts_});
    } else if (frame->timestamp != 0) {
        video_pts_ += (fixTimestamp(frame) - last_video_ts_) * kTicksPerMs;
    } else {
        video_pts_ += StepBySequence();
    }
    video_dts_ = video_pts_;
    pcr_ = video_dts_ - kPcrLead;
    last_video_ts_ = frame->timestamp;
    base_ms_ = video_pts_ / kTicksPerMs;
}

void CTSPackageBase::computeAudioPts(const MXFrameInfo* frame) {
    const bool resync = audio_break_ == AudioBreak::kResync;
    if (resync) audio_break_ = AudioBreak::kNone;
    if (audio_count_ == 0) {
        // Receivers rely on this: a first frame is placed as such behind a resync, too.
        audio_pts_ = FirstPts(frame->timestamp, {video_count_, video_pts_, last_video_ts_});
    } else if (resync) {
        audio_pts_ = base_ms_ * kTicksPerMs;
    } else if (frame->timestamp != 0) {
        audio_pts_ += (fixTimestamp(frame) - last_audio_ts_) * kTicksPerMs;
    } else {
        audio_pts_ += audio_duration_;
    }
    pcr_ = audio_pts_ - kPcrLead;
    last_audio_ts_ = frame->timestamp;
    base_ms_ = audio_pts_ / kTicksPerMs;
}

StreamType CTSPackageBase::videoStreamType(uint32_t encode_type) const {
    return FindStreamType(kVideoTypes, encode_type);
}

StreamType CTSPackageBase::audioStreamType(uint32_t encode_type) const {
    return FindStreamType(kAudioTypes, encode_type);
}

uint32_t CTSPackageBase::fixTimestamp(const MXFrameInfo* frame) const {
    if (frame->frame_type == MX_FRAME_VIDEO) {
        return ForwardTime(frame->timestamp, last_video_ts_, frame_rate_ != 0 ? 1000 / frame_rate_ : 0);
    }
    return ForwardTime(frame->timestamp, last_audio_ts_, audio_duration_ / kTicksPerMs);
}

int64_t CTSPackageBase::WriteTables(uint8_t* out, uint32_t size) {
    const int64_t pat = writePat(out, size);
    if (pat < 0) return kNotPacked;
    const int64_t pmt = writePmt(out + pat, size - static_cast<uint32_t>(pat));
    return pmt < 0 ? kNotPacked : pat + pmt;
}

// A stream's first PTS: at the start time, or beside the other stream if that runs already and is near.
uint32_t CTSPackageBase::FirstPts(uint32_t timestamp, const OtherStream& other) {
    const uint32_t gap = other.count == 0 ? kCloseMs : Distance(timestamp, other.last_ts);
    const bool from_base = base_given_ || gap >= kCloseMs;
    base_given_ = false;
    if (from_base) return base_ms_ * kTicksPerMs;
    const uint32_t ticks = gap * kTicksPerMs;
    if (timestamp >= other.last_ts) return other.pts + ticks;
    return other.pts > ticks ? other.pts - ticks : 0;
}

// Without timestamps the sequence numbers tell the time. The fraction of a tick that each step loses is carried over.
// Single precision is part of the output.
uint32_t CTSPackageBase::StepBySequence() {
    if (frame_rate_ == 0) return 0;
    const auto difference = static_cast<int32_t>(last_sequence_ - previous_sequence_);
    const int32_t frames = difference < 0 ? 1 : difference;
    const float exact = static_cast<float>(frames) * (90000.0f / static_cast<float>(frame_rate_));
    const auto whole = static_cast<int64_t>(exact);
    pts_residual_ += exact - static_cast<float>(whole);
    const auto carried = static_cast<int64_t>(pts_residual_);
    pts_residual_ -= static_cast<float>(carried);
    return static_cast<uint32_t>(whole + carried);
}

}  // namespace Orvane::Muxora
