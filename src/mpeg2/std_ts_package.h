#pragma once

#include "mpeg2/ts_package_base.h"

namespace Orvane::Muxora {

// The codecs of the transport stream.
class CStdTSPackage : public CTSPackageBase {
  public:
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;
};

}  // namespace Orvane::Muxora
