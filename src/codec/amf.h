// Writers of AMF0 values, as the script data of FLV has them (Action Message Format 0, 2).
#pragma once

#include <cstdint>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

// Type markers (2.1).
constexpr uint8_t kAmfNumber = 0;
constexpr uint8_t kAmfBoolean = 1;
constexpr uint8_t kAmfString = 2;
constexpr uint8_t kAmfObject = 3;
constexpr uint8_t kAmfEcmaArray = 8;
constexpr uint8_t kAmfStrictArray = 10;
constexpr uint32_t kAmfObjectEnd = 9;  // with an empty key in front, in 24 bits

// A name without a marker: a property's, or that of a message behind a marker.
template <uint32_t N>
ByteCursor& PutAmfKey(ByteCursor& out, const char (&name)[N]) {
    return out.BE16(N - 1).Text(name);
}

inline void PutAmfNumber(ByteCursor& out, double value) {
    out.U8(kAmfNumber).BEDouble(value);
}

// Properties.
template <uint32_t N>
void PutAmfNumber(ByteCursor& out, const char (&name)[N], double value) {
    PutAmfKey(out, name);
    PutAmfNumber(out, value);
}

template <uint32_t N>
void PutAmfBoolean(ByteCursor& out, const char (&name)[N], bool value) {
    PutAmfKey(out, name).U8(kAmfBoolean).U8(value ? 1 : 0);
}

}  // namespace Orvane::Muxora
