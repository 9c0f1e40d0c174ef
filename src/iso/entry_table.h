#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/byte_writer.h"
#include "core/grow_buffer.h"

namespace Orvane::Muxora {

// The entries of a sample table, in the big-endian form that they have in the file, so that writing the table is a
// copy. It grows by whole blocks and never moves an entry: the cost of an entry does not depend on how many there are,
// and a table of a day is as large as its entries. The capacity doubles from 2048 words until a block has 16384 of
// them; from there on it grows by such blocks. A table that can't grow refuses further entries and keeps those it has.
//
// All entries of a table are of one width, 4 or 8 bytes.
class EntryTable {
  public:
    // Makes room for one more entry, so that appending it can't fail. False, with nothing changed, if there is no
    // memory.
    bool Reserve() { return at_ != end_ || Grow(); }
    // False if there is no memory.
    bool Append32(uint32_t value) {
        if (!Reserve()) return false;
        at_ += PutBE32(at_, value);
        return true;
    }
    bool Append64(uint64_t value) {
        if (!Reserve()) return false;
        at_ += PutBE64(at_, value);
        return true;
    }

    // Appends all entries to the buffer. Returns the number of bytes.
    uint32_t Write(CGrowBuffer* buffer) const;

    // Bytes that the table holds for its entries.
    uint64_t Capacity() const { return capacity_; }

  private:
    struct Block {
        std::unique_ptr<uint8_t[]> bytes;
        uint32_t size;
    };

    bool Grow();

    std::vector<Block> blocks_;  // all are full but the last
    uint8_t* at_ = nullptr;      // where the next entry goes
    uint8_t* end_ = nullptr;     // the end of the last block
    uint64_t capacity_ = 0;
};

}  // namespace Orvane::Muxora
