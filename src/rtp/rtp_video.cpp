#include "rtp/rtp_video.h"

#include <cstring>

#include "core/package.h"
#include "rtp/nal_reader.h"

namespace Orvane::Muxora {

namespace {

constexpr int64_t kLongStartCode = 4;   // 00 00 00 01
constexpr int64_t kShortStartCode = 3;  // 00 00 01

// RFC 6184 5.8
constexpr uint8_t kFuA = 28;
constexpr uint8_t kH264TypeMask = 0x1F;
constexpr int64_t kFuAHeaderLength = 2;  // FU indicator and FU header

// RFC 7798 4.4.3
constexpr uint8_t kH265FuHeaderByte = 49 << 1;
constexpr uint8_t kH265KeptBits = 0x81;  // F, and the high bit of the layer id
constexpr uint8_t kH265TypeMask = 0x3F;
constexpr int64_t kH265NalHeaderLength = 2;
constexpr int64_t kH265FuLength = kH265NalHeaderLength + 1;

constexpr uint8_t kFuStart = 0x80;
constexpr uint8_t kFuEnd = 0x40;

// The copy is in vain where the unit turns out to end early. Up to the size of a jumbo frame that costs little, however
// many small units a frame has.
constexpr int64_t kMostAhead = 9000;

// A packet that may become full has its payload copied to `place`, behind its FU header, before the end of the unit is
// known, which is then found on the way. Returns how many bytes were copied: none if the end is known, or if the packet
// has no place.
int64_t CopyAhead(NalReader& units, int64_t at, int64_t count, uint8_t* place, int64_t fu_length) {
    if (place == nullptr || units.IsEndKnown() || count > kMostAhead) return 0;
    return units.CopyAhead(place + fu_length, at, count);
}

// The rest of a payload of which the first bytes have been copied.
void CopyRest(uint8_t* out, const uint8_t* from, int64_t copied, int64_t count) {
    if (copied < count) std::memcpy(out + copied, from + copied, static_cast<size_t>(count - copied));
}

}  // namespace

uint32_t packetiseH264(const MXFrameInfo& frame, PacketRun& run) {
    const uint8_t* const data = FrameBytes(frame);
    const int64_t length = frame.frame_size;
    // The byte behind a start code, the NAL header, is never taken for the beginning of the next one.
    NalReader units(data, frame.frame_size, 1);

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

    // Without a start code the whole frame is one unit.
    int64_t start = units.Next() ? units.Start() : 0;
    while (start < length) {
        const int64_t last_whole = start + room_of_choice - counted_overhead;
        // Most units that may be fragmented are: the first packet is copied before that is known.
        int64_t copied = 0;
        const int64_t fragment_room = room - header - kFuAHeaderLength;
        if (may_fragment && length > last_whole && fragment_room > 0) {
            copied =
                CopyAhead(units, start + 1, fragment_room, run.Place(kPrefixLength, room - header), kFuAHeaderLength);
        }
        const bool fragment = may_fragment && units.EndsBehind(last_whole);
        if (!fragment) copied = 0;
        const uint8_t nal_header = data[start];
        // Receivers rely on this: the NAL header is taken off a fragmented unit but its size stays, so the last
        // fragment carries one byte too many (behind the last unit, the byte behind the frame) and the next unit loses
        // its first.
        const int64_t shift = fragment ? 1 : 0;
        const int64_t fu_length = fragment ? kFuAHeaderLength : 0;
        const int64_t payload_room = room - header - fu_length;

        int64_t at = start + shift;
        bool more = units.EndsBehind(start);
        if (more && payload_room < 1) return MX_FAILED;
        while (more) {
            if (copied == 0) {
                copied = CopyAhead(units, at, payload_room, run.Place(kPrefixLength, room - header), fu_length);
            }
            const bool full = units.EndsBehind(at + payload_room - shift);
            const int64_t payload = full ? payload_room : units.End() + shift - at;
            uint8_t* const out = run.Add(kPrefixLength, fu_length + payload, !full && units.IsLast());
            if (out == nullptr) return MX_FAILED;
            if (fragment) {
                // Receivers rely on this: a unit that fits one fragment has the end bit alone.
                const uint8_t bits = !full ? kFuEnd : at == start + shift ? kFuStart : 0;
                out[0] = static_cast<uint8_t>((nal_header & ~kH264TypeMask) | kFuA);  // FU indicator
                out[1] = static_cast<uint8_t>((nal_header & kH264TypeMask) | bits);   // FU header
            }
            CopyRest(out + fu_length, data + at, copied, payload);
            copied = 0;
            at += payload;
            more = full;
            room_of_choice = room;
        }
        if (!units.Next()) break;
        start = units.Start() + shift;
    }
    return MX_OK;
}

uint32_t packetiseH265(const MXFrameInfo& frame, PacketRun& run) {
    const uint8_t* const data = FrameBytes(frame);
    NalReader units(data, frame.frame_size, 0);

    const int64_t custom = run.CustomLength();
    // Receivers rely on this: only packets with custom data have a length in front.
    const uint32_t prefix = custom != 0 ? kPrefixLength : 0;
    // Receivers rely on this: the NAL and FU headers are not reserved, so a packet may be up to 3 bytes too long.
    const int64_t payload_room = run.MaxLength() - prefix - custom - run.HeaderLength();

    // Receivers rely on this: after the first three-byte start code of a frame, all are taken for three bytes long.
    int64_t start_code_length = kLongStartCode;
    while (units.Next()) {
        if (units.IsShortCode()) start_code_length = kShortStartCode;
        const int64_t unit = units.Position() + start_code_length;
        int64_t at = unit + kH265NalHeaderLength;
        // Units without a byte behind their header disappear.
        if (!units.EndsBehind(at)) continue;
        if (payload_room < 1) return MX_FAILED;
        // Most units that reach beyond a packet in the frame do so by themselves.
        int64_t copied = 0;
        const auto copy_ahead = [&] {
            copied = CopyAhead(units, at, payload_room, run.Place(prefix, kH265FuLength + payload_room), kH265FuLength);
        };
        if (frame.frame_size - at > payload_room) copy_ahead();
        if (!units.EndsBehind(at + payload_room)) {
            // Receivers rely on this: a unit in one packet never has the marker, not even at the end of the frame.
            uint8_t* const out = run.Add(prefix, units.End() - unit, false);
            if (out == nullptr) return MX_FAILED;
            CopyRest(out, data + unit, 0, units.End() - unit);
            continue;
        }
        uint8_t bits = kFuStart;
        for (bool more = true; more; bits = 0) {
            if (copied == 0) copy_ahead();
            more = units.EndsBehind(at + payload_room);
            const int64_t payload = more ? payload_room : units.End() - at;
            uint8_t* const out = run.Add(prefix, kH265FuLength + payload, !more && units.IsLast());
            if (out == nullptr) return MX_FAILED;
            if (!more) bits |= kFuEnd;
            out[0] = static_cast<uint8_t>((data[unit] & kH265KeptBits) | kH265FuHeaderByte);  // PayloadHdr
            out[1] = data[unit + 1];
            out[2] = static_cast<uint8_t>(((data[unit] >> 1) & kH265TypeMask) | bits);  // FU header
            CopyRest(out + kH265FuLength, data + at, copied, payload);
            copied = 0;
            at += payload;
        }
    }
    return MX_OK;
}

}  // namespace Orvane::Muxora
