#include "relay/outbox.h"

#include <utility>

namespace Orvane::Muxora::Gateway {

namespace {

// For a confirmation; three servers on one machine take about a millisecond.
constexpr std::chrono::milliseconds kConfirmationTakes{1500};
constexpr std::chrono::milliseconds kTryEvery{250};

}  // namespace

void RelayOutbox::Put(RelayMessage message) {
    bytes_ += message.bytes.size();
    waiting_.push_back({std::move(message), {}, false});
}

void RelayOutbox::Try() {
    trying_ = !waiting_.empty();
    next_ = 0;
}

void RelayOutbox::Send(Clock::time_point now, const std::function<bool(const RelayMessage&)>& send) {
    if (waiting_.empty()) return;
    if (!trying_ && next_ > 0 && now - waiting_.front().sent > kConfirmationTakes) Try();
    if (trying_) {
        if (now - tried_ < kTryEvery) return;
        tried_ = now;
        send(waiting_.front().message);
        return;
    }
    for (; next_ < waiting_.size(); ++next_) {
        Waiting& waiting = waiting_[next_];
        if (waiting.confirmed) continue;
        if (!send(waiting.message)) return;
        waiting.sent = now;
    }
}

bool RelayOutbox::Confirmed(uint64_t number) {
    if (waiting_.empty()) return false;
    const uint64_t first = waiting_.front().message.note.number;
    if (number < first || number - first >= waiting_.size()) return false;
    Waiting& confirmed = waiting_[number - first];
    if (std::exchange(confirmed.confirmed, true)) return false;
    while (!waiting_.empty() && waiting_.front().confirmed) {
        bytes_ -= waiting_.front().message.bytes.size();
        waiting_.pop_front();
        if (next_ > 0) --next_;
        trying_ = false;
    }
    return true;
}

}  // namespace Orvane::Muxora::Gateway
