#include "rtp/rtp_jpeg.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <span>

#include "core/byte_writer.h"
#include "core/package.h"

namespace Orvane::Muxora {

namespace {

// Markers of ISO/IEC 10918-1 table B.1, behind their FF.
constexpr uint8_t kMarker = 0xFF;
constexpr uint8_t kSof0 = 0xC0;
constexpr uint8_t kDqt = 0xDB;
constexpr uint8_t kDri = 0xDD;
constexpr uint8_t kSos = 0xDA;

constexpr uint32_t kSegmentHeadLength = 4;  // marker and length field
constexpr uint32_t kMinSof0Length = 9;
constexpr uint32_t kDriLength = 6;
constexpr uint32_t kTableLength = 64;

constexpr uint32_t kMainHeaderLength = 8;
constexpr uint32_t kRestartHeaderLength = 4;
constexpr uint32_t kQTableHeaderLength = 4;
constexpr uint8_t kType = 1;           // 4:2:0, two tables
constexpr uint8_t kQInBand = 128;      // the tables travel in the first packet of each frame
constexpr uint16_t kNoCount = 0x3FFF;  // restart count of a packet that is not cut at restart intervals
constexpr uint16_t kFirstAndLast = 0xC000;

uint16_t ReadBE16(const uint8_t* data) {
    return static_cast<uint16_t>(data[0] << 8 | data[1]);
}

// The segment whose marker stands at the beginning of `left`; empty if it is cut off.
std::span<const uint8_t> Segment(std::span<const uint8_t> left) {
    if (left.size() < kSegmentHeadLength) return {};
    const size_t length = size_t{ReadBE16(left.data() + 2)} + 2;
    return length <= left.size() ? left.first(length) : std::span<const uint8_t>{};
}

// The tables of a DQT segment of `length` bytes, the first of what is `left` of the frame from `position` on.
bool ReadTables(std::span<const uint8_t> left, size_t length, uint32_t position, JpegHeaders& headers) {
    auto& tables = headers.qtable_header;
    uint32_t at = kSegmentHeadLength;
    // Receivers rely on this: each segment counts its tables from 0 while the length of all goes on adding up, so that
    // tables in more than one segment are refused later on.
    for (uint32_t number = 0; at < length; ++number) {
        if (number == JpegHeaders::kMaxTables) return false;
        const uint32_t precision = (left[at] >> 4) & 1;
        const uint32_t size = kTableLength << precision;
        ++at;
        // Receivers rely on this: the last table may reach beyond its segment, though not beyond the frame.
        if (left.size() - at < size) return false;
        tables.precision = static_cast<uint8_t>(tables.precision | precision << number);
        tables.length = static_cast<uint16_t>(tables.length + size);
        tables.size[number] = static_cast<uint8_t>(size);
        tables.address[number] = position + at;
        at += size;
    }
    return true;
}

}  // namespace

std::optional<uint32_t> parseJpegHeaders(const uint8_t* data, uint32_t length, JpegHeaders& headers) {
    if (data == nullptr || length < 1) return std::nullopt;
    for (uint32_t i = 0; i < length - 1;) {
        const uint8_t code = data[i + 1];
        // Other segments are searched through, not skipped.
        if (data[i] != kMarker || (code != kSof0 && code != kDqt && code != kDri && code != kSos)) {
            ++i;
            continue;
        }
        const std::span<const uint8_t> left(data + i, length - i);
        const std::span<const uint8_t> segment = Segment(left);
        if (segment.empty()) return std::nullopt;
        const uint32_t next = i + static_cast<uint32_t>(segment.size());
        switch (code) {
            case kSof0:
                if (segment.size() < kMinSof0Length) return std::nullopt;
                headers.main_header.height = static_cast<uint8_t>(ReadBE16(&segment[5]) / 8);
                headers.main_header.width = static_cast<uint8_t>(ReadBE16(&segment[7]) / 8);
                break;
            case kDqt:
                if (!ReadTables(left, segment.size(), i, headers)) return std::nullopt;
                break;
            case kDri:
                if (segment.size() != kDriLength) return std::nullopt;
                headers.restart_header.restart_interval = ReadBE16(&segment[4]);
                headers.restart_header.restart_count = kNoCount;
                break;
            default:
                return next;
        }
        i = next;
    }
    return std::nullopt;
}

uint32_t packetiseJpeg(const MXFrameInfo& frame, PacketRun& run) {
    const uint8_t* const data = FrameBytes(frame);
    JpegHeaders headers;
    const std::optional<uint32_t> scan = parseJpegHeaders(data, frame.frame_size, headers);
    if (!scan) return MX_FAILED;

    auto& picture = headers.main_header;
    if (picture.width == 0 || picture.height == 0) {
        picture.width = static_cast<uint8_t>(frame.width / 8);
        picture.height = static_cast<uint8_t>(frame.height / 8);
    }
    const auto& restart = headers.restart_header;
    const auto& tables = headers.qtable_header;
    const bool has_restart = restart.restart_count == kNoCount;
    const uint8_t q = tables.length != 0 ? kQInBand : 0;

    const int64_t custom = run.CustomLength();
    // Receivers rely on this: only packets with custom data have a length in front.
    const uint32_t prefix = custom != 0 ? kPrefixLength : 0;
    const int64_t room = run.MaxLength() - prefix - custom;
    // Receivers rely on this: custom data and prefix count twice against the payload.
    const int64_t room_behind_header = room - custom - prefix - run.HeaderLength();

    uint32_t offset = 0;  // in the scan
    uint32_t remaining = frame.frame_size - *scan;
    while (remaining > 0) {
        if (int64_t{kRunCapacity} - run.Size() < room) return MX_FAILED;
        const bool with_tables = run.Size() == 0 && tables.length != 0;
        const uint32_t headers_length = kMainHeaderLength + (has_restart ? kRestartHeaderLength : 0) +
                                        (with_tables ? kQTableHeaderLength + tables.length : 0);
        const int64_t payload_room = room_behind_header - headers_length;
        // A first packet may be full of tables; any other has to carry a part of the scan. Receivers rely on this: the
        // packet is begun by then, and takes its number with it.
        if (payload_room < 0 || (payload_room == 0 && !with_tables)) {
            run.Add(prefix, 0, false);
            return MX_FAILED;
        }
        const auto payload = static_cast<uint32_t>(std::min<int64_t>(remaining, payload_room));
        // The scan runs to the end of the frame, EOI included.
        uint8_t* const area = run.Add(prefix, int64_t{headers_length} + payload, remaining <= payload_room);
        if (area == nullptr) return MX_FAILED;

        ByteCursor out(area, headers_length + payload);
        out.U8(0)          // Type-specific
            .BE24(offset)  // Fragment Offset
            .U8(kType)     // Receivers rely on this: type 1 also with restart markers
            .U8(q)         // Q
            .U8(picture.width)
            .U8(picture.height);
        if (has_restart) {
            out.BE16(restart.restart_interval).BE16(kFirstAndLast | restart.restart_count);  // F, L, Restart Count
        }
        if (with_tables) {
            // Tables that are no longer there (see ReadTables) leave the length wrong.
            if (std::accumulate(tables.size.begin(), tables.size.end(), 0u) != tables.length) return MX_FAILED;
            out.U8(0).U8(tables.precision).BE16(tables.length);  // MBZ, Precision, Length
            for (uint32_t i = 0; i < JpegHeaders::kMaxTables; ++i) {
                out.Bytes(data + tables.address[i], tables.size[i]);
            }
        }
        out.Bytes(data + *scan + offset, payload);
        offset += payload;
        remaining -= payload;
    }
    return MX_OK;
}

}  // namespace Orvane::Muxora
