#include "mpeg2/ps_packet.h"

#include "mpeg2/gays_ps_packet.h"
#include "mpeg2/gd_ps_packet.h"
#include "mpeg2/ov_ps_packet.h"
#include "mpeg2/stds_ps_packet.h"

namespace Orvane::Muxora {

namespace {

constexpr int32_t kFirstCapacity = 4096;

std::unique_ptr<CPSPackaging> MakePackaging(uint32_t format) {
    switch (format) {
        case MX_FORMAT_PS:
            return std::make_unique<CStdsPsPacket>();
        case MX_FORMAT_PS_OV:
            return std::make_unique<COvPsPacket>();
        case MX_FORMAT_PS_GAYS:
            return std::make_unique<CGaysPsPacket>();
        case MX_FORMAT_PS_GD:
            return std::make_unique<CGDPsPacket>();
        default:
            return nullptr;
    }
}

}  // namespace

CPsPacket::CPsPacket(uint32_t format, const MXCreateParam* param)
    : CPackage(format, param), packaging_(MakePackaging(format)) {
    buffer_.Create(kFirstCapacity);
}

uint32_t CPsPacket::createHeader(MXHeaderInfo* /*info*/, uint32_t /*unused*/) {
    return MX_OK;
}

uint32_t CPsPacket::inputFrameEx(MXFrameInfo* frame, Basalt::CPacket& /*packet*/) {
    return inputFrame(frame, 0);
}

uint32_t CPsPacket::inputFrame(MXFrameInfo* frame, uint32_t /*reserved*/) {
    if (!HasData(frame)) return MX_FAILED;
    buffer_.Reset();
    if (!checkFrame(frame)) return MX_FRAME_REFUSED;
    if (packaging_->package(frame, &buffer_) <= 0) return MX_FRAME_REFUSED;
    offset_ += EmitAt(buffer_.Data(), buffer_.Size(), offset_);
    return MX_OK;
}

uint32_t CPsPacket::createTailer(const void* /*info*/, uint32_t /*unused*/) {
    return MX_OK;
}

uint32_t CPsPacket::getBackup(MXOutputBlock* /*block*/) {
    return 0;
}

bool CPsPacket::checkFrame(const MXFrameInfo* frame) const {
    return packaging_ != nullptr && packaging_->checkFrame(frame);
}

uint32_t CPsPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return packaging_ != nullptr ? packaging_->getEncodeCapacity(type, table, count) : uint32_t{MX_FAILED};
}

uint32_t CPsPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return packaging_ != nullptr ? packaging_->getCodecCapacity(type, table, count) : uint32_t{MX_FAILED};
}

}  // namespace Orvane::Muxora
