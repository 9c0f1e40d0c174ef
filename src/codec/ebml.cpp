#include "codec/ebml.h"

#include <bit>

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kCodeLimit = 0xFFFFFFF;  // first value that four bytes can't carry

// A size below kCodeLimit with its length marker. A size whose value bits are all ones would say "unknown", so that the
// steps change one value early.
uint32_t CodeShort(uint32_t value) {
    if (value < 0x7F) return value | 0x80;
    if (value < 0x3FFF) return value | 0x4000;
    if (value < 0x1FFFFF) return value | 0x200000;
    return value | 0x10000000;
}

uint64_t Code(uint64_t value) {
    if (value < kCodeLimit) return CodeShort(static_cast<uint32_t>(value));
    // Readers rely on this: a larger value is no valid size; its upper half is coded as if it stood alone.
    const auto upper = static_cast<uint32_t>(value >> 32);
    if (upper >= kCodeLimit) return 0;
    return uint64_t{CodeShort(upper)} << 32 | static_cast<uint32_t>(value);
}

uint32_t SignificantBytes(uint64_t value) {
    return static_cast<uint32_t>(std::bit_width(value) + 7) / 8;
}

// An ID is as long as its number.
ByteCursor& PutId(ByteCursor& out, ElementId id) {
    const auto value = static_cast<uint32_t>(id);
    for (uint32_t left = SignificantBytes(value); left != 0; --left)
        out.U8(static_cast<uint8_t>(value >> 8 * (left - 1)));
    return out;
}

}  // namespace

const uint8_t* EbmlCodeSize(uint64_t value, uint32_t* length) {
    thread_local uint8_t bytes[8];
    const uint64_t code = Code(value);
    PutBE64(bytes, code);
    *length = SignificantBytes(code);
    return bytes + sizeof bytes - *length;
}

uint32_t EbmlCodeLength(uint64_t value) {
    return SignificantBytes(Code(value));
}

ByteCursor& PutElement(ByteCursor& out, ElementId id, uint64_t size) {
    uint32_t length = 0;
    const uint8_t* const code = EbmlCodeSize(size, &length);
    return PutId(out, id).Bytes(code, length);
}

ByteCursor& PutMaster(ByteCursor& out, ElementId id, uint64_t size) {
    return PutId(out, id).BE64(EbmlSize8(size));
}

}  // namespace Orvane::Muxora
