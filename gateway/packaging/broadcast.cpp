#include "packaging/broadcast.h"

#include <boost/asio/post.hpp>
#include <utility>

#include "bounds.h"
#include "packaging/rtp_packager.h"

namespace Orvane::Muxora::Gateway {

Outlet::Outlet(Worker& worker, bool first_header_stays)
    : first_header_stays_(first_header_stays), flush_(worker.Context()) {
}

void Outlet::Deliver(const BlockPtr& block) {
    if (block->kind == Block::Kind::kHeader) {
        if (first_header_stays_) {
            if (head_.size() > 1) head_.resize(1);
        } else if (!head_open_) {
            head_.clear();
        }
        head_open_ = true;
        head_.push_back(block);
    } else {
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
    for (const auto& receiver : receivers_)
        receiver->Offer(block);
    if (block->audio && !block->video && block->kind == Block::Kind::kMedia && !block->key) {
        if (flush_waits_) return;
        flush_waits_ = true;
        flush_.expires_after(kSoundWaits);
        flush_.async_wait([weak = weak_from_this()](const boost::system::error_code& error) {
            const auto self = weak.lock();
            if (!error && self != nullptr) self->FlushAll();
        });
        return;
    }
    FlushAll();
}

void Outlet::FlushAll() {
    if (flush_waits_) flush_.cancel();
    flush_waits_ = false;
    // A receiver may leave while it is told.
    for (auto at = receivers_.begin(); at != receivers_.end();) {
        const auto receiver = *at++;
        receiver->Flush();
    }
}

void Outlet::End() {
    ended_ = true;
    flush_.cancel();
    for (const auto& receiver : std::exchange(receivers_, {}))
        receiver->End();
}

void Outlet::Join(std::shared_ptr<BlockReceiver> receiver) {
    if (ended_) {
        receiver->End();
        return;
    }
    size_t bytes = gop_bytes_;
    for (const BlockPtr& block : head_) {
        receiver->Offer(block);
        bytes += block->bytes.size();
    }
    // A group that would run over at once is no beginning: the next one is.
    if (bytes <= receiver->Room()) {
        for (const BlockPtr& block : gop_)
            receiver->Offer(block);
    }
    receiver->Flush();
    receivers_.insert(std::move(receiver));
}

void Outlet::Leave(const std::shared_ptr<BlockReceiver>& receiver) {
    receivers_.erase(receiver);
}

std::shared_ptr<Broadcast> Broadcast::Make(Workers& workers, const StreamPtr& stream, const Form& form) {
    const std::shared_ptr<Broadcast> made(new Broadcast(workers, stream, form));
    if (!made->packager_->Good()) return nullptr;
    boost::asio::post(stream->Home().Context(), [made] { made->stream_->Attach(made); });
    return made;
}

Broadcast::Broadcast(Workers& workers, StreamPtr stream, const Form& form)
    : workers_(workers), stream_(std::move(stream)), form_(form) {
    for (size_t i = 0; i < workers_.Count(); ++i)
        outlets_.push_back(std::make_shared<Outlet>(workers_.At(i), form.first_header_stays));
    const auto sink = [this](const BlockPtr& block) { Publish(block); };
    if (form.format == MX_FORMAT_RTP) {
        packager_ = std::make_unique<RtpPackager>(stream_->HeaderInfo(), sink);
        return;
    }
    PackagerSettings settings;
    settings.format = form.format;
    settings.chunks = form.chunks;
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
        if (&workers_.At(i) == &stream_->Home() && self != nullptr) {
            outlets_[i]->Deliver(block);
        } else if (self != nullptr) {
            boost::asio::post(workers_.At(i).Context(), [self, i, block] { self->outlets_[i]->Deliver(block); });
        } else {
            // Written by the constructor: nobody listens yet.
            outlets_[i]->Deliver(block);
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
