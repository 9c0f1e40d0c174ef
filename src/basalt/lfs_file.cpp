#include "basalt/lfs_file.h"

#include <limits>

#include "basalt/native_file.h"

namespace Basalt {

namespace {

constexpr int64_t kLastPosition = std::numeric_limits<int64_t>::max();

}  // namespace

CLfsFile::CLfsFile() = default;

CLfsFile::~CLfsFile() {
    close();
}

bool CLfsFile::open(const char* path, uint32_t mode) {
    close();
    if (path == nullptr || (mode & LFS_WRITE) == 0) return false;
    file_ = NativeFile::Open(path, (mode & LFS_CREATE) != 0);
    if (!isOpen()) return false;
    positioned_ = NativeFile::HasPositions(file_);
    position_ = 0;
    streamed_ = 0;
    return true;
}

bool CLfsFile::close() {
    if (!isOpen()) return true;
    const bool good = NativeFile::Close(file_);
    file_ = NativeFile::kClosed;
    return good;
}

bool CLfsFile::isOpen() const {
    return file_ != NativeFile::kClosed;
}

bool CLfsFile::seek(int64_t offset, uint32_t origin) {
    if (!isOpen()) return false;
    if (origin != LFS_FROM_START && origin != LFS_FROM_CURRENT) return false;
    const int64_t base = origin == LFS_FROM_START ? 0 : position_;
    if (offset < -base || offset > kLastPosition - base) return false;
    position_ = base + offset;
    return true;
}

size_t CLfsFile::write(const void* data, size_t length) {
    if (!isOpen() || data == nullptr || length > static_cast<uint64_t>(kLastPosition - position_)) return 0;
    const auto* const bytes = static_cast<const uint8_t*>(data);
    size_t written = 0;
    if (positioned_) {
        written = NativeFile::WriteAt(file_, bytes, length, position_);
    } else if (position_ == streamed_) {
        written = NativeFile::WriteNext(file_, bytes, length);
        streamed_ += static_cast<int64_t>(written);
    }
    position_ += static_cast<int64_t>(written);
    return written;
}

}  // namespace Basalt
