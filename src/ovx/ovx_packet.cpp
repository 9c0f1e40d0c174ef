#include "ovx/ovx_packet.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "codec/crc32.h"
#include "core/byte_writer.h"
#include "core/clock.h"
#include "core/frame_kinds.h"
#include "ovx/aes.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kHeadSize = 24;
constexpr uint32_t kTailSize = 8;
constexpr uint32_t kTagSum = 'O' + 'R' + 'V' + 'X';
constexpr uint8_t kChannel = 1;
constexpr uint8_t kSubChannel = 0;
constexpr uint32_t kWorkBufferSize = 10240;

enum FrameKind : uint8_t {
    kKindOther = 0,
    kKindAudio = 240,
    kKindJpeg = 251,
    kKindP = 252,
    kKindI = 253,
    kKindB = 254,
};

constexpr uint32_t ByteSum(uint32_t word) {
    return (word & 0xFF) + (word >> 8 & 0xFF) + (word >> 16 & 0xFF) + (word >> 24);
}

struct Kind {
    uint8_t kind;
    uint8_t sub_kind;
};

Kind VideoKind(const MXFrameInfo& frame) {
    Kind kind{kKindOther, 0};
    switch (frame.frame_sub_type) {
        case MX_SUB_I:
            kind = {kKindI, 0};
            break;
        case MX_SUB_P:
            kind = {kKindP, 0};
            break;
        case MX_SUB_B:
            kind = {kKindB, 0};
            break;
        case MX_SUB_LAYERED_KEY:
            kind = {kKindI, 1};
            break;
        case MX_SUB_LAYERED_P:
            kind = {kKindP, 1};
            break;
        case MX_SUB_LAYERED_KEY2:
            kind = {kKindI, 2};
            break;
        // Readers rely on this: MX_SUB_KEY has no kind of its own.
        default:
            break;
    }
    if (frame.encode_type == MX_VIDEO_MJPEG) kind.kind = kKindJpeg;
    return kind;
}

constexpr MXCapacityEntry kEncodeVideo[] = {{MX_VIDEO_H264_ALT, 0, 0, 0, {}}, {MX_VIDEO_MPEG4, 0, 0, 0, {}},
                                            {MX_VIDEO_H265, 0, 0, 0, {}},     {MX_VIDEO_MJPEG, 0, 0, 0, {}},
                                            {MX_VIDEO_MPEG2, 0, 0, 0, {}},    {MX_VIDEO_OVX_CODEC_13, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecVideo[] = {{2, 0, 0, 0, {}}, {1, 0, 0, 0, {}}, {5, 0, 0, 0, {}},
                                           {3, 0, 0, 0, {}}, {6, 0, 0, 0, {}}, {7, 0, 0, 0, {}}};
constexpr MXCapacityEntry kEncodeAudio[] = {{MX_AUDIO_ALAW, 0, 0, 0, {}},
                                            {MX_AUDIO_MULAW, 0, 0, 0, {}},
                                            {MX_AUDIO_AAC, 0, 0, 0, {}},
                                            {MX_AUDIO_MPEG, 0, 0, 0, {}},
                                            {MX_AUDIO_PCM8, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecAudio[] = {
    {28, 0, 0, 0, {}}, {31, 0, 0, 0, {}}, {33, 0, 0, 0, {}}, {38, 0, 0, 0, {}}, {21, 0, 0, 0, {}}};

}  // namespace

COvxPacket::COvxPacket(uint32_t format, const MXCreateParam* param)
    : CPackage(format, param), base_time_(CurrentTime()), cur_time_(base_time_) {
}

uint32_t COvxPacket::createHeader(MXHeaderInfo* info, uint32_t /*unused*/) {
    if (info == nullptr) return MX_NULL_RECORD;
    if (info->self_timed != 0) self_timed_ = true;
    if (info->resync_period != 0) resync_period_ = info->resync_period;
    return MX_OK;
}

uint32_t COvxPacket::inputFrame(MXFrameInfo* frame, uint32_t /*reserved*/) {
    if (frame == nullptr) return MX_FAILED;
    if (!checkFrame(frame)) return MX_FRAME_REFUSED;
    return PackFrame(*frame, nullptr);
}

uint32_t COvxPacket::inputFrameEx(MXFrameInfo* frame, Basalt::CPacket& packet) {
    if (frame == nullptr) return MX_FAILED;
    if (!checkFrame(frame)) return MX_FRAME_REFUSED;
    head_ = {};
    const uint32_t result = PackFrame(*frame, &packet);
    packet.resize(head_.length);  // 0 when there is no unit
    return result;
}

uint32_t COvxPacket::setEncryptType(uint32_t type, const void* key, uint32_t key_length) {
    if (key == nullptr || key_length == 0) {
        cipher_.reset();
    } else if (type != MX_ENCRYPT_AES) {
        cipher_.reset();
        return MX_FAILED;
    } else {
        // Without memory for the new cipher the old one stays: frames that are to be secret do not go plain for it.
        auto cipher = std::make_unique<CAes>();
        // A refused key is not reported: the cipher is then not ready, and frames stay plain.
        cipher->setKey(key, key_length);
        cipher_ = std::move(cipher);
        encrypt_type_ = static_cast<uint8_t>(type);
    }
    if (work_buffer_ == nullptr) work_buffer_.reset(new (std::nothrow) uint8_t[kWorkBufferSize]);
    work_capacity_ = work_buffer_ != nullptr ? kWorkBufferSize : 0;
    return MX_OK;
}

bool COvxPacket::checkFrame(const MXFrameInfo* frame) const {
    switch (frame->frame_type) {
        case MX_FRAME_VIDEO:
            switch (frame->encode_type) {
                case MX_VIDEO_MPEG4:
                case MX_VIDEO_H264:
                case MX_VIDEO_MJPEG:
                case MX_VIDEO_H264_ALT:
                case MX_VIDEO_MPEG2:
                case MX_VIDEO_STREAM_TYPE_80:
                case MX_VIDEO_H265:
                case MX_VIDEO_OVX_CODEC_13:
                case MX_VIDEO_STREAM_TYPE_B0:
                    return true;
                default:
                    return false;
            }
        case MX_FRAME_AUDIO:
            return frame->encode_type != 0;
        case MX_FRAME_PRIVATE:
            return true;
        default:
            return false;
    }
}

uint32_t COvxPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t COvxPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

uint32_t COvxPacket::PackFrame(MXFrameInfo& frame, Basalt::CPacket* packet) {
    switch (frame.frame_type) {
        case MX_FRAME_VIDEO:
            return PackVideo(frame, packet);
        case MX_FRAME_AUDIO:
            return PackAudio(frame, packet);
        case MX_FRAME_PRIVATE:
            return MX_OK;  // accepted, and not part of the stream
        default:
            return MX_FAILED;
    }
}

uint32_t COvxPacket::PackVideo(MXFrameInfo& frame, Basalt::CPacket* packet) {
    if (!HasData(&frame)) return MX_FAILED;
    const OvxVideoInfo info_before = video_info_;
    if (IsKeyFrame(frame.frame_sub_type)) {
        video_info_ = {true, frame.encode_type, frame.deinterlace, frame.width, frame.height, frame.frame_rate};
    }
    if (!video_info_.valid) return MX_FAILED;
    if (!StartUnit(frame, packet)) {
        video_info_ = info_before;
        return MX_FAILED;
    }
    const Kind kind = VideoKind(frame);
    head_.kind = kind.kind;
    head_.sub_kind = kind.sub_kind;
    head_.sequence = VideoSequence(frame);
    head_.timestamp = VideoTimestamp(frame);
    head_.ovx_time = VideoDate(frame);
    SendUnit(frame, packet);
    ++video_count_;
    return MX_OK;
}

uint32_t COvxPacket::PackAudio(MXFrameInfo& frame, Basalt::CPacket* packet) {
    if (!HasData(&frame)) return MX_FAILED;
    audio_info_ = {true,         frame.encode_type, frame.channels, frame.samples_per_sec, frame.bits_per_sample,
                   frame.bitrate};
    if (!StartUnit(frame, packet)) return MX_FAILED;
    head_.kind = kKindAudio;
    head_.timestamp = static_cast<uint16_t>(frame.timestamp != 0 ? frame.timestamp : last_timestamp_);
    head_.sequence = AudioSequence(frame);
    head_.ovx_time = AudioDate(frame);
    SendUnit(frame, packet);
    return MX_OK;
}

uint64_t COvxPacket::UnitLength(const MXFrameInfo& frame) const {
    return uint64_t{kHeadSize} + extension_.Size() + frame.frame_size + kTailSize;
}

bool COvxPacket::StartUnit(MXFrameInfo& frame, const Basalt::CPacket* packet) {
    head_ = {};
    const std::span<uint8_t> stretch = EncryptStretch(frame);
    extension_.Build(frame, video_info_, audio_info_, !stretch.empty(), encrypt_type_);
    // The room is checked before the frame is encrypted, so that the caller may come again with a larger packet.
    if (packet != nullptr && UnitLength(frame) > std::min<uint64_t>(packet->capacity(), UINT32_MAX)) return false;
    if (!stretch.empty() && !Encrypt(stretch)) extension_.Build(frame, video_info_, audio_info_, false, encrypt_type_);
    return true;
}

void COvxPacket::SendUnit(const MXFrameInfo& frame, Basalt::CPacket* packet) {
    const uint64_t length = UnitLength(frame);
    uint8_t* out = nullptr;
    if (packet != nullptr) {
        out = packet->getBuffer();
    } else if (length <= UINT32_MAX) {
        buffer_.Reset();
        out = buffer_.Extend(static_cast<uint32_t>(length));
    }
    // No memory for the unit: it is lost, which is not reported, and the stream goes on.
    if (out == nullptr) return;
    head_.length = static_cast<uint32_t>(length);

    uint8_t* const frame_out = out + kHeadSize + extension_.Size();
    extension_.SetCheckValue(Crc32Copy(0, frame_out, FrameBytes(frame), frame.frame_size));
    WriteHead(out);
    std::memcpy(out + kHeadSize, extension_.Data(), extension_.Size());
    ByteCursor(frame_out + frame.frame_size, kTailSize).Text("orvx").LE32(head_.length);
    total_written_ += EmitNext(out, head_.length);
}

void COvxPacket::WriteHead(uint8_t* out) const {
    // Readers rely on this: a full block of 256 bytes says 0.
    const auto extension_size = static_cast<uint8_t>(extension_.Size());
    // The sum of all bytes before it, taken from the fields: reading the bytes back would wait for their way to memory.
    const auto sum = static_cast<uint8_t>(kTagSum + head_.kind + head_.sub_kind + kChannel + kSubChannel +
                                          ByteSum(head_.sequence) + ByteSum(head_.length) + ByteSum(head_.ovx_time) +
                                          ByteSum(head_.timestamp) + extension_size);
    ByteCursor(out, kHeadSize)
        .Text("ORVX")
        .U8(head_.kind)
        .U8(head_.sub_kind)
        .U8(kChannel)
        .U8(kSubChannel)
        .LE32(head_.sequence)
        .LE32(head_.length)
        .LE32(head_.ovx_time)
        .LE16(head_.timestamp)
        .U8(extension_size)
        .U8(sum);
}

uint32_t COvxPacket::VideoSequence(const MXFrameInfo& frame) {
    if (frame.frame_seq != 0) {
        video_count_ = frame.frame_seq;
        if (base_count_ == 1) base_count_ = video_count_;
    }
    return video_count_;
}

uint16_t COvxPacket::VideoTimestamp(const MXFrameInfo& frame) {
    if (frame.timestamp != 0 || video_info_.frame_rate == 0) return static_cast<uint16_t>(frame.timestamp);
    last_timestamp_ = (video_count_ - 1) * 1000 / video_info_.frame_rate & 0xFFFF;  // wraps at 32 bits
    return static_cast<uint16_t>(last_timestamp_);
}

uint32_t COvxPacket::VideoDate(const MXFrameInfo& frame) {
    if (!self_timed_ && frame.utc_time != 0) return PackDateWord(frame.utc_time);
    const uint32_t rate = video_info_.frame_rate;
    if (!self_timed_ && frame.timestamp != 0) {
        cur_time_ = base_time_ + frame.timestamp / 1000;
    } else if (rate != 0) {
        const uint32_t resync_frames = rate * resync_period_;  // wraps at 32 bits; 0 has no multiples to wait for
        if (resync_frames != 0 && video_count_ % resync_frames == 0) {
            base_time_ = CurrentTime();
            base_count_ = video_count_;
        }
        cur_time_ = base_time_ + (video_count_ - base_count_ + 1) / rate;
    }
    return PackDateWord(cur_time_);
}

uint32_t COvxPacket::AudioSequence(const MXFrameInfo& frame) {
    if (frame.frame_seq != 0) audio_count_ = frame.frame_seq;
    return audio_count_++;
}

uint32_t COvxPacket::AudioDate(const MXFrameInfo& frame) const {
    return PackDateWord(!self_timed_ && frame.utc_time != 0 ? frame.utc_time : cur_time_);
}

std::span<uint8_t> COvxPacket::EncryptStretch(const MXFrameInfo& frame) const {
    if (cipher_ == nullptr || !cipher_->isReady() || frame.encrypt_offset >= frame.frame_size) return {};
    const uint32_t length = std::min(frame.encrypt_length, frame.frame_size - frame.encrypt_offset);
    if (length < CAes::kBlockSize) return {};
    return {static_cast<uint8_t*>(frame.frame_pointer) + frame.encrypt_offset, length};
}

bool COvxPacket::Encrypt(std::span<uint8_t> stretch) {
    const auto length = static_cast<uint32_t>(stretch.size());
    std::unique_ptr<uint8_t[]> temporary;
    uint8_t* cipher_text = work_buffer_.get();
    uint32_t capacity = work_capacity_;
    if (capacity <= length) {
        temporary.reset(new (std::nothrow) uint8_t[length]);
        cipher_text = temporary.get();
        capacity = length;
    }
    if (!cipher_->encrypt(stretch.data(), length, cipher_text, &capacity)) return false;
    std::memcpy(stretch.data(), cipher_text, capacity);
    return true;
}

}  // namespace Orvane::Muxora
