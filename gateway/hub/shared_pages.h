// Memory that sockets take without copying it (PageLane): written once from front to back, and never changed. Pages
// that are on their way to a client stay with the system until they are there, also when this is gone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Orvane::Muxora::Gateway {

class SharedPages {
  public:
    // Null when the system has none.
    static std::shared_ptr<SharedPages> Make(size_t size);
    ~SharedPages();
    SharedPages(const SharedPages&) = delete;
    SharedPages& operator=(const SharedPages&) = delete;

    size_t Used() const { return used_; }
    size_t Room() const { return size_ - used_; }
    const uint8_t* Data() const { return data_; }
    // Behind what is used; Room() is enough.
    void Append(const void* bytes, size_t size);

  private:
    SharedPages(uint8_t* data, size_t size) : data_(data), size_(size) {}

    uint8_t* data_;
    size_t size_;
    size_t used_ = 0;
};

}  // namespace Orvane::Muxora::Gateway
