#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

// Composes a tree of boxes (ISO/IEC 14496-12 4.2) at the end of a vector, in file order. A box is open for the life of
// the object that Box or FullBox gives; its size goes in when that ends.
class BoxWriter {
  public:
    class Scope {
      public:
        Scope(std::vector<uint8_t>& bytes, size_t at) : bytes_(bytes), at_(at) {}
        ~Scope() { PutBE32(bytes_.data() + at_, static_cast<uint32_t>(bytes_.size() - at_)); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

      private:
        std::vector<uint8_t>& bytes_;
        size_t at_;
    };

    explicit BoxWriter(std::vector<uint8_t>& bytes) : bytes_(bytes) {}

    [[nodiscard]] Scope Box(const char (&type)[5]) {
        const size_t at = bytes_.size();
        BE32(0).Text(type);
        return {bytes_, at};
    }
    [[nodiscard]] Scope FullBox(const char (&type)[5], uint8_t version, uint32_t flags) {
        const size_t at = bytes_.size();
        BE32(0).Text(type).BE32(static_cast<uint32_t>(version) << 24 | flags);
        return {bytes_, at};
    }

    BoxWriter& U8(uint8_t value) {
        PutU8(Grow(1), value);
        return *this;
    }
    BoxWriter& BE16(uint16_t value) {
        PutBE16(Grow(2), value);
        return *this;
    }
    BoxWriter& BE24(uint32_t value) {
        PutBE24(Grow(3), value);
        return *this;
    }
    BoxWriter& BE32(uint32_t value) {
        PutBE32(Grow(4), value);
        return *this;
    }
    BoxWriter& BE64(uint64_t value) {
        PutBE64(Grow(8), value);
        return *this;
    }
    // As BE64 or as BE32.
    BoxWriter& BE(uint64_t value, bool wide) { return wide ? BE64(value) : BE32(static_cast<uint32_t>(value)); }
    BoxWriter& Zeros(uint32_t count) {
        Grow(count);
        return *this;
    }
    BoxWriter& Bytes(const uint8_t* data, size_t length) {
        if (length != 0) std::memcpy(Grow(length), data, length);
        return *this;
    }
    template <uint32_t N>
    BoxWriter& Text(const char (&text)[N]) {
        std::memcpy(Grow(N - 1), text, N - 1);
        return *this;
    }

    // `count` bytes that the caller fills before anything else is written.
    uint8_t* Room(size_t count) { return Grow(count); }

    size_t Size() const { return bytes_.size(); }
    // For a value that is known later.
    void PatchBE32(size_t at, uint32_t value) { PutBE32(bytes_.data() + at, value); }

  private:
    uint8_t* Grow(size_t count) {
        const size_t at = bytes_.size();
        bytes_.resize(at + count);
        return bytes_.data() + at;
    }

    std::vector<uint8_t>& bytes_;
};

}  // namespace Orvane::Muxora
