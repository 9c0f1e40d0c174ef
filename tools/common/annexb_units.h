// Walks the units of an Annex-B frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Orvane::Muxora::Tools {

struct AnnexBUnit {
    size_t at;    // of its start code of four bytes
    size_t size;  // with the start code

    // Without the start code.
    std::span<const uint8_t> Body(std::span<const uint8_t> frame) const { return frame.subspan(at + 4, size - 4); }
};

// The frame has start codes of four bytes, as the reader gives them. Units without a byte are left out.
inline std::vector<AnnexBUnit> AnnexBUnits(std::span<const uint8_t> frame) {
    std::vector<AnnexBUnit> units;
    size_t start = frame.size();
    const auto close = [&](size_t end) {
        if (start + 4 < end) units.push_back({start, end - start});
    };
    for (size_t i = 0; i + 4 <= frame.size(); ++i) {
        if (frame[i] != 0 || frame[i + 1] != 0 || frame[i + 2] != 0 || frame[i + 3] != 1) continue;
        close(i);
        start = i;
        i += 3;
    }
    close(frame.size());
    return units;
}

}  // namespace Orvane::Muxora::Tools
