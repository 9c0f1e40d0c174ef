#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <optional>
#include <span>

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

// What is known of an access unit or audio frame. Zeros where a stream does not say.
struct UnitInfo {
    uint32_t picture_kind = MX_SUB_OTHER;  // MX_SUB_I, MX_SUB_P, MX_SUB_B
    bool key_frame = false;
    uint32_t field = 0;  // MXUnitField
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t rate_numerator = 0;
    uint32_t rate_denominator = 0;
    uint32_t samples_per_sec = 0;
    uint32_t channels = 0;
    uint32_t samples = 0;

    // Pictures a second, in lowest terms; not stated if either is 0.
    void SetRate(uint64_t numerator, uint64_t denominator) {
        const uint64_t divisor = std::max<uint64_t>(std::gcd(numerator, denominator), 1);
        const bool stated = numerator != 0 && denominator != 0 && denominator / divisor <= UINT32_MAX;
        rate_numerator = stated ? static_cast<uint32_t>(numerator / divisor) : 0;
        rate_denominator = stated ? static_cast<uint32_t>(denominator / divisor) : 0;
    }
};

// What stands at the end of the bytes that a cutter sees.
enum class BytesEnd : uint8_t {
    kOpen,   // more may follow
    kNal,    // the end of a NAL unit
    kStream  // the end of a unit: nothing follows that belongs to it
};

// What a cutter found: `skipped` bytes of no unit, then a unit of `length` bytes if that is not 0.
struct UnitCut {
    size_t skipped = 0;
    size_t length = 0;
};

// Finds the units of one elementary stream in bytes that somebody else keeps together.
class IUnitCutter {
  public:
    virtual ~IUnitCutter() = default;

    // Looks at `bytes`, one at least, which begin where the last cut ended. Without a cut the next call gives the same
    // bytes with more behind them, perhaps at another address; the cutter remembers how far it looked.
    virtual std::optional<UnitCut> Next(std::span<const uint8_t> bytes, BytesEnd end) = 0;
    // Forgets the unit begun: the bytes of the next call have nothing to do with those before.
    virtual void Restart() = 0;

    // Of the last unit that was cut: what is known of it, and where in it stand start codes of three bytes.
    virtual const UnitInfo& Info() const = 0;
    virtual std::span<const size_t> ShortStartCodes() const { return {}; }
};

}  // namespace Orvane::Muxora
