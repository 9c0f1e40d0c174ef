// A reader of transport streams for tests, written from ISO/IEC 13818-1 2.4: packets, PES packets put together again,
// sections with their CRC. Throws at what is malformed, a gap in a continuity counter included.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "support/pes_reader.h"

namespace test {

struct TsPacket {
    uint16_t pid = 0;
    bool unit_start = false;
    uint32_t continuity = 0;
    std::optional<uint32_t> adaptation_length;
    std::optional<uint64_t> pcr;
    bool random_access = false;
    bool has_payload = true;
    uint32_t stuffing = 0;  // bytes of stuffing in the adaptation field
    ByteVector payload;
};

inline TsPacket ReadTsPacket(const ByteVector& bytes) {
    Require(bytes.size() == 188 && bytes[0] == 0x47, "sync byte");
    TsPacket packet;
    Require((bytes[1] & 0xA0) == 0, "error and priority bits");
    packet.unit_start = (bytes[1] & 0x40) != 0;
    packet.pid = static_cast<uint16_t>(ReadBE(bytes, 1, 2) & 0x1FFF);
    Require((bytes[3] & 0xC0) == 0, "scrambling");
    packet.has_payload = (bytes[3] & 0x10) != 0;
    Require((bytes[3] & 0x30) != 0, "an adaptation field or a payload");
    packet.continuity = bytes[3] & 15;
    size_t at = 4;
    if ((bytes[3] & 0x20) != 0) {
        const uint32_t length = bytes[4];
        Require(packet.has_payload ? length < 183 : length == 183, "adaptation_field_length");
        packet.adaptation_length = length;
        const uint8_t flags = length != 0 ? bytes[5] : 0;
        size_t field = length != 0 ? 6 : 5;
        packet.random_access = (flags & 0x40) != 0;
        if ((flags & 0x10) != 0) {
            uint64_t word = 0;
            for (const uint8_t byte : Slice(bytes, field, 6))
                word = word << 8 | byte;
            Require((word >> 9 & 0x3F) == 0x3F, "reserved bits of a PCR");
            Require((word & 0x1FF) == 0, "extension of a PCR");
            packet.pcr = word >> 15;
            field += 6;
        }
        Require((flags & 0xAF) == 0, "flags of an adaptation field");
        for (; field < 5 + length; ++field, ++packet.stuffing)
            Require(bytes[field] == 0xFF, "stuffing of an adaptation field");
        at = 5 + length;
    }
    packet.payload = Slice(bytes, at, 188 - at);
    return packet;
}

inline std::vector<TsPacket> ReadTs(const ByteVector& stream) {
    Require(stream.size() % 188 == 0, "a whole number of packets");
    std::vector<TsPacket> packets;
    std::map<uint16_t, uint32_t> last;
    for (size_t at = 0; at < stream.size(); at += 188) {
        packets.push_back(ReadTsPacket(Slice(stream, at, 188)));
        const TsPacket& packet = packets.back();
        const auto before = last.find(packet.pid);
        const uint32_t step = packet.has_payload ? 1 : 0;  // without a payload it stays
        Require(before == last.end() || (before->second + step) % 16 == packet.continuity, "continuity");
        last[packet.pid] = packet.continuity;
    }
    return packets;
}

// The PES packets of a PID.
inline std::vector<PesPacket> ReadTsPes(const std::vector<TsPacket>& packets, uint16_t pid) {
    std::vector<ByteVector> whole;
    for (const TsPacket& packet : packets) {
        if (packet.pid != pid) continue;
        if (packet.unit_start) whole.emplace_back();
        Require(!whole.empty(), "a PES packet's beginning");
        whole.back().insert(whole.back().end(), packet.payload.begin(), packet.payload.end());
    }
    std::vector<PesPacket> out;
    for (const ByteVector& bytes : whole)
        out.push_back(ReadPes(bytes));
    return out;
}

// Bit by bit, as Annex A draws it: over a section with its CRC the result is 0.
inline uint32_t SectionCrc(const ByteVector& bytes) {
    uint32_t crc = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        for (int bit = 7; bit >= 0; --bit) {
            const bool carry = (crc >> 31 & 1) != (byte >> bit & 1u);
            crc = crc << 1 ^ (carry ? 0x04C11DB7 : 0);
        }
    }
    return crc;
}

// The section of a table's packet, with a good CRC and nothing but FF behind it.
inline ByteVector ReadSection(const TsPacket& packet) {
    Require(packet.unit_start && packet.payload.at(0) == 0, "pointer_field");
    const uint32_t length = ReadBE(packet.payload, 2, 2) & 0xFFF;
    ByteVector section = Slice(packet.payload, 1, 3 + length);
    Require(SectionCrc(section) == 0, "CRC of a section");
    for (size_t i = 1 + section.size(); i < packet.payload.size(); ++i)
        Require(packet.payload[i] == 0xFF, "what follows a section");
    return section;
}

}  // namespace test
