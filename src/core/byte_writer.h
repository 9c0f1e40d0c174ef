// Byte writers: each writes one field at a place and tells how many bytes that took. The byte order is in the name.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace Orvane::Muxora {

// Every writer returns the number of bytes written, or 0 with nothing written when `out` is null.

inline uint32_t PutU8(uint8_t* out, uint8_t value) {
    if (out == nullptr) return 0;
    out[0] = value;
    return 1;
}

inline uint32_t PutBE16(uint8_t* out, uint16_t value) {
    if (out == nullptr) return 0;
    out[0] = static_cast<uint8_t>(value >> 8);
    out[1] = static_cast<uint8_t>(value);
    return 2;
}

inline uint32_t PutBE24(uint8_t* out, uint32_t value) {
    if (out == nullptr) return 0;
    out[0] = static_cast<uint8_t>(value >> 16);
    out[1] = static_cast<uint8_t>(value >> 8);
    out[2] = static_cast<uint8_t>(value);
    return 3;
}

inline uint32_t PutBE32(uint8_t* out, uint32_t value) {
    if (out == nullptr) return 0;
    PutBE16(out, static_cast<uint16_t>(value >> 16));
    PutBE16(out + 2, static_cast<uint16_t>(value));
    return 4;
}

inline uint32_t PutBE64(uint8_t* out, uint64_t value) {
    if (out == nullptr) return 0;
    PutBE32(out, static_cast<uint32_t>(value >> 32));
    PutBE32(out + 4, static_cast<uint32_t>(value));
    return 8;
}

// The IEEE 754 representation of a number (g++ 10 has no std::bit_cast).
inline uint64_t BitsOf(double value) {
    uint64_t bits = 0;
    static_assert(sizeof bits == sizeof value);
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

inline uint32_t PutBEDouble(uint8_t* out, double value) {
    return PutBE64(out, BitsOf(value));
}

inline uint32_t PutLE16(uint8_t* out, uint16_t value) {
    if (out == nullptr) return 0;
    out[0] = static_cast<uint8_t>(value);
    out[1] = static_cast<uint8_t>(value >> 8);
    return 2;
}

inline uint32_t PutLE32(uint8_t* out, uint32_t value) {
    if (out == nullptr) return 0;
    PutLE16(out, static_cast<uint16_t>(value));
    PutLE16(out + 2, static_cast<uint16_t>(value >> 16));
    return 4;
}

inline uint32_t PutLE64(uint8_t* out, uint64_t value) {
    if (out == nullptr) return 0;
    PutLE32(out, static_cast<uint32_t>(value));
    PutLE32(out + 4, static_cast<uint32_t>(value >> 32));
    return 8;
}

// 16 bytes as they stand.
inline uint32_t PutGuid(uint8_t* out, const uint8_t* guid) {
    if (out == nullptr) return 0;
    std::memcpy(out, guid, 16);
    return 16;
}

// A length in groups of 7 bits, most significant group first, at most 4 groups (ISO/IEC 14496-1 8.3.3, expandable
// classes).
inline uint32_t PutDescriptorLength(uint8_t* out, uint32_t value) {
    if (out == nullptr) return 0;
    const uint32_t count = value < 0x80 ? 1 : value < 0x4000 ? 2 : value < 0x200000 ? 3 : 4;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t group = (value >> (7 * (count - 1 - i))) & 0x7F;
        out[i] = static_cast<uint8_t>(i + 1 < count ? group | 0x80 : group);
    }
    return count;
}

// A cursor over the writers: composes a record field by field, in file order. It never writes behind the end of its
// area: a field that does not fit is left out, and Ok() tells. A null area has no room.
class ByteCursor {
  public:
    ByteCursor(uint8_t* out, uint32_t capacity)
        : begin_(out), at_(out), end_(out != nullptr ? out + capacity : nullptr) {}
    template <uint32_t N>
    explicit ByteCursor(uint8_t (&area)[N]) : ByteCursor(area, N) {}

    ByteCursor& U8(uint8_t value) {
        return Put(1, [&](uint8_t* p) { PutU8(p, value); });
    }
    ByteCursor& BE16(uint16_t value) {
        return Put(2, [&](uint8_t* p) { PutBE16(p, value); });
    }
    ByteCursor& BE24(uint32_t value) {
        return Put(3, [&](uint8_t* p) { PutBE24(p, value); });
    }
    ByteCursor& BE32(uint32_t value) {
        return Put(4, [&](uint8_t* p) { PutBE32(p, value); });
    }
    ByteCursor& BE64(uint64_t value) {
        return Put(8, [&](uint8_t* p) { PutBE64(p, value); });
    }
    ByteCursor& BEDouble(double value) {
        return Put(8, [&](uint8_t* p) { PutBEDouble(p, value); });
    }
    ByteCursor& LE16(uint16_t value) {
        return Put(2, [&](uint8_t* p) { PutLE16(p, value); });
    }
    ByteCursor& LE32(uint32_t value) {
        return Put(4, [&](uint8_t* p) { PutLE32(p, value); });
    }
    ByteCursor& LE64(uint64_t value) {
        return Put(8, [&](uint8_t* p) { PutLE64(p, value); });
    }
    ByteCursor& Guid(const uint8_t* guid) {
        return Put(16, [&](uint8_t* p) { PutGuid(p, guid); });
    }
    ByteCursor& Bytes(const void* data, uint32_t length) {
        return Put(length, [&](uint8_t* p) {
            // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): Put gives a place, or does not call.
            if (length != 0) std::memcpy(p, data, length);
        });
    }
    // The characters of a literal without its terminating zero: a FourCC, a tag.
    template <uint32_t N>
    ByteCursor& Text(const char (&text)[N]) {
        return Bytes(text, N - 1);
    }
    ByteCursor& Zeros(uint32_t count) { return Fill(0, count); }
    ByteCursor& Fill(uint8_t value, uint32_t count) {
        return Put(count, [&](uint8_t* p) { std::fill_n(p, count, value); });
    }

    uint32_t Size() const { return static_cast<uint32_t>(at_ - begin_); }
    const uint8_t* Data() const { return begin_; }
    bool Ok() const { return ok_; }

  private:
    template <typename Writer>
    ByteCursor& Put(uint32_t length, Writer write) {
        if (static_cast<uint64_t>(end_ - at_) < length) {
            ok_ = false;
        } else {
            write(at_);
            at_ += length;
        }
        return *this;
    }

    uint8_t* begin_;
    uint8_t* at_;
    uint8_t* end_;
    bool ok_ = true;
};

}  // namespace Orvane::Muxora
