// Where the streams of the one program are.
#pragma once

#include <cstdint>

#include "codec/ts_format.h"

namespace Orvane::Muxora {

inline constexpr uint16_t kPmtPid = 0x0010;
inline constexpr uint16_t kVideoPid = 0x0012;
inline constexpr uint16_t kAudioPid = 0x0013;

}  // namespace Orvane::Muxora
