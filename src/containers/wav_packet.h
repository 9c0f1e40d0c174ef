#pragma once

#include "core/package.h"

namespace Orvane::Muxora {

// WAV: a 44-byte RIFF/WAVE header, audio frames behind it as they are, and the header again with its final sizes.
class CWavPacket : public CPackage {
  public:
    explicit CWavPacket(uint32_t format, const MXCreateParam* param = nullptr) : CPackage(format, param) {}

    uint32_t init() override { return MX_OK; }
    uint32_t uninit() override { return MX_OK; }
    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) override;
    uint32_t createTailer(const void* info, uint32_t unused) override;
    uint32_t getBackup(MXOutputBlock* block) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

  private:
    uint32_t WriteHeader();

    bool header_written_ = false;
    uint32_t total_size_ = 0;  // bytes of the file so far; wraps at 4 GiB
    bool started_ = false;     // the first frame has been seen
};

}  // namespace Orvane::Muxora
