#include "exact/exact_package.h"

#include <cstddef>
#include <new>

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
    timed_ = false;
    const uint32_t result = Pack(*frame);
    if (result == MX_NO_RESOURCES) [[unlikely]] {
        if (timed_) clock_.Undo();
        Forget(frame->frame_type == MX_FRAME_VIDEO);
    }
    return result;
}

uint32_t CExactPackage::Pack(const MXFrameInfo& frame) {
    try {
        return frame.frame_type == MX_FRAME_VIDEO ? PackVideo(frame) : PackChannel(frame);
    } catch (const std::bad_alloc&) {
        return MX_NO_RESOURCES;
    }
}

uint32_t CExactPackage::PackChannel(const MXFrameInfo& frame) {
    if (has_channel_ && frame.ma_cur_channel != channel_) return MX_OK;
    const uint32_t result = PackAudio(frame, MeasureAudio(frame));
    if (result != MX_NO_RESOURCES) {
        has_channel_ = true;
        channel_ = frame.ma_cur_channel;
    }
    return result;
}

uint32_t CExactPackage::createTailer(const void* /*info*/, uint32_t /*unused*/) {
    if (!IsOpen()) return MX_FAILED;
    uint32_t result = MX_NO_RESOURCES;
    try {
        result = Finish();
    } catch (const std::bad_alloc&) {
        result = MX_NO_RESOURCES;
    }
    if (result != MX_NO_RESOURCES) state_ = State::kFinished;
    return result;
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

}  // namespace Orvane::Muxora
