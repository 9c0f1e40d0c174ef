#include "exact/exact_package.h"

#include <cstddef>

namespace Orvane::Muxora {

static_assert(sizeof(MXExactBlock) == 64);
static_assert(offsetof(MXExactBlock, kind) == 32);
static_assert(offsetof(MXExactBlock, dts) == 48);
static_assert(offsetof(MXExactBlock, duration) == 56);
static_assert(sizeof(MXFragmentParam) == 24);

uint32_t CExactPackage::init() {
    if (state_ == State::kFinished) return MX_FAILED;
    state_ = State::kOpen;
    return MX_OK;
}

uint32_t CExactPackage::uninit() {
    state_ = State::kFinished;
    return MX_OK;
}

uint32_t CExactPackage::createHeader(MXHeaderInfo* /*info*/, uint32_t /*unused*/) {
    return IsOpen() ? MX_OK : MX_FAILED;
}

uint32_t CExactPackage::inputFrame(MXFrameInfo* frame, uint32_t /*reserved*/) {
    if (!HasData(frame) || !IsOpen()) return MX_FAILED;
    if (!checkFrame(frame)) return MX_FRAME_REFUSED;
    if (frame->frame_type == MX_FRAME_VIDEO) return PackVideo(*frame);
    if (IsOtherChannel(*frame)) return MX_OK;
    return PackAudio(*frame, MeasureAudio(*frame));
}

uint32_t CExactPackage::createTailer(const void* /*info*/, uint32_t /*unused*/) {
    if (!IsOpen()) return MX_FAILED;
    state_ = State::kFinished;
    return Finish();
}

uint32_t CExactPackage::SetFragmentParam(const MXFragmentParam& /*param*/) {
    return MX_OK;
}

uint32_t CExactPackage::EmitExact(const void* data, uint32_t length, const BlockNote& note) {
    return Emit(data, length, MX_SEEK_NEXT, 0, note);
}

uint32_t CExactPackage::EmitExactAt(const void* data, uint32_t length, uint64_t position, const BlockNote& note) {
    return Emit(data, length, MX_SEEK_ABSOLUTE, position, note);
}

uint32_t CExactPackage::Emit(const void* data, uint32_t length, uint32_t seek_type, uint64_t position,
                             const BlockNote& note) {
    MXExactBlock exact{};
    exact.block.size = sizeof exact;
    exact.kind = note.kind;
    exact.flags = note.flags;
    exact.time_scale = note.time_scale;
    exact.dts = note.dts;
    exact.duration = note.duration;
    return Output(exact.block, data, length, seek_type, position);
}

bool CExactPackage::IsOtherChannel(const MXFrameInfo& frame) {
    if (!has_channel_) channel_ = frame.ma_cur_channel;
    has_channel_ = true;
    return frame.ma_cur_channel != channel_;
}

}  // namespace Orvane::Muxora
