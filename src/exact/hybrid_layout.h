// How a hybrid MP4 is laid out: what the packager that writes one and the repair of a killed one have in common.
#pragma once

#include <cstdint>
#include <limits>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

// ftyp, then a box of kMediaHeadSize bytes: free while the file grows, the head of mdat in the end.
constexpr uint32_t kHybridFileTypeSize = 36;
constexpr uint32_t kMediaHeadSize = 16;

// A box free stands ahead of each fragment. It is written first and reaches over everything behind it; once the
// fragment is there to its last byte, it ends where the fragment begins. So players, some of which refuse a file for
// one torn moof, do not see a fragment of which a part is missing.
// Both sizes differ in one byte: nothing lies between them, wherever a write is cut off.
constexpr uint32_t kGuardSize = 8;
constexpr uint32_t kOpenGuard = 0x7F000000 | kGuardSize;

// `end` is where the last fragment ends.
inline bool NeedsLargeOffsets(uint64_t end) {
    return end > std::numeric_limits<uint32_t>::max();
}

// The head of the one mdat over all fragments; returns its length. What is left of its room counts as media.
inline uint32_t WriteMediaHead(uint8_t (&area)[kMediaHeadSize], uint64_t end) {
    const uint64_t size = end - kHybridFileTypeSize;
    const bool large = size > std::numeric_limits<uint32_t>::max();
    ByteCursor out(area);
    out.BE32(large ? 1 : static_cast<uint32_t>(size)).Text("mdat");
    if (large) out.BE64(size);
    return out.Size();
}

}  // namespace Orvane::Muxora
