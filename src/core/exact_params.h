#pragma once

#include <cstdint>

#include "MuxoraExt.h"

namespace Orvane::Muxora {

// What the front ends need of a format with exact times to set and read its parameters. The packagers from
// MX_FORMAT_FMP4 up implement it; the front ends reach it by a cast from CPackage.
class IExactParams {
  public:
    virtual ~IExactParams() = default;
    // MX_OK, also for formats that have no fragments; MX_FAILED for values out of range and once the head is made.
    virtual uint32_t SetFragmentParam(const MXFragmentParam& param) = 0;
    virtual void GetTimeRepairs(MXTimeRepairs& repairs) const = 0;
};

}  // namespace Orvane::Muxora
