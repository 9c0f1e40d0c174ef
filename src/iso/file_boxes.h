// The boxes at the top of the file that hold no index: file type, reserved gap, media data (ISO/IEC 14496-12 4.3, 8.1).
#pragma once

#include <cstdint>

#include "iso/box.h"
#include "iso/variant.h"

namespace Orvane::Muxora {

class CBox_ftyp final : public CBox {
  public:
    explicit CBox_ftyp(BoxVariant variant);

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    BoxVariant variant_;
};

// A gap of zeros, into which the index goes at the end if it fits.
class CBox_free final : public CBox {
  public:
    CBox_free() : CBox("free") {}
    // `size` is the payload's. A size of 0 leaves the header as it was, while no payload is written.
    void Init(uint32_t size) { SetDataSize(size); }

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
};

// The header of the media data. The samples are not in the tree.
class CBox_mdat final : public CBox {
  public:
    explicit CBox_mdat(BoxVariant variant) : CBox("mdat"), variant_(variant) {}
    // Takes a sample in. In the kind with a box for each sample, the box is of that sample alone.
    void Update(uint32_t length);

  private:
    uint32_t WriteHeader(CGrowBuffer* buffer) const override;
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    BoxVariant variant_;
    uint64_t largesize_ = 16;  // with 64-bit offsets: the whole box
};

}  // namespace Orvane::Muxora
