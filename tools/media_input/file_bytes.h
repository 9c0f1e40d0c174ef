#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "media_input/mapped_file.h"

namespace Orvane::Muxora::Tools {

// All bytes of a file: mapped, so that the memory does not grow with the file; read where it can't be mapped (a pipe).
class FileBytes {
  public:
    // `path` may be - for the standard input, of which `head` has been read before. Throws InputError.
    explicit FileBytes(const std::string& path, std::vector<uint8_t> head = {});

    std::span<const uint8_t> All() const { return bytes_; }
    // Throws InputError if the file became shorter meanwhile: what was beyond its new end read as zeros.
    void CheckWhole(const std::string& path) const;

  private:
    void ReadAll(int descriptor, const std::string& path);

    std::span<const uint8_t> bytes_;
    std::unique_ptr<MappedFile> mapping_;
    std::vector<uint8_t> read_;
};

}  // namespace Orvane::Muxora::Tools
