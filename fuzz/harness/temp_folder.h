// A folder in memory for targets whose code opens files by name.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "harness/input.h"

namespace fuzz {

class TempFolder {
  public:
    TempFolder() {
        const std::string parent = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        path_ = parent + "/muxora-fuzz-XXXXXX";
        Require(mkdtemp(path_.data()) != nullptr);
    }
    std::string Write(const std::string& name, const uint8_t* data, size_t size) const {
        std::string path = path_ + "/" + name;
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        return path;
    }
    std::string Path(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

}  // namespace fuzz
