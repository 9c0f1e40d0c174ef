// What a stream comes to, put together in memory as its blocks say.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "MuxoraAPI.h"

namespace fuzz {

class File {
  public:
    // A position beyond this is not followed: extreme ones would take all memory.
    static constexpr uint64_t kRoom = 1u << 20;

    static int32_t Take(const MXOutputBlock* block, void* user) {
        static_cast<File*>(user)->Put(
            block->seek_type == MX_SEEK_ABSOLUTE ? static_cast<uint64_t>(block->offset) : kAtTheEnd, block->data,
            block->length);
        return 0;
    }
    void Append(const void* data, size_t length) { Put(kAtTheEnd, data, length); }
    void Put(uint64_t position, const void* data, size_t length) {
        const uint64_t at = position == kAtTheEnd ? bytes.size() : position;
        if (at > kRoom || length > kRoom - at) {
            overflown = true;
            return;
        }
        if (bytes.size() < at + length) bytes.resize(static_cast<size_t>(at) + length);
        if (length != 0) std::memcpy(bytes.data() + at, data, length);
    }

    std::vector<uint8_t> bytes;
    bool overflown = false;

  private:
    static constexpr uint64_t kAtTheEnd = UINT64_MAX;
};

}  // namespace fuzz
