#pragma once

#include "ovx_reader/records.h"

namespace Orvane::OvxReader {

// What the DataCheck record says of the frame's bytes, as they stand in the unit (encrypted ones as cipher text).
enum class Check { kMissing, kRight, kWrong };

Check CheckData(const Extension& extension, ByteSpan frame);

// The check values of the three types.
uint32_t SumOfWords(ByteSpan bytes);
uint32_t XorOfBytes(ByteSpan bytes);
uint32_t Crc32OfBytes(ByteSpan bytes);

}  // namespace Orvane::OvxReader
