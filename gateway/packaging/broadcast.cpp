#include "packaging/broadcast.h"

#include <algorithm>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <utility>

#include "bounds.h"
#include "packaging/rtp_packager.h"

namespace Orvane::Muxora::Gateway {

Outlet::Outlet(Worker& worker, bool first_header_stays, std::chrono::milliseconds collect)
    : worker_(worker), first_header_stays_(first_header_stays), collect_(collect), look_(worker.Context()) {
}

void Outlet::Deliver(const BlockPtr& block) {
    {
        const std::lock_guard lock(mutex_);
        delivered_.push_back(block);
        delivered_bytes_ += block->bytes.size();
        const bool many = delivered_bytes_ >= kCollectBytes || delivered_.size() >= kMaxGopFrames;
        if (told_ || (looks_by_itself_ && !many)) return;
        told_ = true;
    }
    boost::asio::dispatch(worker_.Context(), [self = shared_from_this()] { self->Look(); });
}

void Outlet::LooksByItself(bool does) {
    const std::lock_guard lock(mutex_);
    looks_by_itself_ = does;
    // What came since the last look, and nobody was told of.
    if (does || told_ || delivered_.empty()) return;
    told_ = true;
    boost::asio::post(worker_.Context(), [self = shared_from_this()] { self->Look(); });
}

void Outlet::Fetch() {
    const std::lock_guard lock(mutex_);
    told_ = false;
    collected_bytes_ += std::exchange(delivered_bytes_, 0);
    collected_.insert(collected_.end(), delivered_.begin(), delivered_.end());
    delivered_.clear();
}

// 0: everything goes out as it comes.
std::chrono::milliseconds Outlet::Collects() const {
    const size_t many = worker_.Watched();
    if (many <= kCollectFrom) return std::chrono::milliseconds(0);
    return std::min(collect_, kCollectForEach * static_cast<std::chrono::milliseconds::rep>(many - kCollectFrom));
}

// How long what was collected may wait.
std::chrono::milliseconds Outlet::Waits() const {
    if (receivers_.empty() || collected_bytes_ >= kCollectBytes) return std::chrono::milliseconds(0);
    const bool sound_alone = std::all_of(collected_.begin(), collected_.end(), [](const BlockPtr& block) {
        return block->audio && !block->video && block->kind == Block::Kind::kMedia && !block->key;
    });
    return sound_alone ? std::max(Collects(), kSoundWaits) : Collects();
}

void Outlet::Look() {
    Fetch();
    if (collected_.empty()) return LooksByItself(receivers_.empty());
    const auto wait = Waits();
    if (wait == std::chrono::milliseconds(0)) return Flush();
    LookAfter(wait);
}

void Outlet::LookAfter(std::chrono::milliseconds wait) {
    LooksByItself(Collects() != std::chrono::milliseconds(0));
    if (std::exchange(look_waits_, true)) return;
    look_.expires_after(wait);
    look_.async_wait([weak = weak_from_this()](const boost::system::error_code& error) {
        const auto self = weak.lock();
        if (error || self == nullptr) return;
        self->look_waits_ = false;
        self->Fetch();
        self->Flush();
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
    if (std::exchange(look_waits_, false)) look_.cancel();
    for (const BlockPtr& block : collected_)
        Keep(block);
    // A receiver may leave while it is told.
    for (auto at = receivers_.begin(); at != receivers_.end() && !collected_.empty();) {
        const auto receiver = *at++;
        receiver->Take(collected_);
    }
    // The next turn, while something comes.
    const auto wait = receivers_.empty() || collected_.empty() ? std::chrono::milliseconds(0) : Collects();
    collected_.clear();
    collected_bytes_ = 0;
    if (wait != std::chrono::milliseconds(0)) {
        LookAfter(wait);
    } else {
        LooksByItself(receivers_.empty());
    }
}

void Outlet::End() {
    Fetch();
    Flush();
    ended_ = true;
    look_.cancel();
    for (const auto& receiver : std::exchange(receivers_, {}))
        receiver->End();
}

void Outlet::Join(const std::shared_ptr<BlockReceiver>& receiver) {
    if (ended_) {
        receiver->End();
        return;
    }
    if (receivers_.empty()) {
        Fetch();
        Flush();
        LooksByItself(false);
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
    for (const auto& outlet : outlets_)
        outlet->Deliver(block);
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
