// Boxes of ISO/IEC 14496-12 written down from the inside out.
#pragma once

#include <string_view>

#include "support/hex.h"

namespace test {

// Size and type, then the payload (4.2).
inline ByteVector Box(std::string_view type, const ByteVector& payload) {
    const size_t size = 8 + payload.size();
    ByteVector head;
    for (int shift = 24; shift >= 0; shift -= 8)
        head.push_back(static_cast<uint8_t>(size >> shift));
    return head + Text(type) + payload;
}

}  // namespace test
