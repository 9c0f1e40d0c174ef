#pragma once

#include <bit>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "codec/ebml.h"
#include "core/byte_writer.h"

namespace Orvane::Muxora {

// Writes a tree of EBML elements (RFC 8794) from front to back. Masters have sizes of eight bytes, which their end puts
// in place.
class EbmlTree {
  public:
    // The size that says "not known" (RFC 8794 6.2), in eight bytes.
    static constexpr uint64_t kUnknownSize = 0x01FFFFFFFFFFFFFF;

    void Begin(ElementId id) {
        open_.push_back(Head(id));
        Append(0, 8);
    }
    void End() {
        const size_t at = open_.back();
        open_.pop_back();
        PutBE64(bytes_.data() + at, EbmlSize8(bytes_.size() - at - 8));
    }
    // In as few bytes as it takes.
    void UInt(ElementId id, uint64_t value) {
        const auto size = value == 0 ? 1u : (static_cast<uint32_t>(std::bit_width(value)) + 7) / 8;
        Size(id, size);
        Append(value, size);
    }
    void UInt8Bytes(ElementId id, uint64_t value) {
        Size(id, 8);
        Append(value, 8);
    }
    void Float(ElementId id, double value) {
        Size(id, 8);
        Append(BitsOf(value), 8);
    }
    void Text(ElementId id, std::string_view text) {
        Size(id, text.size());
        bytes_.insert(bytes_.end(), text.begin(), text.end());
    }
    void Binary(ElementId id, std::span<const uint8_t> bytes) {
        Size(id, bytes.size());
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    }
    // A master whose end is somewhere else.
    void Open(ElementId id, uint64_t coded_size) {
        Head(id);
        Append(coded_size, 8);
    }
    // An element of `size` bytes in all, from 2 to 128: its size takes one byte.
    void Void(uint32_t size) {
        Append(static_cast<uint32_t>(ElementId::kVoid), 1);
        Append(0x80u | (size - 2), 1);
        bytes_.resize(bytes_.size() + size - 2);
    }

    size_t Position() const { return bytes_.size(); }
    std::vector<uint8_t>& Bytes() { return bytes_; }

  private:
    void Append(uint64_t value, uint32_t size) {
        while (size-- != 0)
            bytes_.push_back(static_cast<uint8_t>(value >> 8 * size));
    }
    // Gives the place of the size.
    size_t Head(ElementId id) {
        const auto number = static_cast<uint32_t>(id);
        Append(number, (static_cast<uint32_t>(std::bit_width(number)) + 7) / 8);
        return bytes_.size();
    }
    void Size(ElementId id, uint64_t size) {
        uint8_t area[12];
        ByteCursor head(area);
        PutElement(head, id, size);
        bytes_.insert(bytes_.end(), area, area + head.Size());
    }

    std::vector<uint8_t> bytes_;
    std::vector<size_t> open_;  // where the sizes of the open masters stand
};

}  // namespace Orvane::Muxora
