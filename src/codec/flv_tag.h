// The frame around every tag of an FLV file (Video File Format, version 10, annex E).
#pragma once

#include <cstdint>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

enum class FlvTagType : uint8_t { Audio = 8, Video = 9, Script = 18 };

constexpr uint32_t kFlvFileHeaderSize = 13;  // with PreviousTagSize0
constexpr uint32_t kFlvTagHeaderSize = 11;
constexpr uint32_t kFlvPreviousTagSize = 4;
constexpr uint8_t kFlvHasVideo = 0x01;
constexpr uint8_t kFlvHasAudio = 0x04;

// The value of the PreviousTagSize field behind a tag.
constexpr uint32_t FlvTagSize(uint32_t data_size) {
    return kFlvTagHeaderSize + data_size;
}

// The signature, what there is, and PreviousTagSize0.
inline void PutFlvFileHeader(ByteCursor& out, uint8_t type_flags) {
    constexpr uint32_t kDataOffset = 9;
    out.Text("FLV")         // Signature
        .U8(1)              // Version
        .U8(type_flags)     // TypeFlags
        .BE32(kDataOffset)  // DataOffset
        .BE32(0);           // PreviousTagSize0
}

// The 11 bytes ahead of a tag's data. `time` is a count of milliseconds modulo 2^32, as the two fields have it.
inline void PutFlvTagHeader(ByteCursor& out, FlvTagType type, uint32_t data_size, uint32_t time) {
    out.U8(static_cast<uint8_t>(type))         // TagType
        .BE24(data_size)                       // DataSize
        .BE24(time & 0xFFFFFF)                 // Timestamp
        .U8(static_cast<uint8_t>(time >> 24))  // TimestampExtended
        .BE24(0);                              // StreamID
}

}  // namespace Orvane::Muxora
