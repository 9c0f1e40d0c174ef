#include "rtp/rtp_video.h"

#include <algorithm>
#include <cstring>

#include "codec/start_code.h"
#include "core/package.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kLongStartCode = 4;   // 00 00 00 01
constexpr uint32_t kShortStartCode = 3;  // 00 00 01

// RFC 6184 5.8
constexpr uint8_t kFuA = 28;
constexpr uint8_t kH264TypeMask = 0x1F;
constexpr int64_t kFuAHeaderLength = 2;  // FU indicator and FU header

// RFC 7798 4.4.3
constexpr uint8_t kH265FuHeaderByte = 49 << 1;
constexpr uint8_t kH265KeptBits = 0x81;  // F, and the high bit of the layer id
constexpr uint8_t kH265TypeMask = 0x3F;
constexpr int64_t kH265NalHeaderLength = 2;

constexpr uint8_t kFuStart = 0x80;
constexpr uint8_t kFuEnd = 0x40;

// Where the start codes of a frame begin, the leading zero of a four-byte one included. A three-byte start code counts
// only with a byte behind it. The search goes on `skip` bytes behind the 00 00 01.
void FindPositions(const uint8_t* data, uint32_t length, uint32_t skip, std::vector<uint32_t>& positions) {
    positions.clear();
    const uint8_t* const end = data + length;
    const uint8_t* at = data;
    while (true) {
        const uint8_t* const code = FindStartCode(at, end);
        if (code == end) return;
        const bool is_long = code > at && code[-1] == 0;
        if (!is_long && end - code == kShortStartCode) return;
        positions.push_back(static_cast<uint32_t>(code - data) - (is_long ? 1 : 0));
        if (end - code <= static_cast<int64_t>(skip)) return;
        at = code + skip;
    }
}

uint32_t StartCodeLength(const uint8_t* data, uint32_t position) {
    return data[position + 2] != 0 ? kShortStartCode : kLongStartCode;
}

}  // namespace

uint32_t packetiseH264(const MXFrameInfo& frame, PacketRun& run, std::vector<uint32_t>& positions) {
    const uint8_t* const data = FrameBytes(frame);
    const int64_t length = frame.frame_size;
    // The byte behind a start code, the NAL header, is never the beginning of the next one.
    FindPositions(data, frame.frame_size, kShortStartCode + 1, positions);

    const int64_t header = run.HeaderLength();
    const int64_t custom = run.CustomLength();
    // Receivers rely on this: fragments are chosen by a sum that counts the extension twice, and the custom data twice
    // as well from the second packet of a frame on.
    const int64_t padded_extension = (run.ExtensionLength() + 3) / 4 * 4;
    const int64_t counted_overhead = run.ExtensionLength() + kFixedHeaderLength + custom + padded_extension;
    const int64_t room = run.MaxLength() - kPrefixLength - custom;
    int64_t room_of_choice = run.MaxLength() - kPrefixLength;
    // Receivers rely on this: only these two kinds are ever fragmented, the others are cut without an FU header.
    const bool may_fragment = frame.frame_sub_type == MX_SUB_I || frame.frame_sub_type == MX_SUB_P;

    size_t next = 0;  // the position that ends the current unit
    int64_t cursor = 0;
    if (!positions.empty()) {
        cursor = positions[0] + StartCodeLength(data, positions[0]);
        next = 1;
    }
    while (cursor < length) {
        const bool last_unit = next >= positions.size();
        const int64_t unit_size = (last_unit ? length : positions[next]) - cursor;
        const bool fragment = may_fragment && unit_size + counted_overhead > room_of_choice;
        const uint8_t nal_header = data[cursor];
        // Receivers rely on this: the NAL header is taken off a fragmented unit but its size stays, so the last
        // fragment carries one byte too many (behind the last unit, the byte behind the frame) and the next unit loses
        // its first.
        if (fragment) ++cursor;

        const int64_t fu_length = fragment ? kFuAHeaderLength : 0;
        const int64_t payload_room = room - header - fu_length;
        for (int64_t sent = 0; sent < unit_size;) {
            const bool full = unit_size - sent > payload_room;
            if (full && payload_room < 1) return MX_FAILED;
            const int64_t payload = full ? payload_room : unit_size - sent;
            uint8_t* out = run.Add(kPrefixLength, fu_length + payload, !full && last_unit);
            if (out == nullptr) return MX_FAILED;
            if (fragment) {
                // Receivers rely on this: a unit that fits one fragment has the end bit alone.
                const uint8_t bits = !full ? kFuEnd : sent == 0 ? kFuStart : 0;
                *out++ = static_cast<uint8_t>((nal_header & ~kH264TypeMask) | kFuA);  // FU indicator
                *out++ = static_cast<uint8_t>((nal_header & kH264TypeMask) | bits);   // FU header
            }
            std::memcpy(out, data + cursor + sent, static_cast<size_t>(payload));
            sent += payload;
            room_of_choice = room;
        }
        cursor += unit_size;
        if (!last_unit) cursor += StartCodeLength(data, positions[next++]);
    }
    return MX_OK;
}

uint32_t packetiseH265(const MXFrameInfo& frame, PacketRun& run, std::vector<uint32_t>& positions) {
    const uint8_t* const data = FrameBytes(frame);
    FindPositions(data, frame.frame_size, kShortStartCode, positions);

    const int64_t custom = run.CustomLength();
    // Only packets with custom data have a length prefix.
    const uint32_t prefix = custom != 0 ? kPrefixLength : 0;
    // Receivers rely on this: the NAL and FU headers are not reserved, so a packet may be up to 3 bytes too long.
    const int64_t payload_room = run.MaxLength() - prefix - custom - run.HeaderLength();

    // Receivers rely on this: after the first three-byte start code of a frame, all are taken for three bytes long.
    uint32_t start_code_length = kLongStartCode;
    for (size_t i = 0; i < positions.size(); ++i) {
        const uint32_t position = positions[i];
        const bool last_unit = i + 1 == positions.size();
        const int64_t end = last_unit ? frame.frame_size : positions[i + 1];
        if (data[position + 2] == 1) start_code_length = kShortStartCode;
        // Units without a byte behind their header disappear.
        const int64_t unit = int64_t{position} + start_code_length;
        int64_t at = unit + kH265NalHeaderLength;
        if (at >= end) continue;
        if (payload_room < 1) return MX_FAILED;

        const uint8_t first = data[unit];
        const uint8_t second = data[unit + 1];
        if (end - at <= payload_room) {
            // Receivers rely on this: a unit in one packet never has the marker, not even at the end of the frame.
            uint8_t* const out = run.Add(prefix, kH265NalHeaderLength + end - at, false);
            if (out == nullptr) return MX_FAILED;
            std::memcpy(out, data + unit, static_cast<size_t>(end - unit));
            continue;
        }
        for (uint8_t start_bit = kFuStart; at < end; start_bit = 0) {
            const bool last_fragment = end - at <= payload_room;
            const int64_t payload = std::min(end - at, payload_room);
            const uint8_t bits = static_cast<uint8_t>(start_bit | (last_fragment ? kFuEnd : 0));
            uint8_t* out = run.Add(prefix, kH265NalHeaderLength + 1 + payload, last_fragment && last_unit);
            if (out == nullptr) return MX_FAILED;
            *out++ = static_cast<uint8_t>((first & kH265KeptBits) | kH265FuHeaderByte);  // PayloadHdr
            *out++ = second;
            *out++ = static_cast<uint8_t>(((first >> 1) & kH265TypeMask) | bits);  // FU header
            std::memcpy(out, data + at, static_cast<size_t>(payload));
            at += payload;
        }
    }
    return MX_OK;
}

}  // namespace Orvane::Muxora
