#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// The form of an ISO file: chosen by the format number, handed down from parent to child when the box tree is built.
enum class BoxVariant : uint32_t {
    kMp4 = 0,        // MP4 and 3GP
    kMov = 1,        // QuickTime
    kMp4Large = 2,   // MP4 with 64-bit offsets
    kMovLarge = 3,   // QuickTime with 64-bit offsets
    kMp4NoSeek = 4,  // MP4 with one mdat a sample
    kMovNoSeek = 5,  // its QuickTime twin; no format number chooses it
};

inline bool IsQuickTime(BoxVariant variant) {
    return variant == BoxVariant::kMov || variant == BoxVariant::kMovLarge || variant == BoxVariant::kMovNoSeek;
}

inline bool HasLargeOffsets(BoxVariant variant) {
    return variant == BoxVariant::kMp4Large || variant == BoxVariant::kMovLarge;
}

inline bool HasMdatPerSample(BoxVariant variant) {
    return variant == BoxVariant::kMp4NoSeek || variant == BoxVariant::kMovNoSeek;
}

}  // namespace Orvane::Muxora
