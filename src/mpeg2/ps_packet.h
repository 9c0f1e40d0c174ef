#pragma once

#include <memory>

#include "core/grow_buffer.h"
#include "core/package.h"
#include "mpeg2/ps_packaging.h"

namespace Orvane::Muxora {

// MPEG-2 program streams. The format number chooses the dialect; each frame goes out as one block.
class CPsPacket : public CPackage {
  public:
    explicit CPsPacket(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t init() override { return MX_OK; }
    uint32_t uninit() override { return MX_OK; }
    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    // The same as inputFrame: the packet is left alone.
    uint32_t inputFrameEx(MXFrameInfo* frame, Basalt::CPacket& packet) override;
    uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) override;
    uint32_t createTailer(const void* info, uint32_t unused) override;
    uint32_t getBackup(MXOutputBlock* block) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

  private:
    std::unique_ptr<CPSPackaging> packaging_;  // null for a number that is no program stream
    uint64_t offset_ = 0;                      // of the next block in the output
    CGrowBuffer buffer_;
};

}  // namespace Orvane::Muxora
