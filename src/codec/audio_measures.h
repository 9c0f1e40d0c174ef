// How long an audio frame plays, and the counters of ADTS and MPEG audio frames behind that. All are safe on any bytes.
#pragma once

#include <cstdint>
#include <span>

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

// Duration of the frame in milliseconds; 0 for a sample rate of 0 and for codecs without a measure.
double GetAudioFrameDuration(const MXFrameInfo& frame);

constexpr uint32_t kAdtsHeaderSize = 7;  // without a CRC
constexpr uint32_t kAdtsSamplesPerFrame = 1024;

// aac_frame_length of an ADTS header (ISO/IEC 13818-7 6.2), header included. `adts` has at least 6 bytes.
inline uint32_t AdtsFrameLength(const uint8_t* adts) {
    return (adts[3] & 3u) << 11 | static_cast<uint32_t>(adts[4]) << 3 | adts[5] >> 5;
}

// The raw frame behind an ADTS header without a CRC. Null data if there is no such header, or if its aac_frame_length
// is smaller than the header or reaches behind the end. ID and layer may be anything: only the sync word and
// protection_absent are looked at.
std::span<const uint8_t> AdtsPayload(const uint8_t* data, uint32_t length);

// Number of ADTS frames with the header FF F1. A header that is cut off by the end counts, one that states a length of
// 0 does not.
uint32_t CountAdtsFrames(const uint8_t* data, uint32_t length);

// Number of MPEG audio Layer II frames; `nVersionID` and `nLayerID` take the header fields that were read last, and
// keep their values when there is no header. A sample rate of 0 gives 0.
uint32_t CountMpegAudioFrames(const uint8_t* data, uint32_t length, uint32_t sample_rate, uint32_t* nVersionID,
                              uint32_t* nLayerID);

// Samples in one frame; 0 for a pair that is not MPEG audio.
uint32_t MpegAudioSamplesPerFrame(uint32_t nVersionID, uint32_t nLayerID);

// kbit/s by version class (1, 2), layer class and bitrate index; 0 if unknown.
uint32_t MpegAudioBitrate(uint32_t version_class, uint32_t layer_class, uint32_t bitrate_index);

}  // namespace Orvane::Muxora
