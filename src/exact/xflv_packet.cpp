#include "exact/xflv_packet.h"

#include <algorithm>

#include "codec/annexb.h"
#include "codec/audio_header.h"
#include "codec/flv_tag.h"
#include "core/frame_kinds.h"
#include "exact/rescale.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kScale = 1000;
constexpr uint32_t kLongestData = 0xFFFFFF;  // DataSize has 24 bits

// VIDEODATA (E.4.3.1): FrameType and CodecID; then AVCPacketType and CompositionTime.
constexpr uint8_t kKeyFrame = 1 << 4;
constexpr uint8_t kInterFrame = 2 << 4;
constexpr uint8_t kCodecAvc = 7;
constexpr uint8_t kSequenceHeader = 0;
constexpr uint8_t kNalUnits = 1;
constexpr uint8_t kEndOfSequence = 2;
constexpr uint32_t kVideoHeaderSize = 5;
// Enhanced RTMP (veovera, version 1): IsExHeader, FrameType and PacketType; then a FourCC.
constexpr uint8_t kExHeader = 0x80;
constexpr uint8_t kCodedFrames = 1;           // with a CompositionTime
constexpr uint32_t kHevcFourCc = 0x68766331;  // "hvc1"
constexpr uint32_t kExVideoHeaderSize = 8;
constexpr uint32_t kLargestVideoHeader = kExVideoHeaderSize;
constexpr uint32_t kTagAround = kFlvTagHeaderSize + kFlvPreviousTagSize;

// AUDIODATA (E.4.2.1): SoundFormat, SoundRate, SoundSize, SoundType.
constexpr uint8_t kSoundMp3 = 2 << 4;
constexpr uint8_t kSoundPcm = 3 << 4;
constexpr uint8_t kSoundAlaw = 7 << 4;
constexpr uint8_t kSoundMulaw = 8 << 4;
constexpr uint8_t kSoundAac = 10 << 4;
constexpr uint8_t kSoundMp3At8k = 14 << 4;
constexpr uint8_t kSound16Bit = 1 << 1;
constexpr uint8_t kSoundStereo = 1;
constexpr uint8_t kAacSound = kSoundAac | 3 << 2 | kSound16Bit | kSoundStereo;  // whatever it is
constexpr uint8_t kAacSequenceHeader = 0;
constexpr uint8_t kAacRaw = 1;
constexpr uint32_t kTelephoneRate = 8000;
constexpr uint32_t kAudioConfigSize = kTagAround + 4;  // the whole tag

// SoundRate: 5.5, 11, 22 and 44 kHz.
std::optional<uint8_t> SoundRate(uint32_t rate) {
    switch (rate) {
        case 5500:
        case 5512:
            return uint8_t{0};
        case 11025:
            return uint8_t{1 << 2};
        case 22050:
            return uint8_t{2 << 2};
        case 44100:
            return uint8_t{3 << 2};
        default:
            return std::nullopt;
    }
}

uint32_t FlvTime(int64_t time) {
    return static_cast<uint32_t>(static_cast<uint64_t>(time));
}

constexpr MXCapacityEntry kEncodeVideo[] = {{MX_VIDEO_H264_ALT, 0, 0, 0, {}}, {MX_VIDEO_H265, 0, 0, 0, {}}};
constexpr MXCapacityEntry kEncodeAudio[] = {{MX_AUDIO_AAC, 0, 0, 0, {}},  {MX_AUDIO_MPEG, 0, 0, 0, {}},
                                            {MX_AUDIO_ALAW, 0, 0, 0, {}}, {MX_AUDIO_MULAW, 0, 0, 0, {}},
                                            {MX_AUDIO_PCM8, 0, 0, 0, {}}, {MX_AUDIO_PCM16, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecVideo[] = {{2, 0, 0, 0, {}}, {5, 0, 0, 0, {}}};
constexpr MXCapacityEntry kCodecAudio[] = {{33, 0, 0, 0, {}}, {38, 0, 0, 0, {}}, {28, 0, 0, 0, {}},
                                           {31, 0, 0, 0, {}}, {21, 0, 0, 0, {}}, {30, 0, 0, 0, {}}};

bool IsPcm(uint32_t encode_type) {
    return encode_type == MX_AUDIO_PCM8 || encode_type == MX_AUDIO_PCM16;
}

bool IsG711(uint32_t encode_type) {
    return encode_type == MX_AUDIO_ALAW || encode_type == MX_AUDIO_MULAW;
}

}  // namespace

void CXflvPacket::Tally::Count(uint64_t size, const FrameTime& time) {
    const int64_t duration = time.duration != 0 || frames == 0 ? time.duration : time.dts - last;
    begin = frames == 0 ? time.pts : std::min(begin, time.pts);
    end = frames == 0 ? time.pts + duration : std::max(end, time.pts + duration);
    last = time.dts;
    ++frames;
    bytes += size;
}

double CXflvPacket::Tally::Kilobits() const {
    return end > begin ? static_cast<double>(bytes) * 8 / static_cast<double>(end - begin) : 0;
}

CXflvPacket::CXflvPacket(uint32_t format, const MXCreateParam* param)
    : CExactPackage(format, param, kScale, FrameClock::Origin::kNearZero) {
}

uint32_t CXflvPacket::createHeader(MXHeaderInfo* info, uint32_t unused) {
    const uint32_t result = CExactPackage::createHeader(info, unused);
    if (result != MX_OK || head_written_) return result;
    const bool states_gap = info != nullptr && info->reserved_gap != 0;
    index_ = CFlvIndex((states_gap ? info->reserved_gap : kDefaultGap) / FlvHead::kEntrySize);
    with_head_ = true;
    if (info != nullptr) {
        announced_video_ = info->video_present != 0;
        announced_audio_ = info->audio_present != 0;
        announced_ = announced_video_ || announced_audio_;
    }
    return MX_OK;
}

bool CXflvPacket::checkFrame(const MXFrameInfo* frame) const {
    const uint32_t codec = frame->encode_type;
    if (frame->frame_type == MX_FRAME_VIDEO) return IsAvc(codec) || codec == MX_VIDEO_H265;
    if (frame->frame_type != MX_FRAME_AUDIO) return false;
    if (codec == MX_AUDIO_AAC || codec == MX_AUDIO_MPEG) return true;
    if (frame->channels > 2) return false;
    if (IsG711(codec)) return frame->samples_per_sec == kTelephoneRate;
    return IsPcm(codec) && SoundRate(frame->samples_per_sec).has_value();
}

uint32_t CXflvPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CXflvPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

uint32_t CXflvPacket::PackVideo(const MXFrameInfo& frame) {
    const bool key = IsKeyFrame(frame.frame_sub_type);
    const auto found = video_.Take(frame);
    if (!found) return MX_FAILED;
    if (!video_begun_ && !key) return MX_FRAME_REFUSED;
    if (!found->has_picture) return MX_OK;
    if (!video_.Complete() || frame.frame_size > kLongestData / 4 * 3 - kLargestVideoHeader) return MX_FRAME_REFUSED;

    const FrameTime time = VideoTime(frame, video_.ReorderDepth());
    work_.Reset();
    // All the room that the frame needs, before anything is told or written. Start codes of three bytes become lengths
    // of four.
    uint32_t room = kTagAround + kLargestVideoHeader + frame.frame_size + frame.frame_size / 3 + 4;
    const uint32_t config_size = video_.Changed() ? video_.Sets().ConfigurationSize() : 0;
    if (video_.Changed()) room += HeadSize() + kTagAround + kVideoHeaderSize + config_size + kAudioConfigSize;
    if (work_.Reserve(room) != MX_OK) return MX_NO_RESOURCES;

    hevc_ = frame.encode_type == MX_VIDEO_H265;
    if (video_.Changed()) {
        video_.Told();
        const SpsDetails details = video_.Details(frame);
        head_.width = details.width;
        head_.height = details.height;
        head_.framerate = frame.frame_rate;
        head_.videocodecid = hevc_ ? double{kHevcFourCc} : double{kCodecAvc};
        PutHead();
        // Players take the first entry of the index for the sequence header.
        if (!video_begun_) AddToIndex(time);
        PutVideoConfig(FlvTime(time.dts), config_size);
        if (audio_begun_) PutAudioConfig(FlvTime(time.dts));
        EndHeader(time.dts);
    }
    video_begun_ = true;
    if (key) AddToIndex(time);
    PutPicture(frame, found->rest, key, time);
    video_tally_.Count(frame.frame_size, time);
    Emit(MX_BLOCK_MEDIA, MX_BLOCK_VIDEO | (key ? uint32_t{MX_BLOCK_KEY} : 0), time);
    return MX_OK;
}

void CXflvPacket::Forget(bool picture) {
    if (picture) video_.Undo();
}

// What comes next in the work buffer is a place to seek to. Readers check the index against the tags and do not expect
// a time below 0 there.
void CXflvPacket::AddToIndex(const FrameTime& time) {
    if (time.dts >= 0) index_->Add(static_cast<double>(time.pts) / kScale, position_ + work_.Size());
}

// The tag of a picture, behind the parameter sets that it begins with: the sequence header has those.
void CXflvPacket::PutPicture(const MXFrameInfo& frame, uint32_t skipped, bool key, const FrameTime& time) {
    const uint32_t header_size = hevc_ ? kExVideoHeaderSize : kVideoHeaderSize;
    const uint32_t size = frame.frame_size - skipped;
    const uint32_t bound = size + size / 3 + 4;
    uint8_t* const tag = work_.Extend(kTagAround + header_size + bound);
    uint8_t* const payload = tag + kFlvTagHeaderSize + header_size;
    const uint32_t length = AnnexBToLengthPrefixed(FrameBytes(frame) + skipped, size, payload, bound);
    const uint32_t data_size = header_size + length;
    const auto offset = static_cast<uint32_t>(time.pts - time.dts);
    const uint8_t kind = key ? kKeyFrame : kInterFrame;
    ByteCursor out(tag, kFlvTagHeaderSize + header_size);
    PutFlvTagHeader(out, FlvTagType::Video, data_size, FlvTime(time.dts));
    if (hevc_) {
        out.U8(static_cast<uint8_t>(kExHeader | kind | kCodedFrames)).BE32(kHevcFourCc).BE24(offset);
    } else {
        out.U8(kind | kCodecAvc).U8(kNalUnits).BE24(offset);  // CompositionTime
    }
    PutBE32(payload + length, FlvTagSize(data_size));  // PreviousTagSize
    work_.Shrink(bound - length);
}

uint32_t CXflvPacket::PackAudio(const MXFrameInfo& frame, const AudioMeasure& measure) {
    const bool aac = frame.encode_type == MX_AUDIO_AAC;
    const std::span<const uint8_t> bytes(FrameBytes(frame), frame.frame_size);
    if (bytes.size() > kLongestData - 2) return MX_FRAME_REFUSED;
    if (aac && !measure.adts) return MX_FAILED;
    const auto sound = SoundByte(frame);
    if (!sound) return MX_FRAME_REFUSED;

    const FrameTime time = AudioTime(frame, measure);
    work_.Reset();
    const uint16_t config = aac ? measure.adts->AudioSpecificConfig() : uint16_t{0};
    const bool tells = !audio_begun_ || *sound != sound_ || config != aac_config_;
    const uint32_t tags = aac ? measure.samples / kLeastAdtsSamples : 1;
    const uint32_t room = frame.frame_size + tags * (kTagAround + 2) + (tells ? HeadSize() + kAudioConfigSize : 0);
    if (work_.Reserve(room) != MX_OK) return MX_NO_RESOURCES;
    if (tells) {
        sound_ = *sound;
        aac_config_ = config;
        head_.audiocodecid = sound_ >> 4;
        head_.audiosamplerate = measure.sample_rate;
        head_.audiosamplesize = (sound_ & kSound16Bit) != 0 ? 16 : 8;
        head_.stereo = measure.channels == 2;
        PutHead();
        PutAudioConfig(FlvTime(time.dts));
        EndHeader(time.dts);
    }
    audio_begun_ = true;
    if (aac) {
        PutAdtsFrames(*measure.adts, bytes, time.dts);
    } else {
        PutSound(bytes, time.dts);
    }
    audio_tally_.Count(bytes.size(), time);
    const bool alone = !video_begun_ && !announced_video_;
    Emit(MX_BLOCK_MEDIA, MX_BLOCK_AUDIO | (alone ? uint32_t{MX_BLOCK_KEY} : 0), time);
    return MX_OK;
}

// Nothing where FLV has no name for the sound.
std::optional<uint8_t> CXflvPacket::SoundByte(const MXFrameInfo& frame) {
    const uint8_t stereo = frame.channels == 2 ? kSoundStereo : uint8_t{0};
    switch (frame.encode_type) {
        case MX_AUDIO_AAC:
            return kAacSound;
        case MX_AUDIO_ALAW:
            return static_cast<uint8_t>(kSoundAlaw | kSound16Bit | stereo);
        case MX_AUDIO_MULAW:
            return static_cast<uint8_t>(kSoundMulaw | kSound16Bit | stereo);
        case MX_AUDIO_PCM8:
        case MX_AUDIO_PCM16: {
            const uint8_t rate = SoundRate(frame.samples_per_sec).value_or(uint8_t{0});  // checkFrame has seen one
            return static_cast<uint8_t>(kSoundPcm | rate | stereo |
                                        (frame.encode_type == MX_AUDIO_PCM16 ? kSound16Bit : 0));
        }
        default:
            break;
    }
    const auto header = ReadMpegAudioHeader({FrameBytes(frame), frame.frame_size});
    if (!header || header->layer != 3) return std::nullopt;
    const uint8_t channels = header->channels == 2 ? kSoundStereo : uint8_t{0};
    if (header->sample_rate == kTelephoneRate) return static_cast<uint8_t>(kSoundMp3At8k | kSound16Bit | channels);
    // Decoders take the rate from the frames; the nearest name stands for those that have none.
    const uint8_t rate = header->sample_rate >= 32000 ? 3 << 2 : header->sample_rate >= 16000 ? 2 << 2 : 1 << 2;
    return static_cast<uint8_t>(kSoundMp3 | rate | kSound16Bit | channels);
}

void CXflvPacket::PutSound(std::span<const uint8_t> bytes, int64_t time) {
    const auto data_size = static_cast<uint32_t>(1 + bytes.size());
    const uint32_t size = FlvTagSize(data_size) + kFlvPreviousTagSize;
    uint8_t* const tag = work_.Extend(size);
    ByteCursor out(tag, size);
    PutFlvTagHeader(out, FlvTagType::Audio, data_size, FlvTime(time));
    out.U8(sound_).Bytes(bytes.data(), static_cast<uint32_t>(bytes.size())).BE32(FlvTagSize(data_size));
}

// A tag for each frame in `bytes`, of which `first` is the first header. What stands behind the last whole one is left
// out.
void CXflvPacket::PutAdtsFrames(const AdtsHeader& first, std::span<const uint8_t> bytes, int64_t time) {
    int64_t samples = 0;
    for (std::optional<AdtsHeader> adts = first; adts; adts = ReadAdtsHeader(bytes)) {
        const uint32_t length = adts->frame_size - adts->header_size;
        const uint32_t data_size = 2 + length;
        const uint32_t size = FlvTagSize(data_size) + kFlvPreviousTagSize;
        uint8_t* const tag = work_.Extend(size);
        ByteCursor out(tag, size);
        PutFlvTagHeader(out, FlvTagType::Audio, data_size, FlvTime(time + Rescale(samples, adts->sample_rate, kScale)));
        out.U8(kAacSound).U8(kAacRaw).Bytes(bytes.data() + adts->header_size, length).BE32(FlvTagSize(data_size));
        samples += adts->samples;
        bytes = bytes.subspan(adts->frame_size);
    }
}

// What PutHead still has to write.
uint32_t CXflvPacket::HeadSize() {
    if (head_written_) return 0;
    if (!index_) index_.emplace(0);
    return FlvHead::Size(*index_);
}

// The head, once, ahead of everything else.
void CXflvPacket::PutHead() {
    if (head_written_) return;
    // Where nothing was announced, both streams may come.
    head_.has_video = !announced_ || announced_video_;
    head_.has_audio = !announced_ || announced_audio_;
    const uint32_t size = FlvHead::Size(*index_);
    ByteCursor out(work_.Extend(size), size);
    head_.Write(out, *index_);
    head_written_ = true;
}

// `config_size`: of the configuration record.
void CXflvPacket::PutVideoConfig(uint32_t time, uint32_t config_size) {
    const uint32_t header_size = hevc_ ? 5 : kVideoHeaderSize;
    const uint32_t data_size = header_size + config_size;
    const uint32_t size = FlvTagSize(data_size) + kFlvPreviousTagSize;
    ByteCursor out(work_.Extend(size), size);
    PutFlvTagHeader(out, FlvTagType::Video, data_size, time);
    if (hevc_) {
        out.U8(kExHeader | kKeyFrame | kSequenceHeader).BE32(kHevcFourCc);
    } else {
        out.U8(kKeyFrame | kCodecAvc).U8(kSequenceHeader).BE24(0);
    }
    video_.Sets().WriteConfiguration(out);
    out.BE32(FlvTagSize(data_size));
}

// Only AAC has one.
void CXflvPacket::PutAudioConfig(uint32_t time) {
    if (sound_ != kAacSound) return;
    constexpr uint32_t kDataSize = 4;
    constexpr uint32_t kSize = FlvTagSize(kDataSize) + kFlvPreviousTagSize;
    static_assert(kSize == kAudioConfigSize);
    ByteCursor out(work_.Extend(kSize), kSize);
    PutFlvTagHeader(out, FlvTagType::Audio, kDataSize, time);
    out.U8(kAacSound).U8(kAacSequenceHeader).BE16(aac_config_).BE32(FlvTagSize(kDataSize));
}

// What is in the work buffer goes out as a header of its own; where no header was asked for, it stays in front of the
// frame, as a stream component hands out one block a frame.
void CXflvPacket::EndHeader(int64_t time) {
    if (!with_head_ || work_.Size() == 0) return;
    Emit(MX_BLOCK_HEADER, 0, {kScale, time, time, 0});
    work_.Reset();
}

void CXflvPacket::Emit(uint32_t kind, uint32_t flags, const FrameTime& time) {
    const BlockNote note{static_cast<MXBlockKind>(kind), flags, time.scale, time.dts, time.duration};
    position_ += with_head_ ? EmitExactAt(work_.Data(), work_.Size(), position_, note)
                            : EmitExact(work_.Data(), work_.Size(), note);
}

uint32_t CXflvPacket::Finish() {
    if (!with_head_) return MX_OK;
    // The head is the largest of what is to come.
    work_.Reset();
    if (work_.Reserve(FlvHead::Size(*index_)) != MX_OK) return MX_NO_RESOURCES;
    if (!head_written_) {
        // A file without a frame is one all the same.
        PutHead();
        EndHeader(0);
    }
    const int64_t end = std::max(video_tally_.end, audio_tally_.end);
    if (video_begun_) {
        work_.Reset();
        const uint32_t data_size = 5;
        const uint32_t size = FlvTagSize(data_size) + kFlvPreviousTagSize;
        ByteCursor out(work_.Extend(size), size);
        PutFlvTagHeader(out, FlvTagType::Video, data_size, FlvTime(end));
        if (hevc_) {
            out.U8(kExHeader | kKeyFrame | kEndOfSequence).BE32(kHevcFourCc);
        } else {
            out.U8(kKeyFrame | kCodecAvc).U8(kEndOfSequence).BE24(0);
        }
        out.BE32(FlvTagSize(data_size));
        Emit(MX_BLOCK_INDEX, 0, {kScale, end, end, 0});
    }
    head_.has_video = video_begun_;
    head_.has_audio = audio_begun_;
    head_.duration = static_cast<double>(end) / kScale;
    head_.filesize = static_cast<double>(position_);
    head_.videodatarate = video_tally_.Kilobits();
    head_.audiodatarate = audio_tally_.Kilobits();
    if (video_tally_.end > video_tally_.begin) {
        head_.framerate = static_cast<double>(video_tally_.frames) * kScale /
                          static_cast<double>(video_tally_.end - video_tally_.begin);
    }
    work_.Reset();
    const uint32_t size = FlvHead::Size(*index_);
    ByteCursor out(work_.Extend(size), size);
    head_.Write(out, *index_);
    EmitExactAt(work_.Data(), size, 0, {MX_BLOCK_PATCH, 0, kScale, 0, 0});
    return MX_OK;
}

}  // namespace Orvane::Muxora
