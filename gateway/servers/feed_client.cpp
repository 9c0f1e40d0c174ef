#include "servers/feed_client.h"

#include <cstdio>
#include <limits>
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
    Connection().LimitUnsent(kMaxUnsentBytes);
    Measure();
    feed_->Join(place_.worker, shared_from_this());
}

void FeedMember::Leave() {
    if (!watch_) return;
    const auto self = shared_from_this();  // the outlet may hold the last reference
    place_.worker.Forget(*watch_);
    watch_.reset();
    feed_->Leave(place_.worker, self);
    Connection().Close();
}

// A write that is not done says little: the system holds megabytes for a client that reads slowly, and takes more only
// when much of it is gone. What counts is what the client took of it, and that it is not a byte now and then.
void FeedMember::Expired() {
    const auto half = place_.stalled_for / 2;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(half).count();
    const uint64_t taken = Connection().Taken();
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

void FeedMember::Take(std::span<const BlockPtr> blocks) {
    for (const BlockPtr& block : blocks) {
        // What was collected may be more than the queue holds: it goes out as it comes.
        if (!writing_ && queue_.Bytes() + block->bytes.size() > queue_.MaxBytes()) WriteNext();
        if (!Inside()) return;
        if (queue_.Offer(block)) Skipped();
    }
    if (stay_behind_) {
        Stall();
    } else if (!writing_) {
        WriteNext();
    }
}

void FeedMember::Skipped() {
    feed_->CountSkip();
    const auto now = Clock::now();
    skips_ = caught_up_ && now - last_skip_ > kRecovered ? 1 : skips_ + 1;
    caught_up_ = false;
    last_skip_ = now;
    stay_behind_ = skips_ >= kMaxSkips;
}

void FeedMember::End() {
    ending_ = true;
    if (Inside() && !writing_) WriteNext();
}

void FeedMember::Written() {
    EndWrite();
    WriteNext();
}

void FeedMember::EndWrite() {
    size_t bytes = 0;
    for (const BlockPtr& block : in_flight_)
        bytes += block->bytes.size();
    in_flight_.clear();
    feed_->CountSent(bytes);
}

// A client that has shown that it reads may have what the system holds for any other.
void FeedMember::LearnThatItReads() {
    if (reads_ || Connection().Taken() <= kMaxUnsentBytes) return;
    reads_ = true;
    Connection().LimitUnsent(std::numeric_limits<size_t>::max());
}

void FeedMember::WriteNext() {
    writing_ = true;
    while (!queue_.Empty()) {
        queue_.Take(kMaxBuffersPerWrite, in_flight_);
        if (!WriteBlocks()) {
            if (Inside()) Measure();
            return;
        }
        EndWrite();
    }
    LearnThatItReads();
    ExpectNothing();
    measured_ = false;
    caught_up_ = true;
    if (ending_) {
        Measure();
        SayGoodbye();
    } else {
        writing_ = false;
    }
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
    stream_.WriteWithoutWaiting();
    WatchForClose();
    if (Write()) Written();
}

// What stands one behind the other goes out in one piece.
bool FeedClient::FindStretches() {
    stretches_.clear();
    for (const BlockPtr& block : in_flight_) {
        if (block->pages == nullptr) return false;
        const auto chunk = block->chunk;
        if (!stretches_.empty() && stretches_.back().data() + stretches_.back().size() == chunk.data()) {
            stretches_.back() = {stretches_.back().data(), stretches_.back().size() + chunk.size()};
        } else {
            stretches_.push_back(chunk);
        }
    }
    return true;
}

bool FeedClient::SendStretches() {
    for (auto& one : stretches_) {
        while (!one.empty()) {
            boost::system::error_code error;
            const size_t sent = stream_.SendNow(one, error);
            one = one.subspan(sent);
            if (sent != 0) continue;
            if (error == boost::asio::error::would_block) {
                WaitForRoom();
            } else {
                Leave();
            }
            return false;
        }
    }
    return true;
}

void FeedClient::WaitForRoom() {
    stream_.WaitForRoom([self = Self()](const boost::system::error_code& error) {
        if (!self->Inside()) return;
        if (error) return self->Leave();
        if (self->SendStretches()) self->Written();
    });
}

bool FeedClient::WriteBlocks() {
    if (chunked_ && !stream_.Encrypted() && FindStretches()) return SendStretches();
    gather_.Clear();
    if (chunked_) {
        size_t payload = 0;
        for (const BlockPtr& block : in_flight_)
            payload += block->bytes.size();
        // The whole write is one chunk (RFC 9112 7.1).
        char line[20];
        const int length = std::snprintf(line, sizeof line, "%zx\r\n", payload);
        text_.assign(line, static_cast<size_t>(length));
        gather_.Add(text_.data(), text_.size());
    }
    for (const BlockPtr& block : in_flight_)
        gather_.Add(block->bytes.data(), block->bytes.size());
    if (chunked_) gather_.Add("\r\n", 2);
    return Write();
}

void FeedClient::SayGoodbye() {
    goodbye_ = true;
    if (!chunked_) return Leave();
    gather_.Clear();
    gather_.Add("0\r\n\r\n", 5);
    if (Write()) Leave();
}

// Most writes are done at once: the system has room for a client that keeps up.
bool FeedClient::Write() {
    boost::system::error_code error;
    gather_.Advance(stream_.WriteNow(gather_.Rest(), error));
    if (gather_.Done()) return true;
    if (error && error != boost::asio::error::would_block) {
        Leave();
    } else {
        WriteRest();
    }
    return false;
}

void FeedClient::WriteRest() {
    stream_.async_write_some(gather_.Rest(), [self = Self()](const boost::system::error_code& error, size_t written) {
        if (!self->Inside()) return;
        if (error) return self->Leave();
        self->gather_.Advance(written);
        if (!self->gather_.Done()) return self->WriteRest();
        if (self->goodbye_) return self->Leave();
        self->Written();
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
