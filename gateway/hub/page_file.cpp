#include "hub/page_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

namespace Orvane::Muxora::Gateway {

std::shared_ptr<PageFile> PageFile::Make(size_t size) {
    const int descriptor = memfd_create("muxora", MFD_CLOEXEC);
    if (descriptor < 0) return nullptr;
    void* data = MAP_FAILED;
    if (ftruncate(descriptor, static_cast<off_t>(size)) == 0) {
        data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    }
    if (data == MAP_FAILED) {
        close(descriptor);
        return nullptr;
    }
    return std::shared_ptr<PageFile>(new PageFile(descriptor, static_cast<uint8_t*>(data), size));
}

// Pages that are on their way to a client stay with the system until they are there.
PageFile::~PageFile() {
    munmap(data_, size_);
    close(descriptor_);
}

void PageFile::Append(const void* bytes, size_t size) {
    if (size != 0) std::memcpy(data_ + used_, bytes, size);
    used_ += size;
}

}  // namespace Orvane::Muxora::Gateway
