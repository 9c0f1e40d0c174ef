#include "iso/file_boxes.h"

#include <cstring>

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kBrandSize = 4;
constexpr uint32_t kMinorVersion = 512;
constexpr uint32_t kSizeIsLarge = 1;  // size: the true one is in largesize

}  // namespace

CBox_ftyp::CBox_ftyp(BoxVariant variant) : CBox("ftyp"), variant_(variant) {
    SetDataSize((IsQuickTime(variant) ? 3 : 6) * kBrandSize);
}

// ISO/IEC 14496-12 4.3.2
uint32_t CBox_ftyp::WriteData(CGrowBuffer* buffer) const {
    uint8_t area[6 * kBrandSize];
    ByteCursor out(area);
    if (IsQuickTime(variant_)) {
        out.Text("qt  ")          // major_brand
            .BE32(kMinorVersion)  // minor_version
            .Text("qt  ");        // compatible_brands
    } else {
        out.Text("isom").BE32(kMinorVersion).Text("isom").Text("iso2").Text("avc1").Text("mp41");
    }
    return WriteChecked(buffer, out, "CBox_ftyp::WriteData error!\n");
}

// ISO/IEC 14496-12 8.1.2
uint32_t CBox_free::WriteData(CGrowBuffer* buffer) const {
    if (DataSize() == 0) return 0;
    uint8_t* const gap = buffer->Extend(DataSize());
    if (gap == nullptr) return 0;
    std::memset(gap, 0, DataSize());
    return DataSize();
}

void CBox_mdat::Update(uint32_t length) {
    if (HasLargeOffsets(variant_)) {
        largesize_ += length;
    } else if (HasMdatPerSample(variant_)) {
        SetDataSize(length);
    } else {
        // Readers rely on this: the size wraps at 4 GiB, and nothing warns.
        SetDataSize(DataSize() + length);
    }
}

// ISO/IEC 14496-12 8.1.1, 4.2: size, type, largesize
uint32_t CBox_mdat::WriteHeader(CGrowBuffer* buffer) const {
    if (!HasLargeOffsets(variant_)) return CBox::WriteHeader(buffer);
    uint8_t area[kHeaderSize];
    ByteCursor out(area);
    out.BE32(kSizeIsLarge).Text("mdat");
    buffer->Append(area, out.Size());
    return out.Size();
}

uint32_t CBox_mdat::WriteData(CGrowBuffer* buffer) const {
    if (!HasLargeOffsets(variant_)) return 0;
    uint8_t area[sizeof largesize_];
    ByteCursor out(area);
    out.BE64(largesize_);
    buffer->Append(area, out.Size());
    return out.Size();
}

}  // namespace Orvane::Muxora
