#include "relay/inbox.h"

#include <utility>

namespace Orvane::Muxora::Gateway {

namespace {

constexpr int64_t Us(std::chrono::microseconds span) {
    return span.count();
}

}  // namespace

void RelayInbox::BeginAt(const std::string& origin, uint64_t number, int64_t stored_us) {
    origin_ = origin;
    next_ = number;
    aimed_ = true;
    begun_ = false;
    stored_us_ = stored_us;
    waiting_.clear();
    waiting_bytes_ = 0;
    unit_.clear();
    pieces_ = 0;
}

// Only a key frame brings another origin in: an edge does not leave pictures that go on for some that it cannot show.
bool RelayInbox::Follow(const RelayNote& note, int64_t stored_us) {
    if (note.origin == origin_) return true;
    const bool silent = stored_us - stored_us_ > Us(kOriginSilence);
    if (note.since_key != 0 || (note.origin < origin_ && !silent)) return false;
    BeginAt(note.origin, note.number, stored_us);
    return true;
}

void RelayInbox::Take(RelayMessage message, int64_t stored_us) {
    const uint64_t number = message.note.number;
    const bool key = message.note.since_key == 0;
    if (!Follow(message.note, stored_us)) return;
    stored_us_ = stored_us;
    if (number < next_ && (begun_ || aimed_)) return;
    if (!aimed_) {
        if (!key) return;
        if (begun_) missing_ += number - next_;
        next_ = number;
        aimed_ = true;
    }
    if (waiting_.empty()) since_us_ = stored_us;
    const size_t size = message.bytes.size();
    if (waiting_.emplace(number, std::move(message)).second) waiting_bytes_ += size;
    Release();
    if (waiting_.empty()) return;
    // A viewer that has nothing yet does not wait for the better place to begin when there is another.
    const bool impatient = !begun_ && key;
    if (impatient || stored_us - since_us_ > Us(kRelayMissing) || waiting_.size() > kMaxRelayWaiting ||
        waiting_bytes_ > kMaxRelayWaitingBytes) {
        GiveUp();
    }
}

void RelayInbox::Gap() {
    GiveUp();
    aimed_ = false;
}

void RelayInbox::Release() {
    for (auto first = waiting_.begin(); first != waiting_.end() && first->first == next_; first = waiting_.begin()) {
        RelayMessage message = std::move(first->second);
        waiting_bytes_ -= message.bytes.size();
        waiting_.erase(first);
        ++next_;
        begun_ = true;
        Give(std::move(message));
    }
}

// Goes on with the next key frame: of those that wait, or of those that come.
void RelayInbox::GiveUp() {
    unit_.clear();
    pieces_ = 0;
    while (!waiting_.empty()) {
        const auto first = waiting_.begin();
        if (first->second.note.since_key == 0) {
            if (begun_) missing_ += first->first - next_;
            next_ = first->first;
            Release();
            return;
        }
        waiting_bytes_ -= first->second.bytes.size();
        waiting_.erase(first);
    }
    aimed_ = false;
}

void RelayInbox::Give(RelayMessage message) {
    const RelayNote& note = message.note;
    if (note.piece == 0) {
        unit_ = std::move(message.bytes);
        pieces_ = 1;
    } else {
        // A piece whose first ones are not there belongs to nothing.
        if (note.piece != pieces_ || unit_.size() + message.bytes.size() > kMaxRelayFrame) {
            unit_.clear();
            pieces_ = 0;
            return;
        }
        unit_.insert(unit_.end(), message.bytes.begin(), message.bytes.end());
        ++pieces_;
    }
    if (pieces_ != note.pieces) return;
    pieces_ = 0;
    sink_(note, std::exchange(unit_, {}));
}

}  // namespace Orvane::Muxora::Gateway
