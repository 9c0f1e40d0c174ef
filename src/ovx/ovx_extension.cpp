#include "ovx/ovx_extension.h"

#include <cstddef>

namespace Orvane::Muxora {

namespace {

enum RecordTag : uint8_t {
    kImageSizeTag = 0x80,
    kPlayBackTag = 0x81,
    kLongImageSizeTag = 0x82,
    kAudioFormatTag = 0x83,
    kDataCheckTag = 0x88,
    kRotationInfoTag = 0x8B,
    kAudioFormat2Tag = 0x8C,
    kCompanyTypeTag = 0x92,
    kSvcHeadTag = 0x94,
    kEncryptTag = 0x95,
    kMultiChannelTag = 0x96,
    kSplitInfoTag = 0x99,
};

constexpr uint8_t kCheckCrc32 = 2;  // of the kinds that readers know: 0 sum of words, 1 XOR of bytes, 2 CRC-32

// Readers turn an index back into the value; 0 stands for one that is not in the list.
constexpr uint32_t kSampleRates[] = {0, 4000, 8000, 11025, 16000, 20000, 22050, 32000, 44100, 48000};
constexpr uint32_t kBitRates[] = {0,     16000, 32000,  5300,   6300,   8000,   24000,  40000,  48000,  56000,  64000,
                                  80000, 96000, 112000, 128000, 144000, 160000, 192000, 224000, 256000, 320000, 384000};

template <size_t N>
uint8_t IndexOf(const uint32_t (&list)[N], uint32_t value) {
    for (size_t i = 0; i < N; ++i) {
        if (list[i] == value) return static_cast<uint8_t>(i);
    }
    return 0;
}

uint8_t VideoCodecByte(uint32_t encode_type) {
    switch (encode_type) {
        case MX_VIDEO_MPEG4:
            return 1;
        case MX_VIDEO_H264:
            return 2;
        case MX_VIDEO_MJPEG:
            return 5;
        case MX_VIDEO_H264_ALT:
            return 8;
        case MX_VIDEO_MPEG2:
            return 9;
        case MX_VIDEO_STREAM_TYPE_80:
            return 11;
        case MX_VIDEO_H265:
            return 12;
        case MX_VIDEO_OVX_CODEC_13:
            return 13;
        case MX_VIDEO_STREAM_TYPE_B0:
            return 14;
        default:
            return 0;
    }
}

// Pictures from which a player can start say what it needs. Readers rely on this: MX_SUB_KEY is not among them, and the
// predicted frames of the layered kind are.
bool CarriesPictureFormat(const MXFrameInfo& frame) {
    if (frame.frame_type != MX_FRAME_VIDEO) return false;
    return frame.encode_type == MX_VIDEO_MJPEG || frame.frame_sub_type == MX_SUB_I ||
           frame.frame_sub_type == MX_SUB_LAYERED_KEY || frame.frame_sub_type == MX_SUB_LAYERED_P ||
           frame.frame_sub_type == MX_SUB_LAYERED_KEY2;
}

uint8_t Low8(uint32_t value) {
    return static_cast<uint8_t>(value);
}

uint16_t Low16(uint32_t value) {
    return static_cast<uint16_t>(value);
}

}  // namespace

void COvxExtension::Build(const MXFrameInfo& frame, const OvxVideoInfo& video, const OvxAudioInfo& audio,
                          bool encrypted, uint8_t encrypt_type) {
    size_ = 0;
    if (CarriesPictureFormat(frame)) {
        AddImageSize(video);
        AddPlayBack(video);
    }
    if (frame.frame_type == MX_FRAME_AUDIO) AddAudioFormat(audio);
    AddDataCheck();
    if (encrypted) AddEncrypt(frame, encrypt_type);
    if (frame.has_blocks != 0) AddSplitInfo(frame, video);
    AddFrameMarks(frame);
}

void COvxExtension::SetCheckValue(uint32_t value) {
    PutLE32(store_.data() + check_value_at_, value);
}

ByteCursor COvxExtension::Record(uint32_t length) {
    const ByteCursor record(store_.data() + size_, length);
    size_ += length;
    return record;
}

void COvxExtension::AddImageSize(const OvxVideoInfo& video) {
    const uint8_t scan = Low8(2 - video.deinterlace);
    if (video.width % 8 == 0 && video.height % 8 == 0 && video.width < 2048 && video.height < 2048) {
        Record(4).U8(kImageSizeTag).U8(scan).U8(Low8(video.width / 8)).U8(Low8(video.height / 8));
    } else {
        Record(8).U8(kLongImageSizeTag).U8(scan).Zeros(2).LE16(Low16(video.width)).LE16(Low16(video.height));
    }
}

void COvxExtension::AddPlayBack(const OvxVideoInfo& video) {
    Record(4).U8(kPlayBackTag).U8(0).U8(VideoCodecByte(video.encode_type)).U8(Low8(video.frame_rate));
}

void COvxExtension::AddAudioFormat(const OvxAudioInfo& audio) {
    const uint8_t channels = Low8(audio.channels);
    const uint8_t codec = Low8(audio.encode_type);
    const uint8_t rate = IndexOf(kSampleRates, audio.samples_per_sec);
    Record(4).U8(kAudioFormatTag).U8(channels).U8(codec).U8(rate);
    if (audio.bitrate == 0) return;
    Record(8).U8(kAudioFormat2Tag).U8(8).U8(channels).U8(codec).U8(rate).U8(IndexOf(kBitRates, audio.bitrate)).Zeros(2);
}

void COvxExtension::AddDataCheck() {
    check_value_at_ = size_ + 1;
    Record(8).U8(kDataCheckTag).LE32(0).Zeros(2).U8(kCheckCrc32);
}

void COvxExtension::AddEncrypt(const MXFrameInfo& frame, uint8_t encrypt_type) {
    Record(8).U8(kEncryptTag).U8(encrypt_type).LE16(frame.encrypt_offset).LE16(Low16(frame.encrypt_length)).Zeros(2);
}

void COvxExtension::AddSplitInfo(const MXFrameInfo& frame, const OvxVideoInfo& video) {
    const uint64_t count = uint64_t{frame.n_slice} * frame.m_slice;
    // 15 blocks are the most that the store can hold; the first test keeps the second from wrapping.
    if (count > store_.size() || !HasRoom(8 + count * sizeof(MXBlockInfo))) return;
    if (count != 0 && frame.blocks == nullptr) return;
    const auto blocks_size = static_cast<uint32_t>(count * sizeof(MXBlockInfo));
    Record(8 + blocks_size)
        .U8(kSplitInfoTag)
        .U8(Low8(frame.n_slice))
        .U8(Low8(frame.m_slice))
        .LE16(Low16(video.width))
        .LE16(Low16(video.height))
        .U8(0)
        .Bytes(frame.blocks, blocks_size);
}

void COvxExtension::AddFrameMarks(const MXFrameInfo& frame) {
    // Audio frames with a rotation pass as well: their sub type is 0.
    if (frame.rotation_angle != 0 && frame.frame_sub_type == MX_SUB_I && HasRoom(4)) {
        Record(4).U8(kRotationInfoTag).U8(Low8(frame.rotation_angle)).Zeros(2);
    }
    if (frame.tp_company_type != 0 && HasRoom(8)) {
        Record(8).U8(kCompanyTypeTag).U8(0).LE16(frame.tp_company_type).LE16(frame.tp_stream_header_len).Zeros(2);
    }
    if (frame.ma_total_channels > 1 && HasRoom(4)) {
        Record(4).U8(kMultiChannelTag).U8(frame.ma_total_channels).U8(frame.ma_cur_channel).U8(0);
    }
    if (frame.svc_head_0 != 0 && HasRoom(4)) {
        Record(4).U8(kSvcHeadTag).U8(frame.svc_head_0).U8(frame.svc_head_1).U8(0);
    }
}

}  // namespace Orvane::Muxora
