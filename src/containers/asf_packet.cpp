#include "containers/asf_packet.h"

#include <algorithm>
#include <cstring>

#include "codec/audio_measures.h"
#include "codec/audio_specific_config.h"
#include "codec/mpeg4_config.h"
#include "codec/piece_copy.h"
#include "codec/wave_tag.h"
#include "containers/wave_audio.h"
#include "core/clock.h"
#include "core/frame_kinds.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kWorkSize = 0x200000;
constexpr uint32_t kHeadSize = kAsfHeaderSize + kAsfDataHeadSize;
constexpr uint8_t kVideoStream = 1;
constexpr uint8_t kKeyFrameBit = 0x80;
constexpr uint8_t kAudioStream = 2 | kKeyFrameBit;
constexpr uint32_t kDefaultFrameDuration = 40;  // ms
constexpr uint64_t kIndexInterval = 1000;       // ms
constexpr uint64_t kTimeUnitsPerMs = 10000;     // 100 ns each

constexpr MXCapacityEntry kEncodeVideo[] = {
    {MX_VIDEO_H264_ALT, 0, 0, 0, {}}, {MX_VIDEO_MPEG4, 0, 0, 0, {}}, {MX_VIDEO_MJPEG, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecVideo[] = {{2, 0, 0, 0, {}}, {1, 0, 0, 0, {}}, {3, 0, 0, 0, {}}};

uint32_t PacketCount(uint32_t size) {
    return size / kAsfPacketPayload + (size % kAsfPacketPayload != 0 ? 1 : 0);
}

// Do the packets of a frame fit behind what stands in the work buffer?
bool Fits(uint32_t at, uint32_t size) {
    return at + uint64_t{PacketCount(size)} * kAsfPacketSize <= kWorkSize;
}

// The configuration of an MPEG-4 key frame, if it is one that the header has room for; otherwise of length 0 at 0.
Mpeg4Config FindConfig(const MXFrameInfo& frame) {
    if (frame.encode_type != MX_VIDEO_MPEG4 || !IsKeyFrame(frame.frame_sub_type)) return {};
    const Mpeg4Config config = FindMpeg4Config(FrameBytes(frame), frame.frame_size);
    if (config.length == 0 || config.length > kAsfMaxVideoConfig) return {};
    return config;
}

}  // namespace

CAsfPacket::CAsfPacket(uint32_t format, const MXCreateParam* param)
    : CPackage(format, param), work_(AllocateLarge(kWorkSize)), index_(kAsfIndexHeadSize) {
}

uint32_t CAsfPacket::uninit() {
    index_.resize(kAsfIndexHeadSize);
    return MX_OK;
}

uint32_t CAsfPacket::inputFrame(MXFrameInfo* frame, uint32_t /*reserved*/) {
    if (!HasData(frame)) return MX_FAILED;
    if (!checkFrame(frame)) return MX_FRAME_REFUSED;
    if (work_ == nullptr) return MX_NO_RESOURCES;
    return frame->frame_type == MX_FRAME_VIDEO ? InputVideo(*frame) : InputAudio(*frame);
}

uint32_t CAsfPacket::createTailer(const void* /*info*/, uint32_t /*unused*/) {
    if (!IsFile()) return MX_OK;
    if (work_ == nullptr) return MX_NO_RESOURCES;
    if (!header_ready_) {
        // A file that never opened has nothing to say: the places of index and header, all zero.
        std::memset(work_.get(), 0, kHeadSize);
        EmitWork(kAsfIndexHeadSize);
        EmitAt(work_.get(), kHeadSize, 0);
        return MX_OK;
    }

    ByteCursor index_head(index_.data(), kAsfIndexHeadSize);
    WriteAsfIndexHead(index_head, index_entries_);
    position_ += EmitAt(index_.data(), static_cast<uint32_t>(index_.size()), position_);

    header_.file_size = position_;
    ByteCursor head(work_.get(), kWorkSize);
    header_.Write(head);
    EmitAt(head.Data(), head.Size(), 0);
    return MX_OK;
}

bool CAsfPacket::checkFrame(const MXFrameInfo* frame) const {
    switch (frame->frame_type) {
        case MX_FRAME_VIDEO:
            return IsH264(frame->encode_type) || frame->encode_type == MX_VIDEO_MPEG4 ||
                   frame->encode_type == MX_VIDEO_MJPEG;
        case MX_FRAME_AUDIO:
            return IsWaveAudio(frame->encode_type);
        default:
            return false;
    }
}

uint32_t CAsfPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kEncodeVideo, kWaveEncodeAudio, table, count);
}

uint32_t CAsfPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kCodecVideo, kWaveCodecAudio, table, count);
}

uint32_t CAsfPacket::InputVideo(MXFrameInfo& frame) {
    const bool key = IsKeyFrame(frame.frame_sub_type);
    const bool opens = key && !header_ready_;
    if (!header_ready_ && !opens) {
        EmitWork(0);
        return MX_OK;
    }

    const Mpeg4Config config = FindConfig(frame);
    const uint8_t* const config_bytes = FrameBytes(frame) + config.offset;
    const uint32_t skipped = config.offset + config.length;
    uint32_t at = opens ? kHeadSize : 0;
    if (!Fits(at, frame.frame_size - skipped)) return MX_FAILED;
    if (IsFile()) MakeIndexRoom();

    // The caller's record loses the configuration too.
    frame.frame_pointer = static_cast<uint8_t*>(frame.frame_pointer) + skipped;
    frame.frame_size -= skipped;
    if (key) frame_duration_ = frame.frame_rate != 0 ? 1000 / frame.frame_rate : kDefaultFrameDuration;
    if (opens) OpenFile(frame, config_bytes, config.length);

    // Readers rely on this: video time is counted, the frames' own timestamps play no part.
    if (video_object_ == 1) {
        first_video_timestamp_ = frame.timestamp;
    } else {
        video_time_ += frame_duration_;
    }
    if (key) {
        key_packet_ = static_cast<uint32_t>(header_.packets);
        key_packet_count_ = static_cast<uint16_t>(PacketCount(frame.frame_size));
    }
    const uint8_t stream = key ? kVideoStream | kKeyFrameBit : kVideoStream;
    at = WritePackets(FrameBytes(frame),
                      {frame.frame_size, SendTime(), stream, static_cast<uint8_t>(video_object_), video_time_}, at);
    ++video_object_;
    // Readers rely on this: time 0 has no entry, so each entry is the key frame at the first frame past its second.
    if (IsFile() && video_time_ > index_entries_ * kIndexInterval) AddIndexEntry();
    header_.play_duration = video_time_ * kTimeUnitsPerMs;
    EmitWork(at);
    return MX_OK;
}

uint32_t CAsfPacket::InputAudio(const MXFrameInfo& frame) {
    if (!header_ready_) return MX_OK;
    if (frame.encode_type == MX_AUDIO_AAC && frame.frame_size < kAdtsHeaderSize) return MX_OK;
    if (!Fits(0, frame.frame_size)) return MX_FAILED;
    if (!header_.audio) OpenAudio(frame);

    if (audio_object_ == 1) {
        audio_time_ = frame.timestamp > first_video_timestamp_ ? frame.timestamp - first_video_timestamp_ : 0;
        channel_ = frame.ma_cur_channel;
    } else {
        // Readers rely on this: a frame of another channel is left out, and time moves for it all the same.
        audio_time_ += audio_duration_;
        if (frame.ma_cur_channel != channel_) return MX_OK;
    }
    const uint32_t length =
        WritePackets(FrameBytes(frame),
                     {frame.frame_size, SendTime(), kAudioStream, static_cast<uint8_t>(audio_object_), audio_time_}, 0);
    ++audio_object_;
    audio_duration_ = static_cast<uint32_t>(GetAudioFrameDuration(frame));
    EmitWork(length);
    return MX_OK;
}

// Composes the head at the start of the work buffer.
void CAsfPacket::OpenFile(const MXFrameInfo& frame, const uint8_t* config, uint32_t config_size) {
    header_.video.encode_type = frame.encode_type;
    header_.video.width = frame.width;
    header_.video.height = frame.height;
    header_.video.frame_rate = frame.frame_rate;
    header_.video.config_size = config_size;
    std::memcpy(header_.video.config, config, config_size);
    if (IsFile()) {
        header_.creation_date = static_cast<uint64_t>(CurrentTime());
    } else {
        // Readers rely on this: a stream announces audio before there is any, as 16-bit mono PCM at 16000 Hz.
        header_.broadcast = true;
        header_.audio.emplace();
    }
    ByteCursor out(work_.get(), kWorkSize);
    header_.Write(out);
    header_ready_ = true;
}

// The final header will have the stream; the padding of the first one keeps its place.
void CAsfPacket::OpenAudio(const MXFrameInfo& frame) {
    AsfAudioStream& audio = header_.audio.emplace();
    audio.tag = WaveFormatTag(frame.encode_type);
    audio.channels = frame.channels;
    audio.samples_per_sec = frame.samples_per_sec;
    audio.bits_per_sample = frame.bits_per_sample;
    if (frame.encode_type == MX_AUDIO_AAC) {
        audio.audio_specific_config = AudioSpecificConfigFromAdts(FrameBytes(frame));
    }
}

// Cuts the object into packets from `at` on in the work buffer; gives the place behind them.
uint32_t CAsfPacket::WritePackets(const uint8_t* data, const AsfMediaObject& object, uint32_t at) {
    const AsfPacketHead head(object);
    for (uint32_t offset = 0; offset < object.size; offset += kAsfPacketPayload) {
        const uint32_t length = std::min(object.size - offset, kAsfPacketPayload);
        uint8_t* const out = work_.get() + at;
        head.Write(out, offset, length);
        CopyPiece(out + kAsfPacketHeadSize, data + offset, length);
        if (length < kAsfPacketPayload) {
            std::memset(out + kAsfPacketHeadSize + length, 0, kAsfPacketPayload - length);
        }
        at += kAsfPacketSize;
    }
    header_.packets += PacketCount(object.size);
    return at;
}

// Readers rely on this: the time of the stream that lags, so 0 as long as one of them has not begun.
uint32_t CAsfPacket::SendTime() const {
    return std::min(audio_time_, video_time_);
}

// Room for one entry more, so that a frame for which memory runs out is known before anything has moved.
void CAsfPacket::MakeIndexRoom() {
    if (index_.capacity() - index_.size() < kAsfIndexEntrySize) index_.reserve(2 * index_.capacity());
}

void CAsfPacket::AddIndexEntry() {
    uint8_t entry[kAsfIndexEntrySize];
    ByteCursor out(entry);
    out.LE32(key_packet_)          // Packet Number
        .LE16(key_packet_count_);  // Packet Count
    index_.insert(index_.end(), entry, entry + sizeof entry);
    ++index_entries_;
}

void CAsfPacket::EmitWork(uint32_t length) {
    position_ += EmitAt(work_.get(), length, position_);
}

}  // namespace Orvane::Muxora
