#include "media_input/nal_units.h"

#include <algorithm>
#include <cstring>

#include "MuxoraAPI.h"

namespace Orvane::Muxora::Tools {

namespace {

constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
constexpr size_t kShortCode = 3;

// The offset of the next 00 00 01 at or behind `from`, or the end. A byte of 1 is rare in coded pictures, and nothing
// finds it faster than memchr.
size_t NextStartCode(ByteSpan data, size_t from) {
    for (size_t at = from + 2; at < data.size(); ++at) {
        const void* found = std::memchr(data.data() + at, 1, data.size() - at);
        if (found == nullptr) break;
        at = static_cast<size_t>(static_cast<const uint8_t*>(found) - data.data());
        if (data[at - 1] == 0 && data[at - 2] == 0) return at - 2;
    }
    return data.size();
}

// The one that tells how the stream is coded; the others come with it.
bool IsParameterSet(uint32_t video_codec, uint8_t head) {
    switch (video_codec) {
        case MX_VIDEO_H264:
            return (head & 0x1F) == 7;
        case MX_VIDEO_H265:
            return (head >> 1 & 0x3F) == 33;
        case MX_VIDEO_MPEG4:  // video_object_layer_start_code
            return (head & 0xF0) == 0x20;
        case MX_VIDEO_MPEG2:  // sequence_header_code
            return head == 0xB3;
        default:
            return false;
    }
}

size_t BigEndian(ByteSpan bytes) {
    size_t value = 0;
    for (const uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

// ITU-T H.264 table 7-1, ITU-T H.265 table 7-1.
bool IsSlice(uint32_t video_codec, uint8_t head) {
    if (video_codec == MX_VIDEO_H264) return (head & 0x1F) >= 1 && (head & 0x1F) <= 5;
    return (head >> 1 & 0x3F) < 32;
}

}  // namespace

NalUnits AnnexBUnits(ByteSpan frame) {
    NalUnits units;
    for (size_t start = NextStartCode(frame, 0); start < frame.size();) {
        const size_t body = start + kShortCode;
        const size_t next = NextStartCode(frame, body);
        size_t end = next;
        while (end > body && frame[end - 1] == 0)
            --end;
        const size_t zero = start > 0 && frame[start - 1] == 0 ? 1 : 0;
        if (end > body) units.push_back({start - zero, end - start + zero, kShortCode + zero});
        start = next;
    }
    return units;
}

std::optional<NalUnits> LengthUnits(ByteSpan frame, size_t length_size) {
    NalUnits units;
    for (size_t at = 0; at < frame.size();) {
        if (frame.size() - at < length_size) return std::nullopt;
        const size_t length = BigEndian(frame.subspan(at, length_size));
        if (length > frame.size() - at - length_size) return std::nullopt;
        if (length != 0) units.push_back({at, length_size + length, length_size});
        at += length_size + length;
    }
    return units;
}

bool HasParameterSets(uint32_t video_codec, ByteSpan frame, const NalUnits& units) {
    return std::any_of(units.begin(), units.end(),
                       [&](const NalUnit& unit) { return IsParameterSet(video_codec, unit.Body(frame)[0]); });
}

size_t ParameterSetPlace(uint32_t video_codec, ByteSpan frame, const NalUnits& units) {
    if (units.empty()) return 0;
    const uint8_t head = units.front().Body(frame)[0];
    const bool delimiter = (video_codec == MX_VIDEO_H264 && (head & 0x1F) == 9) ||
                           (video_codec == MX_VIDEO_H265 && (head >> 1 & 0x3F) == 35);
    return delimiter ? 1 : 0;
}

ByteSpan FrameHead(uint32_t video_codec, ByteSpan frame, size_t length_size, std::vector<uint8_t>& room) {
    // The longest slice header: two lists of 32 reference pictures, each moved and weighted.
    constexpr size_t kLongestHeader = 4096;
    constexpr size_t kSpare = 64;
    if (video_codec != MX_VIDEO_H264 && video_codec != MX_VIDEO_H265) return frame;
    if (length_size == 0) {
        for (size_t at = NextStartCode(frame, 0); at + kShortCode < frame.size();) {
            const size_t body = at + kShortCode;
            if (IsSlice(video_codec, frame[body])) return frame.first(std::min(frame.size(), body + kLongestHeader));
            at = NextStartCode(frame, body);
        }
        return frame;
    }
    room.clear();
    for (size_t at = 0; frame.size() - at > length_size;) {
        const size_t length = std::min(BigEndian(frame.subspan(at, length_size)), frame.size() - at - length_size);
        ByteSpan body = frame.subspan(at + length_size, length);
        at += length_size + length;
        if (body.empty()) continue;
        const bool slice = IsSlice(video_codec, body[0]);
        if (slice) body = body.first(std::min(body.size(), kLongestHeader));
        room.insert(room.end(), std::begin(kStartCode), std::end(kStartCode));
        room.insert(room.end(), body.begin(), body.end());
        if (slice) break;
    }
    const size_t size = room.size();
    room.insert(room.end(), kSpare, 0);
    return ByteSpan(room).first(size);
}

bool HaveLongCodes(ByteSpan frame, const NalUnits& units) {
    size_t at = 0;
    for (const NalUnit& unit : units) {
        if (unit.at != at || unit.code != sizeof kStartCode) return false;
        at += unit.size;
    }
    return at == frame.size();
}

void WriteStartCodes(std::span<uint8_t> frame, const NalUnits& units) {
    for (const NalUnit& unit : units)
        std::memcpy(frame.data() + unit.at, kStartCode, sizeof kStartCode);
}

FrameBytes WithLongStartCodes(ByteSpan frame, const NalUnits& units, ByteSpan sets, size_t place, size_t spare) {
    size_t size = sets.size() + spare;
    for (const NalUnit& unit : units)
        size += unit.size - unit.code + sizeof kStartCode;
    FrameBytes joined(size);
    uint8_t* out = joined.data();
    const auto append = [&out](ByteSpan bytes) {
        if (!bytes.empty()) std::memcpy(out, bytes.data(), bytes.size());
        out += bytes.size();
    };
    for (size_t i = 0; i < units.size(); ++i) {
        if (i == place) append(sets);
        append(kStartCode);
        append(units[i].Body(frame));
    }
    if (place >= units.size()) append(sets);
    std::memset(out, 0, spare);
    return joined;
}

}  // namespace Orvane::Muxora::Tools
