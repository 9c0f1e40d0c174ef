#include "servers/feed_client.h"

#include <cstdio>
#include <utility>

#include "bounds.h"

namespace Orvane::Muxora::Gateway {

namespace {

// A client that had to skip so often stays behind for good, unless it had taken everything between, and some time
// passed.
constexpr unsigned kMaxSkips = 4;
constexpr std::chrono::seconds kRecovered{30};

}  // namespace

FeedMember::FeedMember(const SessionPlace& place, ConnectionCount count, std::shared_ptr<Broadcast> feed)
    : place_(place), count_(std::move(count)), feed_(std::move(feed)), queue_(place.queue_bytes) {
}

void FeedMember::Enter() {
    watch_ = place_.worker.Look(*this);
    Measure();
    feed_->Join(place_.worker, shared_from_this());
}

void FeedMember::Leave() {
    if (!watch_) return;
    const auto self = shared_from_this();  // the outlet may hold the last reference
    place_.worker.Forget(*watch_);
    watch_.reset();
    feed_->Leave(place_.worker, self);
    CloseStream();
}

// A write that is not done says little: the system holds megabytes for a client that reads slowly, and takes more only
// when much of it is gone. What counts is what the client took of it, and that it is not a byte now and then.
void FeedMember::Expired() {
    const auto half = place_.stalled_for / 2;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(half).count();
    const uint64_t taken = Taken();
    if (taken_ && taken < *taken_ + kLeastBytesPerSecond * static_cast<uint64_t>(seconds)) return Stall();
    taken_ = taken;
    Expect(half);
}

void FeedMember::Measure() {
    if (std::exchange(measured_, true)) return;
    taken_.reset();
    Expect(place_.stalled_for / 2);
}

void FeedMember::Stall() {
    ++place_.counts.stalled;
    Leave();
}

void FeedMember::Offer(const BlockPtr& block) {
    if (!queue_.Offer(block)) return;
    feed_->CountSkip();
    const auto now = Clock::now();
    skips_ = caught_up_ && now - last_skip_ > kRecovered ? 1 : skips_ + 1;
    caught_up_ = false;
    last_skip_ = now;
    stay_behind_ = skips_ >= kMaxSkips;
}

void FeedMember::Flush() {
    if (stay_behind_) {
        Stall();
    } else if (!writing_) {
        WriteNext();
    }
}

void FeedMember::End() {
    ending_ = true;
    if (Inside() && !writing_) WriteNext();
}

void FeedMember::Written(size_t bytes) {
    writing_ = false;
    in_flight_.clear();
    feed_->CountSent(bytes);
    WriteNext();
}

void FeedMember::WriteNext() {
    if (queue_.Empty()) {
        ExpectNothing();
        measured_ = false;
        caught_up_ = true;
        if (!ending_) return;
        writing_ = true;
        Measure();
        SayGoodbye();
        return;
    }
    writing_ = true;
    queue_.Take(kMaxBuffersPerWrite, in_flight_);
    Measure();
    WriteBlocks();
}

FeedClient::FeedClient(const SessionPlace& place, NetStream stream, ConnectionCount count,
                       std::shared_ptr<Broadcast> feed, bool chunked)
    : FeedMember(place, std::move(count), std::move(feed)), stream_(std::move(stream)), chunked_(chunked) {
}

void FeedClient::Run(std::string head) {
    text_ = std::move(head);
    gather_.Add(text_.data(), text_.size());
    Enter();
    if (!Inside()) return;
    WatchForClose();
    WriteSome();
}

void FeedClient::WriteBlocks() {
    gather_.Clear();
    payload_ = 0;
    for (const BlockPtr& block : in_flight_)
        payload_ += block->bytes.size();
    if (chunked_) {
        // The whole write is one chunk (RFC 9112 7.1).
        char line[20];
        const int length = std::snprintf(line, sizeof line, "%zx\r\n", payload_);
        text_.assign(line, static_cast<size_t>(length));
        gather_.Add(text_.data(), text_.size());
    }
    for (const BlockPtr& block : in_flight_)
        gather_.Add(block->bytes.data(), block->bytes.size());
    if (chunked_) gather_.Add("\r\n", 2);
    WriteSome();
}

void FeedClient::SayGoodbye() {
    goodbye_ = true;
    if (!chunked_) return Leave();
    gather_.Clear();
    gather_.Add("0\r\n\r\n", 5);
    WriteSome();
}

void FeedClient::WriteSome() {
    stream_.async_write_some(gather_.Rest(), [self = Self()](const boost::system::error_code& error, size_t written) {
        if (!self->Inside()) return;
        if (error) return self->Leave();
        self->gather_.Advance(written);
        if (!self->gather_.Done()) return self->WriteSome();
        if (self->goodbye_) return self->Leave();
        self->Written(std::exchange(self->payload_, 0));
    });
}

// Nothing is expected of the client but that it goes away, also while no media comes.
void FeedClient::WatchForClose() {
    stream_.async_read_some(boost::asio::buffer(ignored_),
                            [self = Self()](const boost::system::error_code& error, size_t) {
                                if (!self->Inside()) return;
                                if (error) return self->Leave();
                                self->WatchForClose();
                            });
}

}  // namespace Orvane::Muxora::Gateway
