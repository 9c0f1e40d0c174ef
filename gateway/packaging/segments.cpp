#include "packaging/segments.h"

#include <boost/asio/post.hpp>
#include <cstdio>
#include <utility>

#include "MuxoraExt.h"
#include "bounds.h"
#include "streaming/codec_string.h"

namespace Orvane::Muxora::Gateway {

namespace {

constexpr std::chrono::milliseconds kCheckEvery{250};

std::string NewGeneration() {
    char text[24];
    std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(WallClockUs() / 1000));
    return text;
}

PackagerSettings CmafSettings(uint32_t tracks) {
    PackagerSettings settings;
    settings.format = MX_FORMAT_FMP4;
    settings.chunks = true;
    settings.tracks = tracks;
    return settings;
}

}  // namespace

Segments::Track::Track(const SegmentSettings& settings, uint32_t tracks, bool paced, Segments& owner)
    : list(settings, paced),
      packager(CmafSettings(tracks), [this, &owner](const BlockPtr& block) { owner.Take(this, block); }) {
}

std::shared_ptr<Segments> Segments::Make(const StreamPtr& stream, const SegmentSettings& settings) {
    const Packager probe(CmafSettings(MX_TRACKS_VIDEO), [](const BlockPtr&) {});
    if (!probe.Good()) return nullptr;
    std::shared_ptr<Segments> made(new Segments(stream, settings));
    boost::asio::post(stream->Home().Context(), [made] { made->stream_->Attach(made); });
    return made;
}

Segments::Segments(StreamPtr stream, const SegmentSettings& settings)
    : stream_(std::move(stream)), settings_(settings), generation_(NewGeneration()), timer_(stream_->Home().Context()) {
}

void Segments::OnFrame(const FramePtr& frame) {
    if (frame->IsVideo()) {
        if (!video_) {
            if (!frame->IsKey()) return;
            video_.emplace(settings_, MX_TRACKS_VIDEO, false, *this);
            if (audio_) audio_->list.Pace();
        }
        if (frame->IsKey()) {
            about_.width = frame->media.width;
            about_.height = frame->media.height;
            about_.frame_rate = frame->media.frame_rate;
        }
    } else if (!audio_) {
        audio_.emplace(settings_, MX_TRACKS_AUDIO, video_.has_value(), *this);
        about_.sample_rate = frame->media.samples_per_sec;
        about_.channels = frame->media.channels;
    }
    if (about_.start_ms == 0) {
        about_.start_ms = frame->arrival_us / 1000 - static_cast<int64_t>(frame->DtsSeconds() * 1000);
    }
    (frame->IsVideo() ? video_ : audio_)->packager.Give(*frame);
}

void Segments::Take(Track* track, const BlockPtr& block) {
    const bool is_video = video_ && track == &*video_;
    if (block->kind == Block::Kind::kHeader) {
        const std::string codec = Streaming::CodecString(block->bytes);
        if (!codec.empty()) (is_video ? about_.video_codec : about_.audio_codec) = codec;
    }
    const auto cut_before = track->list.LatestCut();
    const bool closed = track->list.Add(block);
    const auto cut = track->list.LatestCut();
    // Not for the first one: sound that came a little earlier makes no segment of its own.
    if (is_video && audio_ && cut_before && cut != cut_before) audio_->list.CutAt(*cut);
    if (closed) WakeWaiters();
}

void Segments::OnEnd() {
    ended_ = true;
    if (video_) video_->list.End();
    if (audio_) audio_->list.End();
    WakeWaiters();
    for (Waiter& waiter : std::exchange(waiters_, {}))
        waiter.done(false);
    timer_.cancel();
}

void Segments::Wait(std::function<bool()> ready, std::function<void(bool)> done) {
    if (ready()) return done(true);
    if (ended_) return done(false);
    const auto patience = std::chrono::duration<double>(settings_.segment * kSegmentsOfPatience);
    waiters_.push_back(
        {std::move(ready), std::move(done),
         std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(patience)});
    if (waiters_.size() == 1) ArmTimer();
}

void Segments::ArmTimer() {
    timer_.expires_after(kCheckEvery);
    timer_.async_wait([weak = weak_from_this()](const boost::system::error_code& error) {
        const auto self = weak.lock();
        if (error || self == nullptr) return;
        self->WakeWaiters();
        if (!self->waiters_.empty()) self->ArmTimer();
    });
}

void Segments::WakeWaiters() {
    const auto now = std::chrono::steady_clock::now();
    std::list<Waiter> woken;
    for (auto at = waiters_.begin(); at != waiters_.end();) {
        const auto next = std::next(at);
        if (now > at->until || at->ready()) woken.splice(woken.end(), waiters_, at);
        at = next;
    }
    for (Waiter& waiter : woken)
        waiter.done(waiter.ready());
}

}  // namespace Orvane::Muxora::Gateway
