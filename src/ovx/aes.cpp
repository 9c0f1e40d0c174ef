#include "ovx/aes.h"

#include <cstring>

namespace Orvane::Muxora {

bool CAes::setKey(const void* key, uint32_t length) {
    if (key == nullptr || length == 0 || length >= key_.size() || (length % 2 != 0 && length != 1)) return false;
    if (length == key_length_ && std::memcmp(key, key_.data(), length) == 0) return true;
    schedule_.reset();
    key_.fill(0);
    key_length_ = 0;
    if (length != 16 && length != 24 && length != 32) return false;
    schedule_ = std::make_unique<Kernels::AesSchedule>();
    std::memcpy(key_.data(), key, length);
    key_length_ = length;
    Kernels::ExpandAesKey(*schedule_, key_.data(), length);
    return true;
}

bool CAes::encrypt(const uint8_t* source, uint32_t length, uint8_t* destination, uint32_t* capacity) const {
    if (source == nullptr || destination == nullptr || capacity == nullptr || length < kBlockSize) return false;
    if (schedule_ == nullptr) return false;
    const uint32_t whole = length / kBlockSize * kBlockSize;
    if (*capacity < whole) return false;
    Kernels::aes_choice.Get().encrypt(*schedule_, source, destination, whole / kBlockSize);
    *capacity = whole;
    return true;
}

bool CAes::decrypt(const uint8_t* source, uint32_t length, uint8_t* destination, uint32_t* capacity) const {
    if (source == nullptr || destination == nullptr || capacity == nullptr) return false;
    if (schedule_ == nullptr) return false;
    const uint32_t whole = length / kBlockSize * kBlockSize;
    if (*capacity < whole) return false;
    Kernels::aes_choice.Get().decrypt(*schedule_, source, destination, whole / kBlockSize);
    *capacity = whole;
    return true;
}

}  // namespace Orvane::Muxora
