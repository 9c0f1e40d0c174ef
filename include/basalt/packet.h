#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "basalt/export.h"

namespace Basalt {

/**
 * A memory packet: a buffer with a capacity and a fill size. Movable, not copyable; the packet owns its bytes.
 *
 * A writer fills up to capacity() bytes from getBuffer() on, and then states with resize() how many are good. A packet
 * belongs to one thread at a time.
 */
class BASALT_API CPacket {
  public:
    /** A packet without a buffer; valid() is false. */
    CPacket();
    /** A packet with room for `capacity` zero bytes and size 0. valid() is false if there is no memory for it. */
    explicit CPacket(size_t capacity);
    ~CPacket();
    /** The other packet is left without a buffer. */
    CPacket(CPacket&& other) noexcept;
    CPacket& operator=(CPacket&& other) noexcept; /**< The other packet is left without a buffer. */

    /** The first byte, or null. Good until resize() grows the packet, or the packet goes. */
    uint8_t* getBuffer() { return data_.get(); }
    const uint8_t* getBuffer() const { return data_.get(); } /**< As above. */
    /** Number of good bytes. */
    size_t size() const { return size_; }
    /** Number of bytes that there is room for. */
    size_t capacity() const { return capacity_; }
    /** Sets the size. Beyond the capacity the buffer is made anew, the bytes are kept and zeros follow them; false if
     *  memory ran out, with nothing changed. */
    bool resize(size_t size);
    /** Is there a buffer? */
    bool valid() const { return data_ != nullptr; }

  private:
    std::unique_ptr<uint8_t[]> data_;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

}  // namespace Basalt
