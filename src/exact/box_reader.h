#pragma once

#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

namespace Orvane::Muxora {

// Takes big-endian fields from bytes of any origin. What is not there reads as 0, and Ok() says so from then on.
class FieldReader {
  public:
    explicit FieldReader(std::span<const uint8_t> bytes) : rest_(bytes) {}

    uint64_t BE(size_t bytes) {
        uint64_t value = 0;
        for (const uint8_t byte : Take(bytes))
            value = value << 8 | byte;
        return value;
    }
    uint32_t BE32() { return static_cast<uint32_t>(BE(4)); }
    void Skip(size_t count) { Take(count); }
    std::span<const uint8_t> Take(size_t count) {
        if (count > rest_.size()) {
            ok_ = false;
            rest_ = {};
            return {};
        }
        const auto taken = rest_.first(count);
        rest_ = rest_.subspan(count);
        return taken;
    }
    bool Ok() const { return ok_; }
    std::span<const uint8_t> Rest() const { return rest_; }

  private:
    std::span<const uint8_t> rest_;
    bool ok_ = true;
};

// A box (ISO/IEC 14496-12 4.2) in memory; with a size of 32 bits, as in all that is smaller than media.
struct BoxView {
    static constexpr size_t kHead = 8;

    std::span<const uint8_t> whole;

    bool Is(const char (&type)[5]) const { return std::memcmp(whole.data() + 4, type, 4) == 0; }
    std::span<const uint8_t> Payload() const { return whole.subspan(kHead); }
};

// The next of the boxes that stand one behind the other; `rest` moves past it. None at the end, and none where a size
// makes no sense: `rest` stays then.
inline std::optional<BoxView> NextBox(std::span<const uint8_t>& rest) {
    if (rest.size() < BoxView::kHead) return std::nullopt;
    const uint32_t size = FieldReader(rest).BE32();
    if (size < BoxView::kHead || size > rest.size()) return std::nullopt;
    const BoxView box{rest.first(size)};
    rest = rest.subspan(size);
    return box;
}

// The payload of the first box of a type; empty if there is none.
inline std::span<const uint8_t> FindBox(std::span<const uint8_t> boxes, const char (&type)[5]) {
    while (const auto box = NextBox(boxes)) {
        if (box->Is(type)) return box->Payload();
    }
    return {};
}

}  // namespace Orvane::Muxora
