#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Basalt {

/**
 * A memory packet: a buffer with a capacity and a fill size. Movable, not copyable; the packet owns its bytes.
 *
 * A writer fills up to capacity() bytes from getBuffer() on, and then states with resize() how many are good.
 */
class __attribute__((visibility("default"))) CPacket {
  public:
    /** A packet without a buffer; valid() is false. */
    CPacket() = default;
    /** A packet with room for `capacity` bytes and size 0. valid() is false if there is no memory for it. */
    explicit CPacket(size_t capacity);

    /** The first byte, or null. Good until resize() grows the packet, or the packet goes. */
    uint8_t* getBuffer() { return data_.get(); }
    const uint8_t* getBuffer() const { return data_.get(); }
    /** Number of good bytes. */
    size_t size() const { return size_; }
    /** Number of bytes that there is room for. */
    size_t capacity() const { return capacity_; }
    /** Sets the size. Beyond the capacity the buffer is made anew and the bytes are kept; false if memory ran out,
     *  with nothing changed. */
    bool resize(size_t size);
    /** Is there a buffer? */
    bool valid() const { return data_ != nullptr; }

  private:
    std::unique_ptr<uint8_t[]> data_;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

}  // namespace Basalt
