#include "packaging/rtp_packager.h"

#include <cmath>
#include <utility>

#include "media_input/nal_units.h"

namespace Orvane::Muxora::Gateway {

namespace {

constexpr uint32_t kMaxPacket = 1400;
constexpr size_t kHeadSize = 12;  // RFC 3550 5.1
constexpr uint8_t kMarker = 0x80;
constexpr uint32_t kFirstDynamicType = 96;

void PutTime(uint8_t* packet, uint32_t time) {
    for (int i = 0; i < 4; ++i)
        packet[4 + i] = static_cast<uint8_t>(time >> (24 - 8 * i));
}

}  // namespace

RtpTrack RtpTrackOf(const MXHeaderInfo& header, bool video) {
    RtpTrack track;
    if (video) {
        track.ssrc = RtpPackager::kVideoSsrc;
        const bool known = header.video_encode_type == MX_VIDEO_H264 || header.video_encode_type == MX_VIDEO_H265 ||
                           header.video_encode_type == MX_VIDEO_MPEG4;
        track.payload_type = header.video_encode_type == MX_VIDEO_MJPEG ? 26 : kFirstDynamicType;
        if (header.video_present == 0 || (!known && track.payload_type != 26)) track.clock = 0;
        return track;
    }
    track.ssrc = RtpPackager::kAudioSsrc;
    track.payload_type = kFirstDynamicType + 1;
    track.clock = header.samples_per_sec;
    const bool telephone = header.samples_per_sec == 8000 && header.channels == 1;
    switch (header.audio_encode_type) {
        case MX_AUDIO_MULAW:
            if (telephone) track.payload_type = 0;
            break;
        case MX_AUDIO_ALAW:
            if (telephone) track.payload_type = 8;
            break;
        case MX_AUDIO_MPEG:
            track.payload_type = 14;
            track.clock = 90000;
            break;
        case MX_AUDIO_AAC:
        case MX_AUDIO_PCM8:
        case MX_AUDIO_PCM16:
            break;
        default:
            track.clock = 0;
    }
    if (header.audio_present == 0) track.clock = 0;
    return track;
}

RtpPackager::RtpPackager(const MXHeaderInfo& header, Sink sink)
    : sink_(std::move(sink)), video_(RtpTrackOf(header, true)), audio_(RtpTrackOf(header, false)) {
    MXCreateParam param{};
    param.user = this;
    param.output = Output;
    handle_.reset(MX_CreateHandle(MX_FORMAT_RTP, &param));
    if (handle_ == nullptr) return;
    MXRtpParam rtp{};
    rtp.size = sizeof rtp;
    rtp.max_rtp_packet_length = kMaxPacket;
    rtp.rtp_ssrc = video_.ssrc;
    rtp.rtp_payload_type = video_.payload_type;
    rtp.rtp_audio_ssrc = audio_.ssrc;
    rtp.rtp_audio_payload_type = audio_.payload_type;
    rtp.rtp_audio_sample = audio_.clock != 0 ? audio_.clock : 8000;
    MXHeaderInfo info = header;
    if (MX_SetParam(handle_.get(), MX_PARAM_RTP, &rtp, sizeof rtp) != MX_OK ||
        MX_CreateHeader(handle_.get(), &info) != MX_OK) {
        handle_.reset();
    }
}

bool RtpPackager::Give(const Frame& frame) {
    const RtpTrack& track = frame.IsVideo() ? video_ : audio_;
    if (track.clock == 0) return false;
    const Tools::MediaFrame& media = frame.media;
    MXFrameInfo info = const_cast<Tools::MediaFrame&>(media).Record();
    if (media.codec == MX_AUDIO_PCM16) {
        // Its bytes are swapped in place: not in the frame that all share.
        copy_.assign(media.bytes.begin(), media.bytes.end());
        info.frame_pointer = copy_.data();
    }
    // RTP cuts large pictures of the other kinds into packets that no receiver puts together.
    if (frame.IsVideo() && !media.IsKey()) info.frame_sub_type = MX_SUB_P;
    const double seconds = static_cast<double>(frame.pts) / frame.time_scale;
    info.timestamp = static_cast<uint32_t>(std::llround(seconds * 1000));
    bare_ = frame.IsVideo() && (media.codec == MX_VIDEO_H265 || media.codec == MX_VIDEO_MJPEG);
    now_ = std::make_shared<Block>();
    now_->storage.reserve(media.Size() + media.Size() / 16 + 64);
    const bool good = Input(info, frame);
    const std::shared_ptr<Block> made = std::exchange(now_, nullptr);
    if (made->packet_ends.empty()) return good;
    made->bytes = made->storage;
    // Sound alone may be joined anywhere.
    made->key = frame.IsVideo() ? frame.IsKey() : video_.clock == 0;
    made->video = frame.IsVideo();
    made->audio = !frame.IsVideo();
    if (!epoch_us_) epoch_us_ = frame.arrival_us - std::llround(frame.DtsSeconds() * 1e6);
    made->arrival_us = *epoch_us_ + std::llround(seconds * 1e6);
    made->time_scale = track.clock;
    // The exact time in place of the milliseconds that the format was given.
    made->dts = static_cast<int64_t>(std::llround(seconds * track.clock));
    size_t start = 0;
    for (const uint32_t end : made->packet_ends) {
        uint8_t* packet = made->storage.data() + start;
        PutTime(packet, static_cast<uint32_t>(made->dts));
        // RFC 6184 5.1, RFC 7798 4.1: set on the last packet of a picture and on no other.
        if (frame.IsVideo()) {
            packet[1] = static_cast<uint8_t>((packet[1] & ~kMarker) | (end == made->packet_ends.back() ? kMarker : 0));
        }
        start = end;
    }
    sink_(made);
    return good;
}

// Units of H.264 go in one by one: behind one that was cut into fragments, the next would lose its first byte.
bool RtpPackager::Input(MXFrameInfo& info, const Frame& frame) {
    const auto units = frame.IsVideo() && frame.media.codec == MX_VIDEO_H264
                           ? Tools::AnnexBUnits({frame.media.bytes.data(), frame.media.Size()})
                           : std::vector<Tools::NalUnit>{};
    if (units.size() < 2) return MX_InputFrame(handle_.get(), &info) == MX_OK;
    auto* bytes = static_cast<uint8_t*>(info.frame_pointer);
    for (const Tools::NalUnit& unit : units) {
        MXFrameInfo part = info;
        part.frame_pointer = bytes + unit.at;
        part.frame_size = static_cast<uint32_t>(unit.size);
        if (MX_InputFrame(handle_.get(), &part) != MX_OK) return false;
    }
    return true;
}

int32_t RtpPackager::Output(const MXOutputBlock* block, void* user) {
    auto* self = static_cast<RtpPackager*>(user);
    const auto* bytes = static_cast<const uint8_t*>(block->data);
    size_t size = block->length;
    if (!self->bare_) {
        if (size < 2) return 0;
        bytes += 2;
        size -= 2;
    }
    if (self->now_ == nullptr || size < kHeadSize) return 0;
    auto& out = self->now_->storage;
    out.insert(out.end(), bytes, bytes + size);
    self->now_->packet_ends.push_back(static_cast<uint32_t>(out.size()));
    return 0;
}

}  // namespace Orvane::Muxora::Gateway
