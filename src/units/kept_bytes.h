#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace Orvane::Muxora {

// Bytes that are added behind and taken from the front. The memory stays for the bytes to come, and one byte behind the
// last one is always there.
class KeptBytes {
  public:
    std::span<const uint8_t> Bytes() const { return {memory_.get() + begin_, end_ - begin_}; }
    size_t Size() const { return end_ - begin_; }

    // False, with nothing changed, when memory ran out. Moves the bytes.
    bool Append(std::span<const uint8_t> bytes);
    // Takes bytes from the front; they stay readable until the next Append or Clear.
    void Take(size_t count) { begin_ += count; }
    void Clear() { begin_ = end_ = 0; }

  private:
    bool MakeRoom(size_t count);

    std::unique_ptr<uint8_t[]> memory_;
    size_t capacity_ = 0;
    size_t begin_ = 0;
    size_t end_ = 0;
};

}  // namespace Orvane::Muxora
