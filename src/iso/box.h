#pragma once

#include <cstdint>

#include "core/byte_writer.h"
#include "core/grow_buffer.h"

namespace Orvane::Muxora {

// A box of an ISO base media file (ISO/IEC 14496-12 4.2): a 32-bit size, a type, a payload. Boxes form a tree; a parent
// owns its children as members. Serialising changes nothing, so it may be done at any time and as often as wanted.
//
// Sizes are always current: whatever changes a box's payload tells it the new payload size, and each parent on the way
// up takes its own size again from its children. A sample so costs the depth of the tree, not its breadth.
class CBox {
  public:
    virtual ~CBox() = default;
    CBox(const CBox&) = delete;
    CBox& operator=(const CBox&) = delete;

    // The whole box, header included, as the header states it.
    uint32_t GetSize() const { return size_; }
    // Appends the box. Returns the number of bytes written; 0 for a null buffer.
    uint32_t Write(CGrowBuffer* buffer) const;

  protected:
    static constexpr uint32_t kHeaderSize = 8;

    explicit CBox(const char (&type)[5]) : type_(type) {}

    // size (32), boxtype (4 characters). Returns the number of bytes.
    virtual uint32_t WriteHeader(CGrowBuffer* buffer) const;
    // The payload. Returns the number of bytes.
    virtual uint32_t WriteData(CGrowBuffer* buffer) const;

    // Takes a new payload size over into the header.
    // Readers rely on this: a payload size of 0 leaves the size in the header as it was.
    void SetDataSize(uint32_t size) {
        dataSize_ = size;
        if (size != 0) size_ = size + kHeaderSize;
    }
    uint32_t DataSize() const { return dataSize_; }

    // For the end of WriteData: prints `complaint` if what was written is not what the header says, and writes on.
    uint32_t Checked(uint32_t written, const char* complaint) const;
    // The same for a payload composed in one area.
    uint32_t WriteChecked(CGrowBuffer* buffer, const ByteCursor& payload, const char* complaint) const;

  private:
    const char* type_;
    uint32_t dataSize_ = 0;
    uint32_t size_ = kHeaderSize;
};

// version (8) and flags (24), with which a full box begins (ISO/IEC 14496-12 4.2).
constexpr uint32_t kFullBoxHead = 4;

}  // namespace Orvane::Muxora
