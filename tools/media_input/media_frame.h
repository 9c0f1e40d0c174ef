// One encoded frame, in the form that the library takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "MuxoraExt.h"
#include "media_input/frame_bytes.h"

namespace Orvane::Muxora::Tools {

struct MediaFrame {
    // Readable bytes behind the frame: RTP sends one byte from behind the end, libavcodec's parsers read up to 64.
    static constexpr size_t kSpare = 64;

    uint32_t type = MX_FRAME_VIDEO;  // MXFrameType
    uint32_t codec = 0;              // MXVideoCodec or MXAudioCodec
    uint32_t sub_type = MX_SUB_I;    // MXFrameSubType, video only
    int64_t time_ms = 0;             // what the library gets: rises strictly within a stream, starts at start_ms
    int64_t pts_ms = 0;              // when the picture is shown; out of order where there are B pictures
    // The same moments as exactly as the input states them, in ticks; a scale of 0: not known.
    uint32_t time_scale = 0;
    int64_t dts = 0;
    int64_t pts = 0;
    int64_t duration = 0;  // 0: up to the next frame
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t frame_rate = 0;
    uint32_t samples_per_sec = 0;
    uint32_t bits_per_sample = 0;
    uint32_t channels = 0;
    uint32_t bitrate = 0;
    uint32_t rotation = 0;  // degrees clockwise by which the picture is to be turned when it is shown
    FrameBytes bytes;       // the frame and kSpare bytes behind it

    bool IsVideo() const { return type == MX_FRAME_VIDEO; }
    bool IsKey() const { return IsVideo() && sub_type == MX_SUB_I; }
    size_t Size() const { return bytes.size() < kSpare ? 0 : bytes.size() - kSpare; }

    // All its times become earlier, as in a file that begins later than the input: by `ms`, and the exact ones by
    // `ticks` of which a second has `scale`.
    void MoveBack(int64_t ms, int64_t ticks, uint32_t scale) {
        time_ms -= ms;
        pts_ms -= ms;
        const int64_t second = scale;
        const int64_t own = time_scale;
        const int64_t back = ticks / second * own + ticks % second * own / second;
        dts -= back;
        pts -= back;
    }

    // Puts `head` and then `body` into the frame, and spare zeros behind.
    void SetBytes(const uint8_t* body, size_t size, const uint8_t* head = nullptr, size_t head_size = 0) {
        FrameBytes joined(head_size + size + kSpare);
        if (head_size != 0) std::memcpy(joined.data(), head, head_size);
        if (size != 0) std::memcpy(joined.data() + head_size, body, size);
        std::memset(joined.data() + head_size + size, 0, kSpare);
        bytes = std::move(joined);
    }

    // The library's record of this frame; it points into `bytes`, which some formats change.
    MXFrameInfo Record() {
        MXFrameInfo info{};
        info.size = sizeof info;
        info.frame_pointer = bytes.data();
        info.frame_size = static_cast<uint32_t>(Size());
        info.frame_type = type;
        info.frame_sub_type = sub_type;
        info.encode_type = codec;
        info.timestamp = static_cast<uint32_t>(time_ms);
        info.width = width;
        info.height = height;
        info.frame_rate = frame_rate;
        info.samples_per_sec = samples_per_sec;
        info.bits_per_sample = bits_per_sample;
        info.channels = channels;
        info.bitrate = bitrate;
        if (time_scale != 0) MXSetFrameTimes(&info, time_scale, dts, pts, duration);
        return info;
    }
};

}  // namespace Orvane::Muxora::Tools
