// What the packagers of program and transport streams share: stream types, the codecs they take, their results.
#pragma once

#include <cstdint>
#include <span>

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

// stream_type (ISO/IEC 13818-1 Table 2-34); values from 0x80 on are private. 0 stands for "no such stream yet".
enum StreamType : uint8_t {
    kStreamNone = 0x00,
    kStreamMpeg2Video = 0x02,
    kStreamMpegAudio = 0x04,
    kStreamAac = 0x0F,
    kStreamMpeg4 = 0x10,
    kStreamH264 = 0x1B,
    kStreamH265 = 0x24,
    kStreamPrivate80 = 0x80,
    kStreamG711 = 0x90,
    kStreamPrivate92 = 0x92,
    kStreamPrivate93 = 0x93,
    kStreamPrivate99 = 0x99,
    kStreamPrivateB0 = 0xB0,
    kStreamMjpeg = 0xB1
};

// stream_id of the one video and the one audio stream (Table 2-22).
inline constexpr uint8_t kVideoStreamId = 0xE0;
inline constexpr uint8_t kAudioStreamId = 0xC0;
// packet_start_code_prefix with these two behind it.
inline constexpr uint32_t kVideoPesStart = 0x00000100 | kVideoStreamId;
inline constexpr uint32_t kAudioPesStart = 0x00000100 | kAudioStreamId;

struct StreamTypeRow {
    uint32_t encode_type;
    StreamType stream_type;
};

// kStreamNone when the codec is not in the table.
constexpr StreamType FindStreamType(std::span<const StreamTypeRow> table, uint32_t encode_type) {
    for (const StreamTypeRow& row : table) {
        if (row.encode_type == encode_type) return row.stream_type;
    }
    return kStreamNone;
}

// The codecs that a dialect takes.
struct AcceptedCodecs {
    std::span<const uint32_t> video;
    std::span<const uint32_t> audio;

    constexpr bool Take(const MXFrameInfo& frame) const {
        std::span<const uint32_t> codecs;
        if (frame.frame_type == MX_FRAME_VIDEO) codecs = video;
        if (frame.frame_type == MX_FRAME_AUDIO) codecs = audio;
        for (const uint32_t codec : codecs) {
            if (codec == frame.encode_type) return true;
        }
        return false;
    }
};

// A line of a capacity table without conditions on the sound.
constexpr MXCapacityEntry Codec(uint32_t number) {
    return {number, 0, 0, 0, {}};
}

// What the packagers of a frame give back beside a byte count.
inline constexpr int64_t kNotPacked = -1;

}  // namespace Orvane::Muxora
