// A file in memory that takes no memory while it is written: for tests in which allocations fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "MuxoraAPI.h"
#include "support/hex.h"

namespace test {

class QuietFile {
  public:
    explicit QuietFile(size_t room = 1 << 20) { bytes.reserve(room); }
    MXCreateParam Param() {
        MXCreateParam param{};
        param.user = this;
        param.output = Output;
        return param;
    }
    // Absolute blocks at their positions, the others at the end. Throws when the room is used up.
    static int32_t Output(const MXOutputBlock* block, void* user) {
        ByteVector& bytes = static_cast<QuietFile*>(user)->bytes;
        const size_t at = block->seek_type == MX_SEEK_ABSOLUTE ? static_cast<size_t>(block->offset) : bytes.size();
        if (at + block->length > bytes.capacity()) throw std::length_error("the quiet file is full");
        if (bytes.size() < at + block->length) bytes.resize(at + block->length);
        if (block->length != 0) std::memcpy(bytes.data() + at, block->data, block->length);
        return 0;
    }

    ByteVector bytes;
};

}  // namespace test
