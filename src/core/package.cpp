#include "core/package.h"

#include <cstdlib>

namespace Orvane::Muxora {

namespace {

void* DefaultAlloc(int32_t size) {
    return size < 0 ? nullptr : std::malloc(static_cast<size_t>(size));
}

void DefaultFree(void* buffer, uint32_t /*size*/) {
    std::free(buffer);
}

int32_t DropOutput(const MXOutputBlock* /*block*/, void* /*user*/) {
    return 0;
}

}  // namespace

CPackage::CPackage(uint32_t format, const MXCreateParam* param)
    : format_(format), alloc_(DefaultAlloc), free_(DefaultFree), output_(DropOutput) {
    if (param == nullptr) return;
    if (param->user != nullptr) user_ = param->user;
    if (param->alloc != nullptr) alloc_ = param->alloc;
    if (param->free != nullptr) free_ = param->free;
    if (param->output != nullptr) output_ = param->output;
}

CPackage::~CPackage() = default;

uint32_t CPackage::setCallback(MXOutputFunction output, void* user) {
    output_ = output != nullptr ? output : DropOutput;
    user_ = user;
    return MX_OK;
}

uint32_t CPackage::inputFrameEx(MXFrameInfo* /*frame*/, Basalt::CPacket& /*packet*/) {
    return MX_OK;
}

uint32_t CPackage::setExtData(const void* /*data*/, uint32_t /*length*/) {
    return MX_OK;
}

uint32_t CPackage::getExtData(const void** /*data*/, uint32_t* /*length*/) {
    return MX_OK;
}

uint32_t CPackage::getBackup(MXOutputBlock* block) {
    if (block != nullptr) {
        block->data = nullptr;
        block->length = 0;
        block->seek_type = MX_SEEK_ABSOLUTE;
        block->offset32 = 0;
    }
    return 0;
}

uint32_t CPackage::setEncryptType(uint32_t /*type*/, const void* /*key*/, uint32_t /*key_length*/) {
    return MX_OK;
}

uint32_t CPackage::EmitAt(const void* data, uint32_t length, uint64_t position) {
    MXOutputBlock block{};
    block.size = sizeof block;
    return Output(block, data, length, MX_SEEK_ABSOLUTE, position);
}

uint32_t CPackage::EmitNext(const void* data, uint32_t length) {
    MXOutputBlock block{};
    block.size = sizeof block;
    return Output(block, data, length, MX_SEEK_NEXT, 0);
}

uint32_t CPackage::Output(MXOutputBlock& block, const void* data, uint32_t length, uint32_t seek_type,
                          uint64_t position) {
    block.data = data;
    block.length = length;
    block.seek_type = seek_type;
    block.offset32 = static_cast<uint32_t>(position);
    block.offset = static_cast<int64_t>(position);
    try {
        output_(&block, user_);
    } catch (...) {
        // The caller's own exception must not pass through a packager that is half done with its frame.
        output_threw_ = true;
    }
    return block.length;
}

CPackage::LargeBuffer CPackage::AllocateLarge(uint32_t size) const {
    void* buffer = nullptr;
    try {
        buffer = alloc_(static_cast<int32_t>(size));
    } catch (...) {
        buffer = nullptr;
    }
    return {static_cast<uint8_t*>(buffer), LargeBufferRelease{free_, size}};
}

void CPackage::LargeBufferRelease::operator()(uint8_t* buffer) const noexcept {
    try {
        free(buffer, size);
    } catch (...) {
        // The buffer is the allocator's; there is nothing more to be done about it.
        return;
    }
}

uint32_t CPackage::Capacity(uint32_t type, std::span<const MXCapacityEntry> video,
                            std::span<const MXCapacityEntry> audio, const void** table, uint32_t* count) {
    if (table == nullptr || count == nullptr) return MX_FAILED;
    if (type != MX_CAPACITY_VIDEO && type != MX_CAPACITY_AUDIO) return MX_FAILED;
    const auto& entries = type == MX_CAPACITY_VIDEO ? video : audio;
    *count = static_cast<uint32_t>(entries.size());
    // A format without video leaves the caller's pointer alone.
    if (!entries.empty()) *table = entries.data();
    return MX_OK;
}

}  // namespace Orvane::Muxora
