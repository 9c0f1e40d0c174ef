#include "packaging/packager.h"

#include <utility>

namespace Orvane::Muxora::Gateway {

Packager::Packager(const PackagerSettings& settings, Sink sink) : sink_(std::move(sink)) {
    if (settings.stored) store_.emplace();
    MXCreateParam param{};
    param.user = this;
    param.output = Output;
    handle_.reset(MX_CreateHandle(settings.format, &param));
    if (handle_ == nullptr) return;
    if (settings.chunks || settings.fragment_ms != 0 || settings.tracks != MX_TRACKS_BOTH || settings.boxes != 0) {
        MXFragmentParam fragment{};
        fragment.size = sizeof fragment;
        fragment.mode = settings.chunks ? MX_FRAGMENT_CHUNK : MX_FRAGMENT_GOP;
        fragment.duration_ms = settings.fragment_ms;
        fragment.tracks = settings.tracks;
        fragment.boxes = settings.boxes;
        if (MXSetFragmentParam(handle_.get(), &fragment) != MX_OK) handle_.reset();
    }
    MXHeaderInfo header = settings.header;
    if (handle_ != nullptr && MX_CreateHeader(handle_.get(), &header) != MX_OK) handle_.reset();
}

bool Packager::Give(const Frame& frame) {
    // The formats that the gateway uses read the frame in place and leave it as it is.
    MXFrameInfo info = const_cast<Tools::MediaFrame&>(frame.media).Record();
    MXSetFrameTimes(&info, frame.time_scale, frame.dts, frame.pts, frame.duration);
    now_ = &frame;
    const uint32_t result = MX_InputFrame(handle_.get(), &info);
    now_ = nullptr;
    if (result != MX_OK) ++refused_;
    return result == MX_OK;
}

void Packager::Finish() {
    MX_CreateTailer(handle_.get(), nullptr);
}

int32_t Packager::Output(const MXOutputBlock* block, void* user) {
    static_cast<Packager*>(user)->Take(*block);
    return 0;
}

void Packager::Take(const MXOutputBlock& block) {
    auto made = std::make_shared<Block>();
    const auto* bytes = static_cast<const uint8_t*>(block.data);
    if (store_) {
        store_->Put({bytes, block.length}, *made);
    } else {
        made->storage.assign(bytes, bytes + block.length);
        made->bytes = made->storage;
    }
    if (now_ != nullptr) made->arrival_us = now_->arrival_us;
    if (block.size >= sizeof(MXExactBlock)) {
        const auto& exact = reinterpret_cast<const MXExactBlock&>(block);
        // Indexes and patches are for files.
        if (exact.kind != MX_BLOCK_HEADER && exact.kind != MX_BLOCK_MEDIA) return;
        made->kind = exact.kind == MX_BLOCK_HEADER ? Block::Kind::kHeader : Block::Kind::kMedia;
        made->key = (exact.flags & MX_BLOCK_KEY) != 0;
        made->video = (exact.flags & MX_BLOCK_VIDEO) != 0;
        made->audio = (exact.flags & MX_BLOCK_AUDIO) != 0;
        made->time_scale = exact.time_scale != 0 ? exact.time_scale : 1000;
        made->dts = exact.dts;
        made->duration = exact.duration;
    } else {
        made->kind = now_ == nullptr ? Block::Kind::kHeader : Block::Kind::kMedia;
        if (now_ != nullptr) {
            made->key = now_->media.IsKey();
            made->video = now_->IsVideo();
            made->audio = !now_->IsVideo();
            made->time_scale = now_->time_scale;
            made->dts = now_->dts;
            made->duration = now_->duration;
        }
    }
    sink_(std::move(made));
}

}  // namespace Orvane::Muxora::Gateway
