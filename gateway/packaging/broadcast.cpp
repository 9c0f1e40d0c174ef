#include "packaging/broadcast.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <utility>

#include "bounds.h"
#include "packaging/rtp_packager.h"

namespace Orvane::Muxora::Gateway {

Outlet::Outlet(Worker& worker, bool first_header_stays, std::chrono::milliseconds collect)
    : worker_(worker), first_header_stays_(first_header_stays), collect_(collect), flush_(worker.Context()) {
}

std::chrono::milliseconds Outlet::Waits(const Block& block) const {
    std::chrono::milliseconds wait{0};
    if (receivers_.empty()) return wait;
    const size_t many = worker_.Watched();
    if (many > kCollectFrom) {
        wait = std::min(collect_, kCollectForEach * static_cast<std::chrono::milliseconds::rep>(many - kCollectFrom));
    }
    const bool sound_alone = block.audio && !block.video && block.kind == Block::Kind::kMedia && !block.key;
    return sound_alone ? std::max(wait, kSoundWaits) : wait;
}

void Outlet::Deliver(const BlockPtr& block) {
    collected_.push_back(block);
    collected_bytes_ += block->bytes.size();
    const auto wait = Waits(*block);
    if (wait == std::chrono::milliseconds(0) || collected_bytes_ >= kCollectBytes) return Flush();
    if (std::exchange(flush_waits_, true)) return;
    flush_.expires_after(wait);
    flush_.async_wait([weak = weak_from_this()](const boost::system::error_code& error) {
        const auto self = weak.lock();
        if (!error && self != nullptr) self->Flush();
    });
}

// For those who join from now on.
void Outlet::Keep(const BlockPtr& block) {
    if (block->kind == Block::Kind::kHeader) {
        if (first_header_stays_) {
            if (head_.size() > 1) head_.resize(1);
        } else if (!head_open_) {
            head_.clear();
        }
        head_open_ = true;
        head_.push_back(block);
        return;
    }
    head_open_ = false;
    if (block->key) {
        gop_.clear();
        gop_bytes_ = 0;
    }
    if (block->key || !gop_.empty()) {
        gop_.push_back(block);
        gop_bytes_ += block->bytes.size();
    }
    if (gop_.size() > kMaxGopFrames || gop_bytes_ > kMaxGopBytes) {
        gop_.clear();
        gop_bytes_ = 0;
    }
}

void Outlet::Flush() {
    if (std::exchange(flush_waits_, false)) flush_.cancel();
    for (const BlockPtr& block : collected_)
        Keep(block);
    // A receiver may leave while it is told.
    for (auto at = receivers_.begin(); at != receivers_.end();) {
        const auto receiver = *at++;
        receiver->Take(collected_);
    }
    collected_.clear();
    collected_bytes_ = 0;
}

void Outlet::End() {
    Flush();
    ended_ = true;
    for (const auto& receiver : std::exchange(receivers_, {}))
        receiver->End();
}

void Outlet::Join(const std::shared_ptr<BlockReceiver>& receiver) {
    if (ended_) {
        receiver->End();
        return;
    }
    size_t bytes = gop_bytes_;
    for (const BlockPtr& block : head_)
        bytes += block->bytes.size();
    std::vector<BlockPtr> first = head_;
    // A group that would run over at once is no beginning: the next one is.
    if (bytes <= receiver->Room()) first.insert(first.end(), gop_.begin(), gop_.end());
    receivers_.insert(receiver);
    receiver->Take(first);
}

void Outlet::Leave(const std::shared_ptr<BlockReceiver>& receiver) {
    receivers_.erase(receiver);
}

std::shared_ptr<Broadcast> Broadcast::Make(Workers& workers, const StreamPtr& stream, const Form& form,
                                           std::chrono::milliseconds collect) {
    std::shared_ptr<Broadcast> made(new Broadcast(workers, stream, form, collect));
    if (!made->packager_->Good()) return nullptr;
    boost::asio::post(stream->Home().Context(), [made] { made->stream_->Attach(made); });
    return made;
}

Broadcast::Broadcast(Workers& workers, StreamPtr stream, const Form& form, std::chrono::milliseconds collect)
    : workers_(workers), stream_(std::move(stream)), form_(form) {
    for (size_t i = 0; i < workers_.Count(); ++i)
        outlets_.push_back(std::make_shared<Outlet>(workers_.At(i), form.first_header_stays, collect));
    const auto sink = [this](const BlockPtr& block) { Publish(block); };
    if (form.format == MX_FORMAT_RTP) {
        packager_ = std::make_unique<RtpPackager>(stream_->HeaderInfo(), sink);
        return;
    }
    PackagerSettings settings;
    settings.format = form.format;
    settings.fragment_ms = form.fragment_ms;
    settings.stored = true;
    settings.header = stream_->HeaderInfo();
    // No room for an index that a stream without end never gets.
    if (form.format == MX_FORMAT_XFLV) settings.header.reserved_gap = 1;
    packager_ = std::make_unique<Packager>(settings, sink);
}

void Broadcast::OnFrame(const FramePtr& frame) {
    packager_->Give(*frame);
}

void Broadcast::OnEnd() {
    for (size_t i = 0; i < workers_.Count(); ++i) {
        boost::asio::post(workers_.At(i).Context(), [self = shared_from_this(), i] { self->outlets_[i]->End(); });
    }
}

void Broadcast::Publish(const BlockPtr& block) {
    const auto self = weak_from_this().lock();
    for (size_t i = 0; i < workers_.Count(); ++i) {
        // Nobody listens yet to what the constructor writes.
        if (self == nullptr || &workers_.At(i) == &stream_->Home()) {
            outlets_[i]->Deliver(block);
        } else {
            boost::asio::post(workers_.At(i).Context(), [self, i, block] { self->outlets_[i]->Deliver(block); });
        }
    }
}

void Broadcast::Join(Worker& worker, const std::shared_ptr<BlockReceiver>& receiver) {
    ++clients_;
    outlets_[worker.Index()]->Join(receiver);
}

void Broadcast::Leave(Worker& worker, const std::shared_ptr<BlockReceiver>& receiver) {
    --clients_;
    outlets_[worker.Index()]->Leave(receiver);
}

}  // namespace Orvane::Muxora::Gateway
