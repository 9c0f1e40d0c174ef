#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "media_input/media_input.h"

namespace Orvane::Muxora::Tools {

// What is wrong with a file that became shorter while it was read.
InputError BecameShorter(const std::string& path);

// A whole file in memory, page by page as it is looked at. What is written there stays out of the file. Where the file
// becomes shorter meanwhile, zeros are read.
class MappedFile {
  public:
    // Null where the file cannot be mapped, or too many are already.
    static std::unique_ptr<MappedFile> Map(int descriptor, size_t size);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    uint8_t* Data() const { return data_; }
    size_t Size() const { return size_; }
    // Were zeros read in the place of what was there?
    bool Shrunk() const;
    // These pages are about to be looked at.
    void Fetch(size_t from, size_t to) const;
    // The pages that lie wholly within are as in the file again, and their memory is free.
    void Forget(size_t from, size_t to) const;

  private:
    MappedFile(uint8_t* data, size_t size, size_t place) : data_(data), size_(size), place_(place) {}

    uint8_t* data_;
    size_t size_;
    size_t place_;  // among those that are watched
};

}  // namespace Orvane::Muxora::Tools
