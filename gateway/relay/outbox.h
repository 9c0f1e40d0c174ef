// What an origin has sent to the relay's servers and what they have not confirmed: sent on without waiting as long as
// all goes well; when a confirmation does not come, the oldest message alone is tried until it is taken, and the rest
// behind it once more. So all arrive, nearly always in order, and a server that chooses a new leader is not flooded.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include "bounds.h"
#include "relay/message.h"

namespace Orvane::Muxora::Gateway {

struct RelayMessage {
    RelayNote note;
    std::vector<uint8_t> bytes;
};

class RelayOutbox {
  public:
    using Clock = std::chrono::steady_clock;

    // Takes one more; their numbers count on by one.
    void Put(RelayMessage message);
    // There is room, and what was sent is being confirmed.
    bool HasRoom() const { return !trying_ && bytes_ < kRelayWindowBytes; }
    bool Empty() const { return waiting_.empty(); }
    // Calls `send` with what is to go now, in order, until it gives false.
    void Send(Clock::time_point now, const std::function<bool(const RelayMessage&)>& send);
    // The servers have the message of this number. True when it was not known before.
    bool Confirmed(uint64_t number);
    // They do not take it now.
    void Refused() { Try(); }
    // The connection is a new one: what was under way may be lost.
    void Reconnected() { Try(); }

  private:
    struct Waiting {
        RelayMessage message;
        Clock::time_point sent;
        bool confirmed = false;
    };
    void Try();

    std::deque<Waiting> waiting_;
    size_t next_ = 0;  // the first that is to be sent
    size_t bytes_ = 0;
    bool trying_ = false;  // the oldest one alone
    Clock::time_point tried_;
};

}  // namespace Orvane::Muxora::Gateway
