#pragma once

#include <memory>
#include <span>
#include <utility>

#include "MuxoraExt.h"
#include "units/kept_bytes.h"
#include "units/unit_cutter.h"

namespace Orvane::Muxora {

// Bytes of an elementary stream in pieces of any size in, whole units out. A unit that lies in one piece is given in
// place; of any other, and of NAL units that come one by one, a copy is kept here. Throws nothing behind construction.
class AccessUnits {
  public:
    AccessUnits(uint32_t frame_type, uint32_t encode_type, bool long_start_codes, std::unique_ptr<IUnitCutter> cutter)
        : frame_type_(frame_type),
          encode_type_(encode_type),
          long_codes_(long_start_codes),
          cutter_(std::move(cutter)) {}

    // Results are those of the functions in MuxoraExt.h.
    uint32_t PutBytes(const void* data, uint32_t length);
    uint32_t PutNal(const void* nal, uint32_t length);
    uint32_t End();
    uint32_t Get(MXAccessUnit& unit);

  private:
    enum class Look : uint8_t { kUnit, kAgain, kNothing, kNoMemory };

    Look LookInPiece(std::span<const uint8_t>& unit);
    Look LookInKept(std::span<const uint8_t>& unit);
    Look OutOfMemory();
    bool RewriteStartCodes(std::span<const uint8_t>& unit);

    uint32_t frame_type_;
    uint32_t encode_type_;
    bool long_codes_;
    std::unique_ptr<IUnitCutter> cutter_;
    std::span<const uint8_t> piece_;  // of the caller's, what has not been looked at
    KeptBytes kept_;                  // what comes ahead of it
    size_t borrowed_ = 0;             // of the kept bytes, those at the end that stand ahead of piece_ as well
    BytesEnd end_ = BytesEnd::kOpen;
    KeptBytes rewritten_;
};

}  // namespace Orvane::Muxora
