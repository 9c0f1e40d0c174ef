// Sinks for the output callback.
#pragma once

#include <cstdint>
#include <vector>

#include "MuxoraAPI.h"
#include "support/hex.h"

namespace test {

// Keeps every block, and the file that they make: absolute blocks at their positions, the others at the end.
class Sink {
  public:
    struct Block {
        ByteVector data;
        uint32_t seek_type;
        uint32_t offset32;
        int64_t offset;
    };

    // Hand these two to MXCreateParam (or setCallback).
    static int32_t Output(const MXOutputBlock* block, void* user) {
        static_cast<Sink*>(user)->Take(*block);
        return 0;
    }
    MXCreateParam Param() {
        MXCreateParam param{};
        param.user = this;
        param.output = Output;
        return param;
    }

    std::vector<Block> blocks;
    ByteVector file;
    // What a block's length becomes in the callback, by its number; -1 leaves it. For sinks that take less.
    std::vector<int64_t> accept;

    const ByteVector& Last() const { return blocks.back().data; }
    void Clear() {
        blocks.clear();
        file.clear();
    }

  private:
    void Take(const MXOutputBlock& block) {
        const auto* bytes = static_cast<const uint8_t*>(block.data);
        Block copy{{bytes, bytes + block.length}, block.seek_type, block.offset32, block.offset};
        const size_t at = block.seek_type == MX_SEEK_ABSOLUTE ? static_cast<size_t>(block.offset) : file.size();
        if (file.size() < at + block.length) file.resize(at + block.length);
        std::copy(copy.data.begin(), copy.data.end(), file.begin() + static_cast<std::ptrdiff_t>(at));
        const size_t number = blocks.size();
        blocks.push_back(std::move(copy));
        if (number < accept.size() && accept[number] >= 0) {
            const_cast<MXOutputBlock&>(block).length = static_cast<uint32_t>(accept[number]);
        }
    }
};

}  // namespace test
