// The caller's memory: work buffers stay from run to run, as clearing their megabytes would be most of what a run
// costs.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "MuxoraAPI.h"

namespace fuzz {

class Pool {
  public:
    static void Use(MXCreateParam& param) {
        param.alloc = Take;
        param.free = GiveBack;
    }
    // The N-th buffer from here on is not given; 0: all are.
    static void FailAt(uint32_t number) { fail_at_ = number; }
    // What one run left the next may not see: so two runs that should be equal start from other leavings.
    static void Fill(uint8_t byte) {
        for (auto& [length, buffer] : kept_) {
            if (buffer != nullptr) std::memset(buffer, byte, static_cast<size_t>(length));
        }
    }

  private:
    static void* Take(int32_t size) {
        if (fail_at_ != 0 && --fail_at_ == 0) return nullptr;
        for (auto& [length, buffer] : kept_) {
            if (buffer != nullptr && length == size) return std::exchange(buffer, nullptr);
        }
        return std::malloc(static_cast<size_t>(size));
    }
    static void GiveBack(void* buffer, uint32_t size) {
        for (auto& [length, place] : kept_) {
            if (place == nullptr) {
                length = static_cast<int32_t>(size);
                place = buffer;
                return;
            }
        }
        std::free(buffer);
    }

    inline static uint32_t fail_at_ = 0;
    inline static std::pair<int32_t, void*> kept_[4] = {};
};

}  // namespace fuzz
