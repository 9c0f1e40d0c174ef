#include "muxora/file_bytes.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "muxora/command.h"

namespace Orvane::Muxora::Tools {

namespace {

// Closes what it opened.
class Descriptor {
  public:
    explicit Descriptor(const std::string& path) : own_(path != "-") {
        number_ = own_ ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO;
        if (number_ < 0) throw Failure("cannot open " + path + ": " + std::strerror(errno));
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

}  // namespace

FileBytes::FileBytes(const std::string& path) {
    const Descriptor file(path);
    struct stat status {};
    if (fstat(file.Number(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
        const auto size = static_cast<size_t>(status.st_size);
        void* const mapping = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.Number(), 0);
        if (mapping != MAP_FAILED) {
            mapping_ = mapping;
            bytes_ = {static_cast<const uint8_t*>(mapping), size};
            return;
        }
    }
    ReadAll(file.Number(), path);
    bytes_ = read_;
}

FileBytes::~FileBytes() {
    if (mapping_ != nullptr) munmap(mapping_, bytes_.size());
}

void FileBytes::ReadAll(int descriptor, const std::string& path) {
    constexpr size_t kPiece = size_t{1} << 20;
    for (size_t size = 0;;) {
        read_.resize(size + kPiece);
        const ssize_t count = read(descriptor, read_.data() + size, kPiece);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw Failure("cannot read " + path + ": " + std::strerror(errno));
        size += static_cast<size_t>(count);
        read_.resize(size);
        if (count == 0) return;
    }
}

}  // namespace Orvane::Muxora::Tools
