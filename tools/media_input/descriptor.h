// An open file, which closes what it opened.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "media_input/media_input.h"

namespace Orvane::Muxora::Tools {

class Descriptor {
  public:
    // For reading; - is the standard input. Throws InputError.
    explicit Descriptor(const std::string& path) : own_(path != "-") {
        number_ = own_ ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO;
        if (number_ < 0) throw InputError("cannot open " + path + ": " + std::strerror(errno));
    }
    ~Descriptor() {
        if (own_) close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Number() const { return number_; }

  private:
    bool own_;
    int number_;
};

}  // namespace Orvane::Muxora::Tools
