#include "rtp/rtp_packet.h"

#include <cstdlib>
#include <new>

#include "codec/audio_measures.h"
#include "core/frame_kinds.h"
#include "core/messages.h"
#include "rtp/rtp_audio.h"
#include "rtp/rtp_jpeg.h"
#include "rtp/rtp_video.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kDefaultMaxLength = 1000;
constexpr uint32_t kOutputAll = 1;

constexpr MXCapacityEntry kEncodeVideo[] = {{MX_VIDEO_H264_ALT, 0, 0, 0, {}},
                                            {MX_VIDEO_H265, 0, 0, 0, {}},
                                            {MX_VIDEO_MPEG4, 0, 0, 0, {}},
                                            {MX_VIDEO_MJPEG, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecVideo[] = {{2, 0, 0, 0, {}}, {5, 0, 0, 0, {}}, {1, 0, 0, 0, {}}, {3, 0, 0, 0, {}}};
constexpr MXCapacityEntry kEncodeAudio[] = {{MX_AUDIO_ALAW, 0, 0, 0, {}},
                                            {MX_AUDIO_MULAW, 0, 0, 0, {}},
                                            {MX_AUDIO_AAC, 0, 0, 0, {}},
                                            {MX_AUDIO_MPEG, 0, 0, 0, {}},
                                            {MX_AUDIO_PCM8, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecAudio[] = {
    {28, 0, 0, 0, {}}, {31, 0, 0, 0, {}}, {33, 0, 0, 0, {}}, {38, 0, 0, 0, {}}, {21, 0, 0, 0, {}}};

// These two packetisers count their bytes for themselves.
bool CountsForItself(const MXFrameInfo& frame) {
    return frame.frame_type == MX_FRAME_VIDEO &&
           (frame.encode_type == MX_VIDEO_H265 || frame.encode_type == MX_VIDEO_MJPEG);
}

// The list of the packets' sizes may find no memory. The frame is lost then, and its time has gone by all the same.
template <typename Packetiser>
uint32_t WithMemory(Packetiser packetise) {
    try {
        return packetise();
    } catch (const std::bad_alloc&) {
        return MX_NO_RESOURCES;
    }
}

}  // namespace

// An SSRC has to differ from others, no more (RFC 3550 8.1).
CRtpPacket::CRtpPacket(uint32_t format, const MXCreateParam* param) : CPackage(format, param) {
    video_.ssrc = static_cast<uint32_t>(std::rand());
    audio_.ssrc = static_cast<uint32_t>(std::rand());
}

uint32_t CRtpPacket::createHeader(MXHeaderInfo* info, uint32_t /*unused*/) {
    return info != nullptr ? MX_OK : MX_FAILED;
}

uint32_t CRtpPacket::createTailer(const void* info, uint32_t /*unused*/) {
    return info != nullptr ? MX_OK : MX_FAILED;
}

uint32_t CRtpPacket::inputFrame(MXFrameInfo* frame, uint32_t /*reserved*/) {
    const uint32_t check = CheckInput(frame);
    if (check != MX_OK) return check;
    if (own_buffer_ == nullptr) own_buffer_ = AllocateLarge(kRunCapacity);
    const std::span<uint8_t> area(own_buffer_.get(), own_buffer_ != nullptr ? kRunCapacity : 0);
    const uint32_t result =
        frame->frame_type == MX_FRAME_VIDEO ? PackVideo(*frame, area) : PackAudio(*frame, area, true);
    return result != MX_OK && own_buffer_ == nullptr ? uint32_t{MX_NO_RESOURCES} : result;
}

uint32_t CRtpPacket::inputFrameEx(MXFrameInfo* frame, Basalt::CPacket& packet) {
    const uint32_t check = CheckInput(frame);
    if (check != MX_OK) return check;
    const std::span<uint8_t> area(packet.getBuffer(), packet.capacity());
    // Receivers rely on this: 16-bit PCM goes out as it came here.
    const uint32_t result =
        frame->frame_type == MX_FRAME_VIDEO ? PackVideo(*frame, area) : PackAudio(*frame, area, false);
    // Receivers rely on this: H.265 and JPEG leave the packet at size 0, though its buffer holds the packets.
    packet.resize(result == MX_OK && !CountsForItself(*frame) ? run_.Size() : 0);
    return result;
}

uint32_t CRtpPacket::setExtData(const void* data, uint32_t length) {
    extension_.Set(data, length);
    return MX_OK;
}

uint32_t CRtpPacket::getExtData(const void** data, uint32_t* length) {
    if (data != nullptr) *data = extension_.Data();
    if (length != nullptr) *length = extension_.Length();
    return MX_OK;
}

bool CRtpPacket::checkFrame(const MXFrameInfo* frame) const {
    if (frame->frame_type == MX_FRAME_AUDIO) return true;
    if (frame->frame_type != MX_FRAME_VIDEO) return false;
    return IsH264(frame->encode_type) || frame->encode_type == MX_VIDEO_MPEG4 || frame->encode_type == MX_VIDEO_MJPEG ||
           frame->encode_type == MX_VIDEO_H265;
}

uint32_t CRtpPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CRtpPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

uint32_t CRtpPacket::CheckInput(const MXFrameInfo* frame) const {
    if (!HasData(frame)) return MX_FAILED;
    return checkFrame(frame) ? MX_OK : MX_FRAME_REFUSED;
}

uint32_t CRtpPacket::PackVideo(MXFrameInfo& frame, std::span<uint8_t> area) {
    video_.timestamp = clock_.StepVideo(frame);
    Begin(area, video_);
    // A frame may come to no packet at all, and still has to have a place to go to.
    const uint32_t result = area.data() != nullptr ? WithMemory([&] { return Packetise(frame); }) : uint32_t{MX_FAILED};
    clock_.EndVideo(frame);
    if (result == MX_OK) Send();
    return result;
}

uint32_t CRtpPacket::PackAudio(MXFrameInfo& frame, std::span<uint8_t> area, bool swap_pcm) {
    if (clock_.AudioGranularity() == 0) {
        Say("[Muxora] [ERROR] AudioSample(%d), AudioGranularity(%d) should not be 0.\n",
            static_cast<int>(clock_.AudioSample()), static_cast<int>(clock_.AudioGranularity()));
        return MX_FAILED;
    }
    const double duration = GetAudioFrameDuration(frame);
    audio_.timestamp = clock_.StepAudio(frame, duration);
    // Receivers rely on this: PCM goes out in network order, and the caller's frame is left that way. It stays as it is
    // when there is no place for it.
    const bool swaps = swap_pcm && area.data() != nullptr && frame.encode_type == MX_AUDIO_PCM16;
    if (swaps && !SwapPcm16(frame)) return MX_FAILED;
    // Receivers rely on this: audio of another codec goes out as if it were video.
    Begin(area, IsRtpAudio(frame.encode_type) ? audio_ : video_);
    const uint32_t result = WithMemory([&] { return packetiseGeneric(frame, run_); });
    clock_.EndAudio(frame, duration);
    if (result == MX_OK) Send();
    return result;
}

uint32_t CRtpPacket::Packetise(const MXFrameInfo& frame) {
    switch (frame.encode_type) {
        case MX_VIDEO_H264:
        case MX_VIDEO_H264_ALT:
            return packetiseH264(frame, run_);
        case MX_VIDEO_H265:
            return packetiseH265(frame, run_);
        case MX_VIDEO_MPEG4:
            return packetiseGeneric(frame, run_);
        case MX_VIDEO_MJPEG:
            return packetiseJpeg(frame, run_);
        default:
            return MX_FAILED;
    }
}

uint32_t CRtpPacket::MaxLength() const {
    return max_rtp_packet_length_ != 0 ? max_rtp_packet_length_ : kDefaultMaxLength;
}

void CRtpPacket::Begin(std::span<uint8_t> area, RtpStream& stream) {
    run_.Begin(area, stream, extension_, MaxLength());
}

void CRtpPacket::Send() {
    if (rtp_packet_output_all_flag_ == kOutputAll) {
        sendAll();
    } else {
        sendPackets();
    }
}

void CRtpPacket::sendAll() {
    EmitNext(run_.Data(), run_.Size());
}

void CRtpPacket::sendPackets() {
    const uint8_t* packet = run_.Data();
    for (const uint32_t size : run_.PacketSizes()) {
        EmitNext(packet, size);
        packet += size;
    }
}

}  // namespace Orvane::Muxora
