// Memory that the system sends from without copying it (sendfile): written once from front to back, and never changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Orvane::Muxora::Gateway {

class PageFile {
  public:
    // Null when the system has none.
    static std::shared_ptr<PageFile> Make(size_t size);
    ~PageFile();
    PageFile(const PageFile&) = delete;
    PageFile& operator=(const PageFile&) = delete;

    int Descriptor() const { return descriptor_; }
    size_t Used() const { return used_; }
    size_t Room() const { return size_ - used_; }
    const uint8_t* Data() const { return data_; }
    // Behind what is used; Room() is enough.
    void Append(const void* bytes, size_t size);

  private:
    PageFile(int descriptor, uint8_t* data, size_t size) : descriptor_(descriptor), data_(data), size_(size) {}

    int descriptor_;
    uint8_t* data_;
    size_t size_;
    size_t used_ = 0;
};

}  // namespace Orvane::Muxora::Gateway
