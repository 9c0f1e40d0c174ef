#include "containers/flv_packet.h"

#include <cstring>
#include <vector>

#include "codec/audio_measures.h"
#include "codec/audio_specific_config.h"
#include "codec/avc_convert.h"
#include "core/frame_kinds.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kWorkSize = 0x200000;

// VIDEODATA: FrameType and CodecID 7 (AVC), then AVCPacketType.
constexpr uint8_t kAvcKeyFrame = 0x17;
constexpr uint8_t kAvcInterFrame = 0x27;
constexpr uint8_t kAvcSequenceHeader = 0;
constexpr uint8_t kAvcNalu = 1;
constexpr uint8_t kAvcEndOfSequence = 2;
constexpr uint32_t kVideoDataHeaderSize = 5;
// How much longer than its frame a conversion may become: a 3-byte start code turns into four bytes of length.
constexpr uint32_t kConversionGrowth = 100;

// AUDIODATA: SoundFormat, SoundRate, SoundSize, SoundType; for AAC then AACPacketType.
constexpr uint8_t kSoundPcm = 3 << 4;
constexpr uint8_t kSoundAac = 10 << 4;
constexpr uint8_t kSound44k = 3 << 2;
constexpr uint8_t kSound22k = 2 << 2;
constexpr uint8_t kSound11k = 1 << 2;
constexpr uint8_t kSound16Bit = 1 << 1;
constexpr uint8_t kSoundStereo = 1;
constexpr uint8_t kAacSequenceHeader = 0;
constexpr uint8_t kAacRaw = 1;
constexpr uint32_t kAacConfigDataSize = 4;
constexpr uint32_t kAacSamplesTimes1000 = 1024000;

// Values of "videocodecid" and "audiocodecid".
constexpr double kCodecIdAvc = 7;
constexpr double kCodecIdAac = 10;
constexpr double kCodecIdPcm = 3;

constexpr uint32_t kDefaultFrameRate = 25;
constexpr uint32_t kParameterSetCapacity = 256;

constexpr MXCapacityEntry kEncodeVideo[] = {{MX_VIDEO_H264_ALT, 0, 0, 0, {}}};
constexpr MXCapacityEntry kEncodeAudio[] = {
    {MX_AUDIO_AAC, 0, 0, 0, {}}, {MX_AUDIO_PCM8, 11000, 8, 1, {}}, {MX_AUDIO_PCM16, 11000, 8, 1, {}}};
constexpr MXCapacityEntry kCodecVideo[] = {{2, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecAudio[] = {{33, 0, 0, 0, {}}, {21, 11000, 8, 1, {}}, {30, 11000, 8, 1, {}}};

// Readers rely on this: the exact numbers and not the format's nominal rates, so 44100 is refused.
bool IsPcmRate(uint32_t rate) {
    return rate == 5500 || rate == 11000 || rate == 22000 || rate == 44000;
}

uint8_t PcmSoundByte(const MXFrameInfo& frame) {
    uint8_t sound = kSoundPcm;
    if (frame.samples_per_sec == 11000) sound |= kSound11k;
    if (frame.samples_per_sec == 22000) sound |= kSound22k;
    if (frame.samples_per_sec == 44000) sound |= kSound44k;
    if (frame.bits_per_sample == 16) sound |= kSound16Bit;
    if (frame.channels == 2) sound |= kSoundStereo;
    return sound;
}

// AAC is marked as 44 kHz stereo whatever it is; decoders take both from its configuration.
uint8_t AacSoundByte(const MXFrameInfo& frame) {
    const uint8_t sound = kSoundAac | kSound44k | kSoundStereo;
    return frame.bits_per_sample != 8 ? sound | kSound16Bit : sound;
}

// A file that never opened has a head of zeros.
void WriteFileHeader(ByteCursor& out, uint8_t type_flags) {
    if (type_flags == 0) {
        out.Zeros(kFlvFileHeaderSize);
        return;
    }
    PutFlvFileHeader(out, type_flags);
}

// A parameter set of the first key frame; empty, with zeros behind it, when the frame has none.
struct ParameterSet {
    uint8_t bytes[kParameterSetCapacity] = {};
    uint16_t length = 0;
};

using ParameterSetFinder = int32_t (*)(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap);

ParameterSet FindParameterSet(const MXFrameInfo& frame, ParameterSetFinder finder) {
    ParameterSet set;
    const int32_t length = finder(FrameBytes(frame), frame.frame_size, set.bytes, kParameterSetCapacity);
    if (length > 0) set.length = static_cast<uint16_t>(length);
    return set;
}

// The tag with the AVCDecoderConfigurationRecord (ISO/IEC 14496-15 5.2.4.1).
void WriteAvcConfigTag(ByteCursor& out, const MXFrameInfo& frame) {
    const ParameterSet sps = FindParameterSet(frame, CAvcConvert::GetSps);
    const ParameterSet pps = FindParameterSet(frame, CAvcConvert::GetPps);
    const uint8_t sps_count = sps.length != 0 ? 1 : 0;
    const uint8_t pps_count = pps.length != 0 ? 1 : 0;
    const uint32_t data_size = kVideoDataHeaderSize + 11u + sps.length + pps.length;
    WriteFlvTagHeader(out, FlvTagType::Video, data_size, 0);
    out.U8(kAvcKeyFrame)
        .U8(kAvcSequenceHeader)
        .BE24(0)               // CompositionTime
        .U8(sps_count)         // configurationVersion, 0 without an SPS
        .U8(sps.bytes[1])      // AVCProfileIndication
        .U8(sps.bytes[2])      // profile_compatibility
        .U8(sps.bytes[3])      // AVCLevelIndication
        .U8(0xFF)              // reserved, lengthSizeMinusOne 3
        .U8(0xE0 | sps_count)  // reserved, numOfSequenceParameterSets
        .BE16(sps.length)      // sequenceParameterSetLength
        .Bytes(sps.bytes, sps.length)
        .U8(pps_count)     // numOfPictureParameterSets
        .BE16(pps.length)  // pictureParameterSetLength
        .Bytes(pps.bytes, pps.length)
        .BE32(FlvTagSize(data_size));  // PreviousTagSize
}

// What was counted so far stays: a tail may have gone out ahead of the first key frame.
FlvMetadata OpeningMetadata(FlvMetadata metadata, const MXFrameInfo& frame) {
    metadata.width = frame.width;
    metadata.height = frame.height;
    metadata.framerate = frame.frame_rate != 0 ? frame.frame_rate : kDefaultFrameRate;
    metadata.videocodecid = kCodecIdAvc;
    return metadata;
}

}  // namespace

CFlvPacket::CFlvPacket(uint32_t format, const MXCreateParam* param)
    : CPackage(format, param), work_(AllocateLarge(kWorkSize)) {
}

uint32_t CFlvPacket::inputFrame(MXFrameInfo* frame, uint32_t /*reserved*/) {
    if (!HasData(frame)) return MX_FAILED;
    if (!checkFrame(frame)) return MX_FRAME_REFUSED;
    if (work_ == nullptr) return MX_NO_RESOURCES;
    return frame->frame_type == MX_FRAME_VIDEO ? InputVideo(*frame) : InputAudio(*frame);
}

uint32_t CFlvPacket::createTailer(const void* /*info*/, uint32_t /*unused*/) {
    if (format() != MX_FORMAT_FLV) return MX_OK;
    if (work_ == nullptr) return MX_NO_RESOURCES;

    ByteCursor end(work_.get(), kWorkSize);
    WriteFlvTagHeader(end, FlvTagType::Video, kVideoDataHeaderSize, VideoTime());
    end.U8(kAvcKeyFrame)
        .U8(kAvcEndOfSequence)
        .BE24(0)                                  // CompositionTime
        .BE32(FlvTagSize(kVideoDataHeaderSize));  // PreviousTagSize
    EmitWork(end.Size());

    ByteCursor head(work_.get(), kWorkSize);
    WriteFileHeader(head, TypeFlags());
    metadata_.WriteTag(head);
    EmitAt(head.Data(), head.Size(), 0);
    return MX_OK;
}

bool CFlvPacket::checkFrame(const MXFrameInfo* frame) const {
    if (frame->frame_type == MX_FRAME_VIDEO) return IsH264(frame->encode_type);
    if (frame->frame_type != MX_FRAME_AUDIO) return false;
    if (frame->encode_type == MX_AUDIO_AAC) return true;
    return (frame->encode_type == MX_AUDIO_PCM8 || frame->encode_type == MX_AUDIO_PCM16) &&
           IsPcmRate(frame->samples_per_sec) && (frame->bits_per_sample == 8 || frame->bits_per_sample == 16) &&
           (frame->channels == 1 || frame->channels == 2);
}

uint32_t CFlvPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CFlvPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

uint32_t CFlvPacket::InputVideo(const MXFrameInfo& frame) {
    const bool key = IsSyncFrame(frame.frame_sub_type);
    if (!video_seen_ && !key) return MX_OK;

    ByteCursor out(work_.get(), kWorkSize);
    std::optional<FlvMetadata> opening;
    if (!video_seen_) {
        opening = OpeningMetadata(metadata_, frame);
        // Readers rely on this: the stream form announces audio that may never come.
        WriteFileHeader(out, format() == MX_FORMAT_FLV ? kFlvHasVideo : kFlvHasVideo | kFlvHasAudio);
        opening->WriteTag(out);
        WriteAvcConfigTag(out, frame);
    }
    const uint32_t payload_at = out.Size() + kFlvTagHeaderSize + kVideoDataHeaderSize;
    const std::optional<uint32_t> payload = ConvertFrame(frame, payload_at);
    if (!payload) return MX_FAILED;
    // No member has moved up to here, so a frame that is refused leaves no trace.
    if (opening) {
        video_seen_ = true;
        metadata_ = *opening;
    }

    const uint32_t data_size = kVideoDataHeaderSize + *payload;
    WriteFlvTagHeader(out, FlvTagType::Video, data_size, VideoTime());
    out.U8(key ? kAvcKeyFrame : kAvcInterFrame).U8(kAvcNalu).BE24(0);  // CompositionTime
    PutBE32(work_.get() + payload_at + *payload, FlvTagSize(data_size));
    EmitWork(payload_at + *payload + kFlvPreviousTagSize);

    // Readers rely on this: the time of PCM audio starts again behind each video frame.
    audio_bytes_ = 0;
    ++video_frames_;
    metadata_.duration = video_frames_ / metadata_.framerate;
    return MX_OK;
}

uint32_t CFlvPacket::InputAudio(const MXFrameInfo& frame) {
    if (!video_seen_) return MX_OK;
    const bool aac = frame.encode_type == MX_AUDIO_AAC;
    const uint32_t skipped = aac ? kAdtsHeaderSize : 0;
    if (frame.frame_size < skipped) return MX_OK;

    const uint32_t payload = frame.frame_size - skipped;
    const bool opens_aac = aac && !audio_seen_;
    const uint32_t config_tag = opens_aac ? FlvTagSize(kAacConfigDataSize) + kFlvPreviousTagSize : 0;
    const uint32_t data_header = aac ? 2 : 1;
    if (payload > kWorkSize - config_tag - FlvTagSize(data_header) - kFlvPreviousTagSize) return MX_FAILED;
    const uint32_t data_size = data_header + payload;

    if (++audio_frames_ == 1) channel_ = frame.ma_cur_channel;
    if (frame.ma_cur_channel != channel_) return MX_OK;

    audio_seen_ = true;
    metadata_.audiocodecid = aac ? kCodecIdAac : kCodecIdPcm;
    metadata_.audiosamplerate = frame.samples_per_sec;
    metadata_.audiosamplesize = frame.bits_per_sample;
    if (frame.channels == 1 || frame.channels == 2) metadata_.stereo = frame.channels == 2;

    ByteCursor out(work_.get(), kWorkSize);
    const uint8_t sound = aac ? AacSoundByte(frame) : PcmSoundByte(frame);
    if (opens_aac) {
        WriteFlvTagHeader(out, FlvTagType::Audio, kAacConfigDataSize, audio_time_);
        out.U8(sound)
            .U8(kAacSequenceHeader)
            .BE16(AudioSpecificConfigFromAdts(FrameBytes(frame)))
            .BE32(FlvTagSize(kAacConfigDataSize));  // PreviousTagSize
    }
    WriteFlvTagHeader(out, FlvTagType::Audio, data_size, audio_time_);
    out.U8(sound);
    if (aac) out.U8(kAacRaw);
    out.Bytes(FrameBytes(frame) + skipped, payload).BE32(FlvTagSize(data_size));  // PreviousTagSize

    if (aac) {
        if (frame.samples_per_sec != 0) audio_time_ += kAacSamplesTimes1000 / frame.samples_per_sec;
    } else {
        // Readers rely on this: PCM time lags by a frame, it is counted before this frame's bytes.
        const uint32_t bytes_per_second = frame.bits_per_sample / 8 * frame.samples_per_sec * frame.channels;
        audio_time_ = audio_bytes_ * 1000 / bytes_per_second;
    }
    EmitWork(out.Size());
    audio_bytes_ += payload;
    return MX_OK;
}

// Converts the frame to `at` in the work buffer. Gives the length, or nothing when frame or conversion does not fit.
std::optional<uint32_t> CFlvPacket::ConvertFrame(const MXFrameInfo& frame, uint32_t at) {
    const uint32_t room = kWorkSize - at - kFlvPreviousTagSize;
    if (frame.frame_size > room) return std::nullopt;
    uint8_t* const out = work_.get() + at;
    const uint32_t capacity = frame.frame_size + kConversionGrowth;
    if (capacity <= room) {
        return CAvcConvert::ConvertToLengthPrefixed(FrameBytes(frame), frame.frame_size, out, capacity);
    }
    // So near to the end a conversion must show its length first: in place it would be cut without a word.
    std::vector<uint8_t> aside(capacity);
    const uint32_t length =
        CAvcConvert::ConvertToLengthPrefixed(FrameBytes(frame), frame.frame_size, aside.data(), capacity);
    if (length > room) return std::nullopt;
    if (length != 0) std::memcpy(out, aside.data(), length);
    return length;
}

// Readers rely on this: a time is the frame count over the first key frame's rate, whatever the frames say. The product
// is one of 32 bits.
uint32_t CFlvPacket::VideoTime() const {
    const double rate = metadata_.framerate != 0 ? metadata_.framerate : kDefaultFrameRate;
    return static_cast<uint32_t>(video_frames_ * 1000 / rate);
}

uint8_t CFlvPacket::TypeFlags() const {
    return static_cast<uint8_t>((video_seen_ ? kFlvHasVideo : 0) | (audio_seen_ ? kFlvHasAudio : 0));
}

// Hands out what stands in the work buffer. `filesize` counts what was composed, the position what was taken.
void CFlvPacket::EmitWork(uint32_t length) {
    position_ += EmitAt(work_.get(), length, position_);
    metadata_.filesize += length;
}

}  // namespace Orvane::Muxora
