#include "iso/codec_config.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "MuxoraAPI.h"
#include "codec/avc_convert.h"
#include "codec/hevc_convert.h"
#include "codec/mpeg4_config.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kAvcCFixedSize = 11;
constexpr uint32_t kHvcCFixedSize = 23;
constexpr uint32_t kNalArrayHead = 3;
constexpr uint8_t kLengthSize4 = 0xFF;  // reserved bits, lengthSizeMinusOne = 3

// Descriptor tags, ISO/IEC 14496-1 7.2.2.1.
constexpr uint8_t kEsDescrTag = 3;
constexpr uint8_t kDecoderConfigDescrTag = 4;
constexpr uint8_t kDecSpecificInfoTag = 5;
constexpr uint8_t kSlConfigDescrTag = 6;
constexpr uint32_t kDescriptorHead = 5;  // a tag, and a length in the four-byte form
constexpr uint32_t kDecoderConfigFixed = 13;
constexpr uint32_t kEsFixed = 3;
constexpr uint32_t kSlConfigLength = 1;
constexpr uint8_t kSlPredefinedMp4 = 2;
constexpr uint8_t kStreamPriority = 16;
constexpr uint32_t kLongestDescriptorLength = 4;

// objectTypeIndication, ISO/IEC 14496-1 7.2.6.6.2.
constexpr uint8_t kObjectMpeg4Visual = 32;
constexpr uint8_t kObjectMpeg4Audio = 64;
constexpr uint8_t kObjectMpeg2AudioPart3 = 105;
// streamType, upStream, reserved.
constexpr uint8_t kVisualStream = 17;
constexpr uint8_t kAudioStream = 21;

// samplingFrequencyIndex, ISO/IEC 14496-3 1.6.3.4. A rate of 0 finds the first of the unused rows.
constexpr uint32_t kSamplingFrequencies[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                               16000, 12000, 11025, 8000,  7350,  0,     0,     0};
constexpr uint32_t kObjectTypeAacLc = 2;

// A descriptor's tag and its length, padded in front to four bytes.
// Readers rely on this: a length of 128 and more takes two bytes behind the three, which no size accounts for.
void PutDescriptorHead(ByteCursor& out, uint8_t tag, uint32_t length) {
    uint8_t area[kLongestDescriptorLength];
    out.U8(tag).BE24(0x808080).Bytes(area, PutDescriptorLength(area, length));
}

}  // namespace

CBox_avcC::CBox_avcC() : CBox("avcC") {
    SetDataSize(kAvcCFixedSize);
}

void CBox_avcC::Init(const VideoTrackInfo& info) {
    if (info.data == nullptr) return;
    const int32_t sps = CAvcConvert::GetSps(info.data, info.length, sps_, sizeof sps_);
    if (sps > 0) {
        sps_length_ = static_cast<uint16_t>(sps);
        ++sps_count_;
        AVCProfileIndication_ = sps_[1];
        profile_compatibility_ = sps_[2];
        AVCLevelIndication_ = sps_[3];
    }
    const int32_t pps = CAvcConvert::GetPps(info.data, info.length, pps_, sizeof pps_);
    if (pps > 0) {
        pps_length_ = static_cast<uint16_t>(pps);
        ++pps_count_;
    }
    SetDataSize(kAvcCFixedSize + sps_length_ + pps_length_);
}

// ISO/IEC 14496-15 5.3.3.1.2
uint32_t CBox_avcC::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kAvcCFixedSize + 2 * kParameterSetRoom];
    ByteCursor out(area);
    out.U8(1)                                         // configurationVersion
        .U8(AVCProfileIndication_)                    // AVCProfileIndication
        .U8(profile_compatibility_)                   // profile_compatibility
        .U8(AVCLevelIndication_)                      // AVCLevelIndication
        .U8(kLengthSize4)                             // reserved, lengthSizeMinusOne
        .U8(static_cast<uint8_t>(0xE0 | sps_count_))  // reserved, numOfSequenceParameterSets
        .BE16(sps_length_)                            // sequenceParameterSetLength
        .Bytes(sps_, sps_length_)                     // sequenceParameterSetNALUnit
        .U8(pps_count_)                               // numOfPictureParameterSets
        .BE16(pps_length_)                            // pictureParameterSetLength
        .Bytes(pps_, pps_length_);                    // pictureParameterSetNALUnit
    return WriteChecked(buffer, out, "CBox_avcC::WriteData error!\n");
}

CBox_hvcC::CBox_hvcC() : CBox("hvcC") {
    SetDataSize(kHvcCFixedSize);
}

void CBox_hvcC::Init(const VideoTrackInfo& info) {
    if (info.data == nullptr) return;
    Find(HevcGetVps, info, vps_);
    if (Find(HevcGetSps, info, sps_)) {
        // The length given is that with the two bytes in front. A set that can't be read leaves the defaults.
        ParseHevcSps(sps_.block + 2, sps_.byte_count, &sps_summary_);
    }
    Find(HevcGetPps, info, pps_);
    SetDataSize(kHvcCFixedSize + kNalArrayHead * numOfArrays_ + vps_.byte_count + sps_.byte_count + pps_.byte_count);
}

bool CBox_hvcC::Find(Finder find, const VideoTrackInfo& info, NalArray& array) {
    const int32_t found = find(info.data, info.length, array.block, kParameterSetRoom);
    if (found <= 0) return false;
    array.byte_count = static_cast<uint16_t>(found);
    ++numOfArrays_;
    return true;
}

// ISO/IEC 14496-15 8.3.3.1.2
uint32_t CBox_hvcC::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kHvcCFixedSize + 3 * (kNalArrayHead + kParameterSetRoom)];
    ByteCursor out(area);
    out.U8(1)                                                      // configurationVersion
        .U8(sps_summary_.general_profile)                          // general_profile_space, tier_flag, profile_idc
        .BE32(sps_summary_.general_profile_compatibility_flags)    // general_profile_compatibility_flags
        .BE16(sps_summary_.general_constraint_indicator_flags[0])  // general_constraint_indicator_flags
        .BE16(sps_summary_.general_constraint_indicator_flags[1])
        .BE16(sps_summary_.general_constraint_indicator_flags[2])
        .U8(sps_summary_.general_level_idc)     // general_level_idc
        .BE16(0xF000)                           // reserved, min_spatial_segmentation_idc
        .U8(0xFC)                               // reserved, parallelismType
        .U8(sps_summary_.chromaFormat)          // reserved, chromaFormat
        .U8(sps_summary_.bitDepthLumaMinus8)    // reserved, bitDepthLumaMinus8
        .U8(sps_summary_.bitDepthChromaMinus8)  // reserved, bitDepthChromaMinus8
        .BE16(0)                                // avgFrameRate
        .U8(0x0F)           // constantFrameRate, numTemporalLayers = 1, temporalIdNested = 1, lengthSizeMinusOne = 3
        .U8(numOfArrays_);  // numOfArrays
    for (const NalArray* array : {&vps_, &sps_, &pps_}) {
        if (array->byte_count == 0) continue;
        out.U8(array->type)                           // array_completeness, NAL_unit_type
            .BE16(1)                                  // numNalus
            .Bytes(array->block, array->byte_count);  // nalUnitLength, nalUnit
    }
    buffer->Append(area, out.Size());
    return out.Size();
}

CBox_esds::CBox_esds() : CBox("esds") {
    Refresh();
}

void CBox_esds::Init(uint32_t trackType, const TrackInfo* info) {
    if (info == nullptr) return;
    if (const auto* video = std::get_if<VideoTrackInfo>(info); video != nullptr && trackType == kVideoTrack) {
        codec_ = static_cast<uint8_t>(video->encode_type);
        ES_ID_ = 1;
        stream_type_byte_ = kVisualStream;
        objectTypeIndication_ = kObjectMpeg4Visual;
    } else if (const auto* audio = std::get_if<AudioTrackInfo>(info); audio != nullptr && trackType == kAudioTrack) {
        InitAudio(*audio);
    }
    Refresh();
}

void CBox_esds::InitAudio(const AudioTrackInfo& info) {
    if (info.encode_type == MX_AUDIO_AAC) {
        objectTypeIndication_ = kObjectMpeg4Audio;
        const auto* const row = std::ranges::find(kSamplingFrequencies, info.samples_per_sec);
        if (row != std::end(kSamplingFrequencies)) {
            // AudioSpecificConfig, ISO/IEC 14496-3 1.6.2.1: audioObjectType (5), samplingFrequencyIndex (4),
            // channelConfiguration (4), three zero bits.
            const auto index = static_cast<uint32_t>(row - std::begin(kSamplingFrequencies));
            const uint32_t config = kObjectTypeAacLc << 11 | index << 7 | (info.channels & 15) << 3;
            specific_length_ = PutBE16(specific_, static_cast<uint16_t>(config));
        }
    } else if (info.encode_type == MX_AUDIO_MPEG) {
        objectTypeIndication_ = kObjectMpeg2AudioPart3;
    } else {
        return;
    }
    codec_ = static_cast<uint8_t>(info.encode_type);
    ES_ID_ = 2;
    stream_type_byte_ = kAudioStream;
}

void CBox_esds::Update(const SampleInfo& sample) {
    if (codec_ != MX_VIDEO_MPEG4 || sample.frame_sub_type != MX_SUB_I) return;
    const Mpeg4Config config = FindMpeg4Config(sample.data, sample.length);
    // A configuration that does not fit is not taken: the one before stays.
    if (!config.found || config.length > sizeof specific_) return;
    if (config.length != 0) std::memcpy(specific_, sample.data + config.offset, config.length);
    specific_length_ = config.length;
    Refresh();
}

void CBox_esds::Refresh() {
    decoderConfigLength_ = kDecoderConfigFixed;
    if (specific_length_ > 0) decoderConfigLength_ += kDescriptorHead + specific_length_;
    esLength_ = kEsFixed + kDescriptorHead + decoderConfigLength_ + kDescriptorHead + kSlConfigLength;
    SetDataSize(kFullBoxHead + kDescriptorHead + esLength_);
}

// ISO/IEC 14496-14 5.6, with the descriptors of ISO/IEC 14496-1 7.2.6.5 to 7.2.6.8
uint32_t CBox_esds::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[kFullBoxHead + 4 * (kDescriptorHead + 1) + kEsFixed + kDecoderConfigFixed + sizeof specific_ + 1];
    ByteCursor out(area);
    out.BE32(0);  // version, flags
    PutDescriptorHead(out, kEsDescrTag, esLength_);
    out.BE16(ES_ID_)           // ES_ID
        .U8(kStreamPriority);  // streamDependenceFlag, URL_Flag, OCRstreamFlag, streamPriority
    PutDescriptorHead(out, kDecoderConfigDescrTag, decoderConfigLength_);
    out.U8(objectTypeIndication_)  // objectTypeIndication
        .U8(stream_type_byte_)     // streamType, upStream, reserved
        .BE24(0)                   // bufferSizeDB
        .BE32(0)                   // maxBitrate
        .BE32(0);                  // avgBitrate
    if (specific_length_ > 0) {
        PutDescriptorHead(out, kDecSpecificInfoTag, specific_length_);
        out.Bytes(specific_, specific_length_);
    }
    PutDescriptorHead(out, kSlConfigDescrTag, kSlConfigLength);
    out.U8(kSlPredefinedMp4);  // predefined
    return WriteChecked(buffer, out, "CBox_esds::WriteData error!\n");
}

}  // namespace Orvane::Muxora
