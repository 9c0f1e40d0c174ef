#include "media_input/file_bytes.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "media_input/descriptor.h"

namespace Orvane::Muxora::Tools {

void FileBytes::CheckWhole(const std::string& path) const {
    if (mapping_ && mapping_->Shrunk()) throw BecameShorter(path);
}

FileBytes::FileBytes(const std::string& path, std::vector<uint8_t> head) : read_(std::move(head)) {
    const Descriptor file(path);
    struct stat status {};
    if (read_.empty() && fstat(file.Number(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
        mapping_ = MappedFile::Map(file.Number(), static_cast<size_t>(status.st_size));
        if (mapping_) {
            bytes_ = {mapping_->Data(), mapping_->Size()};
            return;
        }
    }
    ReadAll(file.Number(), path);
    bytes_ = read_;
}

void FileBytes::ReadAll(int descriptor, const std::string& path) {
    constexpr size_t kPiece = size_t{1} << 20;
    for (size_t size = read_.size();;) {
        read_.resize(size + kPiece);
        const ssize_t count = read(descriptor, read_.data() + size, kPiece);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw InputError("cannot read " + path + ": " + std::strerror(errno));
        size += static_cast<size_t>(count);
        read_.resize(size);
        if (count == 0) return;
    }
}

}  // namespace Orvane::Muxora::Tools
