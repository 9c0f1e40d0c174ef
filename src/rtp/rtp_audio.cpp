#include "rtp/rtp_audio.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "core/package.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kAdtsHeaderLength = 7;
constexpr uint32_t kPayloadHeaderLength = 4;
// A whole AAC or MPEG audio payload, its header included, stays below this.
constexpr uint32_t kScratchLength = 1500;

// What goes on the wire for a frame: a payload header, which may be empty, and a part of the frame.
struct Payload {
    std::array<uint8_t, kPayloadHeaderLength> header{};
    uint32_t header_length = 0;
    const uint8_t* body = nullptr;
    uint32_t body_length = 0;

    int64_t Length() const { return int64_t{header_length} + body_length; }
};

// RFC 3640 3.2.1: AU-headers-length of 16 bits, then one AU header, size in 13 bits and index 0 in 3.
Payload AACFrameData(const MXFrameInfo& frame) {
    const uint32_t size = frame.frame_size - kAdtsHeaderLength;
    const auto high = static_cast<uint8_t>(size >> 5);
    const auto low = static_cast<uint8_t>((size & 31) << 3);
    return {{0x00, 0x10, high, low}, kPayloadHeaderLength, FrameBytes(frame) + kAdtsHeaderLength, size};
}

// RFC 2250 3.5: MBZ and fragment offset 0.
Payload MP2FrameData(const MXFrameInfo& frame) {
    return {{}, kPayloadHeaderLength, FrameBytes(frame), frame.frame_size};
}

// The first `count` bytes of the payload.
void CopyWhole(uint8_t* out, const Payload& payload, int64_t count) {
    const int64_t header = std::min<int64_t>(count, payload.header_length);
    std::copy_n(payload.header.begin(), header, out);
    if (count > header) std::memcpy(out + header, payload.body, static_cast<size_t>(count - header));
}

// `count` bytes of the frame from `from` on. MPEG audio may ask for up to 3 bytes behind the frame: those are 0.
void CopyRaw(uint8_t* out, const MXFrameInfo& frame, int64_t from, int64_t count) {
    const int64_t there = std::clamp<int64_t>(int64_t{frame.frame_size} - from, 0, count);
    if (there != 0) std::memcpy(out, FrameBytes(frame) + from, static_cast<size_t>(there));
    if (count != there) std::memset(out + there, 0, static_cast<size_t>(count - there));
}

// Receivers rely on this: the first packet is begun by the time the payload is formed, and takes its number with it.
uint32_t TooLong(PacketRun& run) {
    return run.Add(kPrefixLength, 0, false) != nullptr ? MX_NO_RESOURCES : MX_FAILED;
}

}  // namespace

bool IsRtpAudio(uint32_t encode_type) {
    switch (encode_type) {
        case MX_AUDIO_PCM8:
        case MX_AUDIO_ALAW:
        case MX_AUDIO_PCM16:
        case MX_AUDIO_MULAW:
        case MX_AUDIO_AAC:
        case MX_AUDIO_MPEG:
            return true;
        default:
            return false;
    }
}

bool SwapPcm16(MXFrameInfo& frame) {
    if (frame.frame_size % 2 != 0) return false;
    auto* const data = static_cast<uint8_t*>(frame.frame_pointer);
    for (uint32_t i = 0; i < frame.frame_size; i += 2)
        std::swap(data[i], data[i + 1]);
    return true;
}

uint32_t packetiseGeneric(const MXFrameInfo& frame, PacketRun& run) {
    Payload payload{{}, 0, FrameBytes(frame), frame.frame_size};
    if (frame.encode_type == MX_AUDIO_AAC) {
        if (frame.frame_size >= kScratchLength) return TooLong(run);
        if (frame.frame_size < kAdtsHeaderLength) return MX_FAILED;
        payload = AACFrameData(frame);
    } else if (frame.encode_type == MX_AUDIO_MPEG) {
        if (frame.frame_size >= kScratchLength - kPayloadHeaderLength) return TooLong(run);
        payload = MP2FrameData(frame);
    }

    const int64_t room = run.MaxLength() - kPrefixLength - run.CustomLength() - run.HeaderLength();
    int64_t sent = 0;
    for (bool last = false; !last;) {
        const int64_t left = payload.Length() - sent;
        // Receivers rely on this: the test is strict, so a payload that fills its packet is followed by an empty one
        // with the marker.
        last = left < room;
        if (!last && room < 1) return MX_FAILED;
        const int64_t count = std::min(left, room);
        uint8_t* const out = run.Add(kPrefixLength, count, last);
        if (out == nullptr) return MX_FAILED;
        // Receivers rely on this: what does not fit one packet goes out as raw frame bytes, without the payload header,
        // counted from the start of the frame; and the rest is taken from the beginning of the whole payload again.
        if (left > room || payload.header_length == 0) {
            CopyRaw(out, frame, sent, count);
        } else {
            CopyWhole(out, payload, count);
        }
        sent += count;
    }
    return MX_OK;
}

}  // namespace Orvane::Muxora
