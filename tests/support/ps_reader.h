// A reader of program streams for tests, written from ISO/IEC 13818-1 2.5: walks packs, system headers, maps and PES
// packets, and throws at what is malformed.
#pragma once

#include <vector>

#include "support/pes_reader.h"

namespace test {

struct PsUnit {
    uint8_t id = 0;     // the fourth byte of the start code
    size_t offset = 0;  // in the stream
    ByteVector bytes;   // the whole unit
    uint64_t scr = 0;   // of a pack header
    uint32_t stuffing = 0;
    PesPacket pes;  // of a video or audio packet
};

inline constexpr uint8_t kPsPack = 0xBA;
inline constexpr uint8_t kPsSystemHeader = 0xBB;
inline constexpr uint8_t kPsMap = 0xBC;
inline constexpr uint8_t kPsAudio = 0xC0;
inline constexpr uint8_t kPsVideo = 0xE0;

inline PsUnit ReadPackHeader(const ByteVector& stream, size_t at) {
    uint64_t word = 0;
    for (const uint8_t byte : Slice(stream, at + 4, 6))
        word = word << 8 | byte;
    PsUnit unit;
    Require(word >> 46 == 1, "mark of an MPEG-2 pack");
    Require((word >> 42 & 1) == 1 && (word >> 26 & 1) == 1 && (word >> 10 & 1) == 1 && (word & 1) == 1,
            "marker bits of an SCR");
    Require((word >> 1 & 0x1FF) == 0, "extension of an SCR");
    unit.scr = (word >> 43 & 7) << 30 | (word >> 27 & 0x7FFF) << 15 | (word >> 11 & 0x7FFF);
    const uint32_t rate = ReadBE(stream, at + 10, 3);
    Require((rate & 3) == 3 && rate >> 2 == 6150, "program_mux_rate");
    const uint32_t last = ReadBE(stream, at + 13, 1);
    Require(last >> 3 == 0x1F, "reserved bits of a pack header");
    unit.stuffing = last & 7;
    unit.bytes = Slice(stream, at, 14 + unit.stuffing);
    for (size_t i = 14; i < unit.bytes.size(); ++i)
        Require(unit.bytes[i] == 0xFF, "stuffing of a pack header");
    return unit;
}

inline std::vector<PsUnit> ReadPs(const ByteVector& stream) {
    std::vector<PsUnit> units;
    for (size_t at = 0; at < stream.size();) {
        Require(ReadBE(stream, at, 3) == 1, "start code in a program stream");
        const auto id = static_cast<uint8_t>(ReadBE(stream, at + 3, 1));
        PsUnit unit;
        if (id == kPsPack) {
            unit = ReadPackHeader(stream, at);
        } else {
            unit.bytes = Slice(stream, at, 6 + ReadBE(stream, at + 4, 2));
            if (id == kPsVideo || id == kPsAudio) {
                unit.pes = ReadPes(unit.bytes);
            } else {
                Require(id == kPsSystemHeader || id == kPsMap, "kind of a unit in a program stream");
            }
        }
        unit.id = id;
        unit.offset = at;
        at += unit.bytes.size();
        units.push_back(std::move(unit));
    }
    return units;
}

// A line of a program stream map, with the bytes of its descriptors.
struct PsMapEntry {
    uint8_t stream_type = 0;
    uint8_t stream_id = 0;
    ByteVector info;
};

// The streams of a map. `crc_in_length` is for the dialect whose elementary_stream_map_length counts the CRC as well.
inline std::vector<PsMapEntry> ReadPsMap(const ByteVector& map, bool crc_in_length = false) {
    Require(ReadBE(map, 0, 4) == 0x000001BC, "start code of a map");
    Require(ReadBE(map, 4, 2) == map.size() - 6, "length of a map");
    size_t at = 10 + ReadBE(map, 8, 2);
    const size_t end = at + 2 + ReadBE(map, at, 2) - (crc_in_length ? 4 : 0);
    Require(end + 4 == map.size(), "place of a map's CRC");
    Require(ReadBE(map, end, 4) == 0, "zeros in the place of the CRC");
    std::vector<PsMapEntry> entries;
    for (at += 2; at < end;) {
        const uint32_t info_length = ReadBE(map, at + 2, 2);
        entries.push_back({map[at], map[at + 1], Slice(map, at + 4, info_length)});
        at += 4 + info_length;
    }
    Require(at == end, "length of the elementary stream map");
    return entries;
}

// The elementary stream of one stream_id: the payloads of its packets.
inline ByteVector PsElementaryStream(const std::vector<PsUnit>& units, uint8_t stream_id) {
    ByteVector out;
    for (const PsUnit& unit : units) {
        if (unit.id == stream_id) out.insert(out.end(), unit.pes.payload.begin(), unit.pes.payload.end());
    }
    return out;
}

}  // namespace test
