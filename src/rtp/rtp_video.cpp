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

// Units up to this size have their end looked for first: most are parameter sets and delimiters.
constexpr int64_t kSmallUnit = 64;

// A packet that may become full has its payload copied to `place`, behind its FU header, before the end of the unit is
// known, which is then found on the way. Returns how many bytes were copied: none if the end is known, or if the packet
// has no place.
int64_t CopyAhead(NalReader& units, int64_t at, int64_t count, uint8_t* place, int64_t fu_length) {
    if (place == nullptr || units.IsEndKnown() || count > kMostAhead) return 0;
    return units.CopyAhead(place + fu_length, at, count);
}

// The same for all the packets that become full, whole and at once: see PacketRun::WriteAhead. `at` lies behind what
// the reader has searched.
uint32_t WriteAhead(NalReader& units, PacketRun& run, uint32_t prefix, std::span<const uint8_t> fu_header,
                    const uint8_t* data, int64_t at, int64_t payload) {
    const uint32_t count = run.WriteAhead(prefix, fu_header, data + at, data + units.Limit(), payload);
    if (count != 0) units.Passed(at + count * payload + 1);
    return count;
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
        const uint8_t nal_header = data[start];
        const uint8_t fu_header[kFuAHeaderLength] = {static_cast<uint8_t>((nal_header & ~kH264TypeMask) | kFuA),
                                                     static_cast<uint8_t>(nal_header & kH264TypeMask)};
        // Most units that may be fragmented are: the full packets are written before that is known.
        uint32_t written = 0;
        const int64_t fragment_room = room - header - kFuAHeaderLength;
        if (may_fragment && length > last_whole && units.EndsBehind(start + kSmallUnit)) {
            written = WriteAhead(units, run, kPrefixLength, fu_header, data, start + 1, fragment_room);
        }
        const bool fragment = may_fragment && units.EndsBehind(last_whole);
        // Receivers rely on this: the NAL header is taken off a fragmented unit but its size stays, so the last
        // fragment carries one byte too many (behind the last unit, the byte behind the frame) and the next unit loses
        // its first.
        const int64_t shift = fragment ? 1 : 0;
        const int64_t fu_length = fragment ? kFuAHeaderLength : 0;
        const int64_t payload_room = room - header - fu_length;

        int64_t at = start + shift;
        bool more = units.EndsBehind(start);
        if (more && payload_room < 1) return MX_FAILED;
        if (fragment && written != 0) {
            run.AddWritten(kPrefixLength, kFuAHeaderLength, payload_room, written)[1] = fu_header[1] | kFuStart;
            at += written * payload_room;
            room_of_choice = room;
        }
        while (more) {
            const int64_t copied =
                CopyAhead(units, at, payload_room, run.Place(kPrefixLength, room - header), fu_length);
            const bool full = units.EndsBehind(at + payload_room - shift);
            const int64_t payload = full ? payload_room : units.End() + shift - at;
            uint8_t* const out = run.Add(kPrefixLength, fu_length + payload, !full && units.IsLast());
            if (out == nullptr) return MX_FAILED;
            if (fragment) {
                // Receivers rely on this: a unit that fits one fragment has the end bit alone.
                const uint8_t bits = !full ? kFuEnd : at == start + shift ? kFuStart : 0;
                out[0] = fu_header[0];
                out[1] = fu_header[1] | bits;
            }
            CopyRest(out + fu_length, data + at, copied, payload);
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
        const uint8_t fu_header[kH265FuLength] = {
            static_cast<uint8_t>((data[unit] & kH265KeptBits) | kH265FuHeaderByte), data[unit + 1],
            static_cast<uint8_t>((data[unit] >> 1) & kH265TypeMask)};
        uint32_t written = 0;
        if (frame.frame_size - at > payload_room && units.EndsBehind(at + kSmallUnit)) {
            written = WriteAhead(units, run, prefix, fu_header, data, at, payload_room);
        }
        if (!units.EndsBehind(at + payload_room)) {
            // Receivers rely on this: a unit in one packet never has the marker, not even at the end of the frame.
            uint8_t* const out = run.Add(prefix, units.End() - unit, false);
            if (out == nullptr) return MX_FAILED;
            CopyRest(out, data + unit, 0, units.End() - unit);
            continue;
        }
        uint8_t bits = kFuStart;
        if (written != 0) {
            run.AddWritten(prefix, kH265FuLength, payload_room, written)[2] = fu_header[2] | kFuStart;
            at += written * payload_room;
            bits = 0;
        }
        for (bool more = true; more; bits = 0) {
            const int64_t copied =
                CopyAhead(units, at, payload_room, run.Place(prefix, kH265FuLength + payload_room), kH265FuLength);
            more = units.EndsBehind(at + payload_room);
            const int64_t payload = more ? payload_room : units.End() - at;
            uint8_t* const out = run.Add(prefix, kH265FuLength + payload, !more && units.IsLast());
            if (out == nullptr) return MX_FAILED;
            if (!more) bits |= kFuEnd;
            out[0] = fu_header[0];
            out[1] = fu_header[1];
            out[2] = fu_header[2] | bits;
            CopyRest(out + kH265FuLength, data + at, copied, payload);
            at += payload;
        }
    }
    return MX_OK;
}

}  // namespace Orvane::Muxora
