// The bytes of one frame: of its own, taken over from whoever read them, or lent by a mapped file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

namespace Orvane::Muxora::Tools {

// Moved without a copy; a copy has bytes of its own. They may be changed.
class FrameBytes {
  public:
    using Owner = std::unique_ptr<void, void (*)(void*)>;

    FrameBytes() = default;
    // Not filled.
    explicit FrameBytes(size_t size)
        : owner_(new uint8_t[size], [](void* bytes) { delete[] static_cast<uint8_t*>(bytes); }),
          data_(static_cast<uint8_t*>(owner_.get())),
          size_(size) {}
    // Bytes that live as long as `owner`; without one, as long as the input that they were read from.
    FrameBytes(uint8_t* data, size_t size, Owner owner = Nobody())
        : owner_(std::move(owner)), data_(data), size_(size) {}
    FrameBytes(const FrameBytes& other) : FrameBytes(other.size_) {
        if (size_ != 0) std::memcpy(data_, other.data_, size_);
    }
    FrameBytes(FrameBytes&& other) noexcept { Swap(other); }
    FrameBytes& operator=(FrameBytes other) noexcept {
        Swap(other);
        return *this;
    }
    ~FrameBytes() = default;

    uint8_t* data() { return data_; }
    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    uint8_t* begin() { return data_; }
    uint8_t* end() { return data_ + size_; }
    const uint8_t* begin() const { return data_; }
    const uint8_t* end() const { return data_ + size_; }
    uint8_t& operator[](size_t at) { return data_[at]; }
    uint8_t operator[](size_t at) const { return data_[at]; }

  private:
    static Owner Nobody() {
        return {nullptr, [](void* /*bytes*/) {}};
    }
    void Swap(FrameBytes& other) noexcept {
        std::swap(owner_, other.owner_);
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
    }

    Owner owner_ = Nobody();
    uint8_t* data_ = nullptr;
    size_t size_ = 0;
};

}  // namespace Orvane::Muxora::Tools
