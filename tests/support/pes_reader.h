// What the readers of program and transport streams share: the header of a PES packet (ISO/IEC 13818-1 2.4.3.6).
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>

#include "support/hex.h"

namespace test {

inline void Require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(what);
}

inline uint32_t ReadBE(const ByteVector& bytes, size_t at, size_t count) {
    uint32_t value = 0;
    for (const uint8_t byte : Slice(bytes, at, count))
        value = value << 8 | byte;
    return value;
}

// 33 bits in five bytes: a prefix of four bits, then 3, 15 and 15 bits, each group with a marker bit behind it.
inline uint64_t ReadTimestamp(const ByteVector& bytes, size_t at, uint32_t prefix) {
    uint64_t word = 0;
    for (const uint8_t byte : Slice(bytes, at, 5))
        word = word << 8 | byte;
    Require(word >> 36 == prefix, "prefix of a time stamp");
    Require((word & 0x0100010001) == 0x0100010001, "marker bits of a time stamp");
    return (word >> 33 & 7) << 30 | (word >> 17 & 0x7FFF) << 15 | (word >> 1 & 0x7FFF);
}

struct PesPacket {
    uint8_t stream_id = 0;
    uint32_t length_field = 0;
    bool aligned = false;  // data_alignment_indicator
    std::optional<uint64_t> pts;
    std::optional<uint64_t> dts;
    uint32_t padding = 0;  // stuffing bytes in the header
    ByteVector payload;
};

// `bytes` is the whole packet, and nothing else.
inline PesPacket ReadPes(const ByteVector& bytes) {
    PesPacket pes;
    Require(ReadBE(bytes, 0, 3) == 1, "start code of a PES packet");
    pes.stream_id = bytes[3];
    pes.length_field = ReadBE(bytes, 4, 2);
    Require((ReadBE(bytes, 6, 1) & 0xFB) == 0x80, "first flags of a PES packet");
    pes.aligned = (bytes[6] & 4) != 0;
    const uint32_t flags = ReadBE(bytes, 7, 1);
    const uint32_t header_length = ReadBE(bytes, 8, 1);
    size_t at = 9;
    if (flags == 0xC0) {
        pes.pts = ReadTimestamp(bytes, at, 3);
        pes.dts = ReadTimestamp(bytes, at + 5, 1);
        at += 10;
    } else if (flags == 0x80) {
        pes.pts = ReadTimestamp(bytes, at, 2);
        at += 5;
    } else {
        Require(flags == 0, "second flags of a PES packet");
    }
    for (; at < 9 + header_length; ++at, ++pes.padding)
        Require(ReadBE(bytes, at, 1) == 0xFF, "stuffing of a PES header");
    Require(at == 9 + header_length, "PES_header_data_length");
    pes.payload = Slice(bytes, at, bytes.size() - at);
    return pes;
}

}  // namespace test
