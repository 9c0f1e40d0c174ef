#include "mpeg2/ps_packaging.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "codec/start_code.h"
#include "core/frame_kinds.h"
#include "core/package.h"
#include "mpeg2/clock_90khz.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kPackStart = 0x000001BA;
constexpr uint32_t kMapStart = 0x000001BC;
// Readers rely on this: program_mux_rate is 6150 units of 50 bytes per second, whatever the real rate.
constexpr uint32_t kMuxRate = 6150;
constexpr uint32_t kMuxBytesPerSecond = kMuxRate * 50;

constexpr uint32_t kStartOffset = kTicksPerSecond;  // the clock starts one second in
constexpr uint32_t kCloseMs = 128;                  // a first frame this near to the others keeps its own time
constexpr uint32_t kMapPeriod = 25;                 // audio frames from map to map

// Keeps PES_packet_length below its 16 bits, with room for the header.
constexpr uint32_t kMaxPesPayload = 61440;

// 2.5.3.5: rate_bound 1101156, audio_bound 1, video_bound 1, packet_rate_restriction_flag; a buffer of 230 * 1024 bytes
// for the video stream and one of 32 * 128 bytes for the audio stream.
constexpr uint8_t kSystemHeader[] = {0x00, 0x00, 0x01, 0xBB, 0x00, 0x0C, 0xA1, 0x9A, 0xC9,
                                     0x04, 0x21, 0xFF, 0xE0, 0xE0, 0xE6, 0xC0, 0xC0, 0x20};

constexpr uint32_t kLongCode = 4;  // bytes of 00 00 00 01
constexpr uint32_t kHeaderArea = 64;
constexpr uint32_t kMapArea = 144;

bool HasStartCodes(uint32_t encode_type) {
    return IsH264(encode_type) || encode_type == MX_VIDEO_H264_STREAM || encode_type == MX_VIDEO_H265;
}

// The first unit of a frame begins here; `length` if there is none.
uint32_t FirstUnit(const uint8_t* data, uint32_t length, bool long_codes_only) {
    if (long_codes_only) return static_cast<uint32_t>(FindLongStartCode(data, data + length) - data);
    const StartCode code = NextStartCode(data, length, 0);
    return code ? code.position : length;
}

// The scan of a frame for its units, along with the copy of their bytes. A unit begins with a start code of four bytes
// or, unless only those divide the frame, one of three bytes ahead of the last three.
class UnitScan {
  public:
    UnitScan(const uint8_t* data, uint32_t length, bool long_codes_only)
        : data_(data), length_(length), long_codes_only_(long_codes_only) {}

    // Copies the bytes from `at` to `stop`, or to where a unit begins at or behind `from` if that comes first. Returns
    // where the copy ends; `out` has room for all of them.
    uint32_t Copy(uint8_t* out, uint32_t at, uint32_t from, uint32_t stop) const {
        uint32_t done = std::min(from, stop);
        std::memcpy(out, data_ + at, done - at);
        while (done != stop) {
            const uint8_t* const hit = CopyToStartCode(out + (done - at), data_ + done, data_ + stop);
            if (hit == data_ + stop) break;
            const auto position = static_cast<uint32_t>(hit - data_);
            if (position > from && hit[-1] == 0) return position - 1;
            if (BeginsUnit(position)) return position;
            std::memcpy(out + (position - at), hit, kShortCode);
            done = position + kShortCode;
        }
        // A start code may lie across the end.
        for (uint32_t place = std::max(from, stop - std::min(stop, kShortCode)); place < stop; ++place) {
            if (BeginsUnit(place)) return place;
        }
        return stop;
    }

    bool BeginsUnit(uint32_t place) const {
        if (length_ - place <= kShortCode) return false;
        const uint8_t* const p = data_ + place;
        if (p[0] != 0 || p[1] != 0) return false;
        return (p[2] == 0 && p[3] == 1) || (p[2] == 1 && !long_codes_only_);
    }

  private:
    static constexpr uint32_t kShortCode = 3;

    const uint8_t* data_;
    uint32_t length_;
    bool long_codes_only_;
};

bool IsOtherPicture(uint32_t sub_type) {
    return sub_type == MX_SUB_P || sub_type == MX_SUB_LAYERED_P || sub_type == MX_SUB_B;
}

}  // namespace

int64_t CPSPackaging::package(const MXFrameInfo* frame, CGrowBuffer* out) {
    if (!HasData(frame)) return kNotPacked;
    const bool first = video_count_ == 0 && audio_count_ == 0;
    if (frame->frame_type == MX_FRAME_VIDEO) {
        if (IsKeyFrame(frame->frame_sub_type)) {
            got_i_frame_ = true;
            if (audio_break_ == AudioBreak::kMarked) audio_break_ = AudioBreak::kResync;
        }
        if (!got_i_frame_) return 0;
        if (first) base_ms_ = frame->timestamp;
        const int64_t written = packageVideo(frame, out);
        if (written >= 0) ++video_count_;
        return written;
    }
    if (frame->frame_type == MX_FRAME_AUDIO) {
        if (first) base_ms_ = frame->timestamp;
        if (frame->ps_clock_rebase == 1) audio_break_ = AudioBreak::kMarked;
        const int64_t written = packageAudio(frame, out);
        if (written >= 0) ++audio_count_;
        return written;
    }
    return kNotPacked;
}

int64_t CPSPackaging::packageIFrame(const MXFrameInfo* frame, CGrowBuffer* out) {
    return Total({writePackHeader(frame, out, false), writeSystemHeader(frame, out), writeStreamMap(frame, out),
                  writeVideoFrame(frame, out)});
}

int64_t CPSPackaging::packagePFrame(const MXFrameInfo* frame, CGrowBuffer* out) {
    return Total({writePackHeader(frame, out, false), writeVideoFrame(frame, out)});
}

int64_t CPSPackaging::packageVideo(const MXFrameInfo* frame, CGrowBuffer* out) {
    updateVideoInfo(frame);
    computeVideoPts(frame);
    if (IsKeyFrame(frame->frame_sub_type)) return packageIFrame(frame, out);
    if (IsOtherPicture(frame->frame_sub_type)) return packagePFrame(frame, out);
    return kNotPacked;
}

int64_t CPSPackaging::packageAudio(const MXFrameInfo* frame, CGrowBuffer* out) {
    computeAudioPts(frame);
    const bool with_map = audio_count_ % kMapPeriod == 0;
    const int64_t written = Total({writePackHeader(frame, out, false), with_map ? writeStreamMap(frame, out) : 0,
                                   writeAudioPes(FrameBytes(*frame), frame->frame_size, out)});
    audio_duration_ = AudioTicks(*frame);
    return written;
}

// 2.5.3.3
int64_t CPSPackaging::writePackHeader(const MXFrameInfo* /*frame*/, CGrowBuffer* out, bool stuffing) {
    uint8_t area[kHeaderArea];
    ByteCursor header(area);
    header.BE32(kPackStart);
    PutScr(header, scr_);
    header
        .BE24(kMuxRate << 2 | 0x03)   // program_mux_rate, two marker bits
        .U8(stuffing ? 0xFA : 0xF8);  // pack_stuffing_length
    if (stuffing) header.BE16(0xFFFF);
    return AppendHeader(header, out);
}

int64_t CPSPackaging::writeStreamMap(const MXFrameInfo* /*frame*/, CGrowBuffer* out) {
    CountMapVersion(32);
    return WriteMap(static_cast<uint8_t>(0xE0 | map_version_), {}, {}, out);
}

int64_t CPSPackaging::writeSystemHeader(const MXFrameInfo* /*frame*/, CGrowBuffer* out) {
    uint8_t area[kHeaderArea];
    ByteCursor header(area);
    header.Bytes(kSystemHeader, sizeof kSystemHeader);
    return AppendHeader(header, out);
}

uint32_t CPSPackaging::videoPesHeaderSize(uint32_t /*length*/, bool first) const {
    return first ? 19 : 9;
}

// 2.4.3.6. The first packet of a frame carries its times.
int64_t CPSPackaging::writeVideoPes(const uint8_t* data, uint32_t length, CGrowBuffer* out, bool first) {
    uint8_t area[kHeaderArea];
    ByteCursor header(area);
    header.BE32(kVideoPesStart);
    if (first) {
        header
            .BE16(static_cast<uint16_t>(length + 13))  // PES_packet_length
            .U8(0x80)
            .U8(0xC0)   // PTS_DTS_flags
            .U8(0x0A);  // PES_header_data_length
        PutTimestamp(header, TimestampPrefix::kPtsBeforeDts, video_pts_);
        PutTimestamp(header, TimestampPrefix::kDts, video_dts_);
    } else {
        header.BE16(static_cast<uint16_t>(length + 3)).U8(0x80).U8(0x00).U8(0x00);
    }
    return AppendPes(header, data, length, out);
}

// Readers rely on this: an audio frame is one PES packet, and the length of one above 65527 bytes wraps.
int64_t CPSPackaging::writeAudioPes(const uint8_t* data, uint32_t length, CGrowBuffer* out) {
    uint8_t area[kHeaderArea];
    ByteCursor header(area);
    header.BE32(kAudioPesStart)
        .BE16(static_cast<uint16_t>(length + 8))  // PES_packet_length
        .U8(0x80)
        .U8(0x80)   // PTS_DTS_flags
        .U8(0x05);  // PES_header_data_length
    PutTimestamp(header, TimestampPrefix::kPtsAlone, audio_pts_);
    return AppendPes(header, data, length, out);
}

int64_t CPSPackaging::writeVideoFrame(const MXFrameInfo* frame, CGrowBuffer* out) {
    return WriteUnits(*frame, StartCodes::kThreeOrFourBytes, out);
}

void CPSPackaging::updateVideoInfo(const MXFrameInfo* frame) {
    frame_rate_ = NextFrameRate(frame_rate_, frame->frame_rate);
    width_ = frame->width;
    height_ = frame->height;
}

void CPSPackaging::computeVideoPts(const MXFrameInfo* frame) {
    if (video_count_ == 0) {
        video_pts_ = FirstPts(frame->timestamp);
    } else if (frame->timestamp == last_video_ts_) {
        // Times of a coarse grain: the sequence numbers tell the frames apart.
        const int64_t steps = int64_t{frame->frame_seq} - last_sequence_;
        if (frame_rate_ != 0) video_pts_ += static_cast<uint32_t>(steps * kTicksPerSecond / frame_rate_);
    } else {
        video_pts_ += (fixTimestamp(*frame) - last_video_ts_) * kTicksPerMs;
    }
    last_video_ts_ = frame->timestamp;
    last_sequence_ = frame->frame_seq;
    video_dts_ = video_pts_ - FramePeriod();
    SetScr(video_dts_, frame->frame_size);
    base_ms_ = (video_pts_ - kStartOffset) / kTicksPerMs;
}

void CPSPackaging::computeAudioPts(const MXFrameInfo* frame) {
    if (audio_break_ == AudioBreak::kResync) {
        // Readers rely on this: the clock comes back by an addition to its old value.
        audio_pts_ += static_cast<uint32_t>(base_ms_) * kTicksPerMs;
        audio_break_ = AudioBreak::kNone;
    } else if (audio_count_ == 0) {
        audio_pts_ = FirstPts(frame->timestamp);
    } else if (frame->timestamp == 0) {
        audio_pts_ += audio_duration_;
    } else {
        audio_pts_ += (fixTimestamp(*frame) - last_audio_ts_) * kTicksPerMs;
    }
    last_audio_ts_ = frame->timestamp;
    SetScr(audio_pts_, frame->frame_size);
    base_ms_ = (audio_pts_ - kStartOffset) / kTicksPerMs;
}

uint32_t CPSPackaging::fixTimestamp(const MXFrameInfo& frame) const {
    if (frame.frame_type == MX_FRAME_VIDEO) {
        return ForwardTime(frame.timestamp, last_video_ts_, frame_rate_ != 0 ? 1000 / frame_rate_ : 0);
    }
    return ForwardTime(frame.timestamp, last_audio_ts_, audio_duration_ / kTicksPerMs);
}

int64_t CPSPackaging::WriteUnits(const MXFrameInfo& frame, StartCodes start_codes, CGrowBuffer* out) {
    const uint8_t* const data = FrameBytes(frame);
    const uint32_t length = frame.frame_size;
    const bool divided = HasStartCodes(frame.encode_type);
    const bool long_codes_only = start_codes == StartCodes::kFourBytesOnly;
    // Bytes in front of the first start code are left out.
    uint32_t at = divided ? FirstUnit(data, length, long_codes_only) : 0;
    if (at == length) return kNotPacked;
    // All at once: the buffer grows in small steps, and each of them moves what is there.
    if (out->Reserve(length - at) != MX_OK) return kNotPacked;
    const UnitScan units(data, length, long_codes_only);
    int64_t total = 0;
    // The search for the next start code leaves out four bytes, even behind one of three.
    uint32_t from = divided ? at + kLongCode : length;
    for (bool first = true; at != length; first = false) {
        // The piece is copied to where it will stand if it runs that far.
        const uint32_t expected = std::min(length - at, kMaxPesPayload);
        if (out->Reserve(kHeaderArea + expected) != MX_OK) return kNotPacked;
        uint8_t* const place = out->Data() + out->Size() + videoPesHeaderSize(expected, first);
        const uint32_t end = units.Copy(place, at, from, at + expected);
        const int64_t written = writeVideoPes(place, end - at, out, first);
        if (written < 0) return kNotPacked;
        total += written;
        if (end != length && divided && end >= from && units.BeginsUnit(end)) {
            from = end + kLongCode;
        } else {
            from = std::max(from, end);
        }
        at = end;
    }
    return total;
}

void CPSPackaging::CountMapVersion(uint8_t modulo) {
    const bool had_streams = mapped_video_type_ != kStreamNone || mapped_audio_type_ != kStreamNone;
    const bool changed = video_stream_type_ != mapped_video_type_ || audio_stream_type_ != mapped_audio_type_;
    if (had_streams && changed) map_version_ = static_cast<uint8_t>((map_version_ + 1) % modulo);
    mapped_video_type_ = video_stream_type_;
    mapped_audio_type_ = audio_stream_type_;
}

// 2.5.4.1
int64_t CPSPackaging::WriteMap(uint8_t version_byte, std::span<const uint8_t> video_info,
                               std::span<const uint8_t> audio_info, CGrowBuffer* out) const {
    struct Stream {
        StreamType type;
        uint8_t id;
        std::span<const uint8_t> info;
    };
    const Stream streams[] = {{video_stream_type_, kVideoStreamId, video_info},
                              {audio_stream_type_, kAudioStreamId, audio_info}};
    constexpr uint16_t kEntrySize = 4;
    constexpr uint16_t kCrcSize = 4;
    uint16_t map_length = 0;
    for (const Stream& stream : streams) {
        if (stream.type != kStreamNone)
            map_length = static_cast<uint16_t>(map_length + kEntrySize + stream.info.size());
    }
    if (map_length == 0) return 0;
    uint8_t area[kMapArea];
    ByteCursor map(area);
    map.BE32(kMapStart)
        .BE16(static_cast<uint16_t>(6 + map_length + kCrcSize))  // program_stream_map_length
        .U8(version_byte)
        .U8(0xFF)
        .BE16(0)            // program_stream_info_length
        .BE16(map_length);  // elementary_stream_map_length
    for (const Stream& stream : streams) {
        if (stream.type == kStreamNone) continue;
        const auto info_length = static_cast<uint16_t>(stream.info.size());
        map.U8(stream.type)
            .U8(stream.id)
            .BE16(info_length)  // elementary_stream_info_length
            .Bytes(stream.info.data(), info_length);
    }
    // Readers rely on this: the place of the CRC holds zeros.
    map.BE32(0);
    return AppendHeader(map, out);
}

int64_t CPSPackaging::Total(std::initializer_list<int64_t> parts) {
    int64_t total = 0;
    for (const int64_t part : parts) {
        if (part < 0) return kNotPacked;
        total += part;
    }
    return total;
}

int64_t CPSPackaging::AppendHeader(const ByteCursor& header, CGrowBuffer* out) {
    return AppendPes(header, nullptr, 0, out);
}

int64_t CPSPackaging::AppendPes(const ByteCursor& header, const uint8_t* data, uint32_t length, CGrowBuffer* out) {
    if (length > std::numeric_limits<uint32_t>::max() - header.Size()) return kNotPacked;
    uint8_t* const at = out->Extend(header.Size() + length);
    if (at == nullptr) return kNotPacked;
    uint8_t* const payload = at + header.Size();
    // The bytes may lie near already, so they go first.
    if (length != 0 && data != payload) std::memmove(payload, data, length);
    std::memcpy(at, header.Data(), header.Size());
    return int64_t{header.Size()} + length;
}

uint32_t CPSPackaging::FramePeriod() const {
    return frame_rate_ != 0 ? kTicksPerSecond / frame_rate_ : 0;
}

uint32_t CPSPackaging::FirstPts(uint32_t timestamp) const {
    const int64_t gap = timestamp > base_ms_ ? timestamp - base_ms_ : base_ms_ - timestamp;
    const int64_t start = static_cast<uint32_t>(gap) < kCloseMs ? timestamp : base_ms_;
    return static_cast<uint32_t>(start) * kTicksPerMs + kStartOffset;
}

// A frame is to arrive in the time that it takes at the stated rate. The product wraps above 47721 bytes.
void CPSPackaging::SetScr(uint32_t decode_time, uint32_t frame_size) {
    scr_ = decode_time - frame_size * kTicksPerSecond / kMuxBytesPerSecond;
}

}  // namespace Orvane::Muxora
