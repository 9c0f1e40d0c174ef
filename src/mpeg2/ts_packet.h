#pragma once

#include <memory>

#include "core/package.h"
#include "mpeg2/std_ts_package.h"

namespace Orvane::Muxora {

// MPEG-2 transport streams; each frame goes out as one block of 188-byte packets.
class CTsPacket : public CPackage {
  public:
    explicit CTsPacket(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t init() override;
    uint32_t uninit() override { return MX_OK; }
    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    // Packs into the caller's packet, within its size; a packet that has none yet offers its capacity.
    uint32_t inputFrameEx(MXFrameInfo* frame, Basalt::CPacket& packet) override;
    uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) override;
    uint32_t createTailer(const void* info, uint32_t unused) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

  private:
    uint32_t Pack(const MXFrameInfo* frame, uint8_t* out, uint32_t size);

    std::unique_ptr<CTSPackageBase> packaging_;  // init makes it
    LargeBuffer buffer_;
    uint64_t offset_ = 0;  // of the next block in the output
};

}  // namespace Orvane::Muxora
