#include "mpeg2/ts_packet.h"

#include <algorithm>
#include <limits>

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kBufferSize = 0x300000;

}  // namespace

CTsPacket::CTsPacket(uint32_t format, const MXCreateParam* param)
    : CPackage(format, param), buffer_(AllocateLarge(kBufferSize)) {
}

uint32_t CTsPacket::init() {
    if (format() == MX_FORMAT_TS) packaging_ = std::make_unique<CStdTSPackage>();
    return packaging_ != nullptr ? MX_OK : MX_NO_RESOURCES;
}

uint32_t CTsPacket::createHeader(MXHeaderInfo* info, uint32_t /*unused*/) {
    if (packaging_ == nullptr) return MX_FAILED;
    packaging_->setHeader(info);
    return MX_OK;
}

uint32_t CTsPacket::inputFrameEx(MXFrameInfo* frame, Basalt::CPacket& packet) {
    const size_t room = packet.size() != 0 ? packet.size() : packet.capacity();
    return Pack(frame, packet.getBuffer(),
                static_cast<uint32_t>(std::min<size_t>(room, std::numeric_limits<uint32_t>::max())));
}

uint32_t CTsPacket::inputFrame(MXFrameInfo* frame, uint32_t /*reserved*/) {
    return Pack(frame, buffer_.get(), kBufferSize);
}

uint32_t CTsPacket::createTailer(const void* /*info*/, uint32_t /*unused*/) {
    return MX_OK;
}

bool CTsPacket::checkFrame(const MXFrameInfo* frame) const {
    return packaging_ != nullptr && packaging_->checkFrame(frame);
}

// The tables are constants: a caller may ask for them before init.
uint32_t CTsPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return packaging_ != nullptr ? packaging_->getEncodeCapacity(type, table, count)
                                 : CStdTSPackage().getEncodeCapacity(type, table, count);
}

uint32_t CTsPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return packaging_ != nullptr ? packaging_->getCodecCapacity(type, table, count)
                                 : CStdTSPackage().getCodecCapacity(type, table, count);
}

uint32_t CTsPacket::Pack(const MXFrameInfo* frame, uint8_t* out, uint32_t size) {
    // The work buffer must be there even when the bytes go elsewhere.
    if (!HasData(frame) || buffer_ == nullptr || packaging_ == nullptr) return MX_FAILED;
    if (!checkFrame(frame)) return MX_FRAME_REFUSED;
    const int64_t written = packaging_->package(out, size, frame);
    if (written < 1) return MX_FRAME_REFUSED;
    offset_ += EmitAt(out, static_cast<uint32_t>(written), offset_);
    return MX_OK;
}

}  // namespace Orvane::Muxora
