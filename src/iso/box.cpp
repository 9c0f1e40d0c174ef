#include "iso/box.h"

#include "core/messages.h"

namespace Orvane::Muxora {

uint32_t CBox::Write(CGrowBuffer* buffer) const {
    if (buffer == nullptr) return 0;
    const uint32_t header = WriteHeader(buffer);
    return header + WriteData(buffer);
}

uint32_t CBox::WriteHeader(CGrowBuffer* buffer) const {
    uint8_t area[kHeaderSize];
    ByteCursor out(area);
    out.BE32(size_).Bytes(type_, 4);
    buffer->Append(area, out.Size());
    return out.Size();
}

uint32_t CBox::WriteData(CGrowBuffer* /*buffer*/) const {
    return 0;
}

uint32_t CBox::Checked(uint32_t written, const char* complaint) const {
    if (written != dataSize_) Say("%s", complaint);
    return written;
}

uint32_t CBox::WriteChecked(CGrowBuffer* buffer, const ByteCursor& payload, const char* complaint) const {
    buffer->Append(payload.Data(), payload.Size());
    return Checked(payload.Size(), complaint);
}

}  // namespace Orvane::Muxora
